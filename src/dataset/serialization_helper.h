#pragma once
// DataSetSerializationHelper: the part of a dataset that speaks for it to the project.
// It completes the item's configuration with its log line, takes the commands that all
// dataset types share, and writes and reads the dataset's record in a saved project.
//
// Shared commands (any case): "Export" writes the range of the item's "ExportParam"
// into an export package (see partial_exportable.h), then flushes; "LockAxis" /
// "UnlockAxis" send "Lock" / "UnLock" to the children "dataAxis" and "sizeAxis";
// "Update" sends "Update" to both, "AxisUpdate" to "sizeAxis" only; "flush" flushes the
// dataset, then "Update"; "reset" sends "Clear" to the dataset, switches it to the
// group "__def__", then "Update".
//
// The record, under the context's path (see tagged_table.h for the table form):
//   files/value  text    Base64 of the file table: storage name -> file id (Persist)
//   axis/value   binary  the axis table: axis name -> 24-byte record (AxisRecord)
//   data/value   text    the data state: the value of the item's child "ST_DataState"
// Samples stay in the cache files; a load binds those files, read-only, from the
// "__old__" folder of the project, in the group "__imported__".

#include "host/serialization.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class DataSetBase;
class IBaseCtr;
class IDatasetAxis;
class ILocalSource;

// What the axis table keeps of one axis: its ratio (for the size axis the sample
// period), its index step and its scale, in this order.
struct AxisRecord {
    double ratio = 0;
    uint64_t index_step = 0;
    uint64_t scale = 0;
};
static_assert(sizeof(AxisRecord) == 24);

class DataSetSerializationHelper : public ISerializable {
public:
    explicit DataSetSerializationHelper(IBaseCtr* owner) : owner_(owner) {}
    ~DataSetSerializationHelper() override = default;

    IBaseCtr* Owner() const { return owner_; }

    // Writes the record when config asks for it (non-zero flag) and the owner's
    // attribute "exportable" is "1". With data save type 1 an exportable owner is
    // handed to the SerializationManager as partial data instead. Unless the owner's
    // attribute "lazy" is "1", the dataset is flushed and the file table written again;
    // with it, the owner is handed over as dynamic data.
    void Serialize(std::shared_ptr<SerializeContext> context, const SerializeConfig* config) override;
    // Binds the saved files, restores the axes and the data state, then sends
    // "LockAxis" to the owner and refreshes its attribute "ST_DataState". Loads what it
    // can of a damaged record. True when saved files were bound.
    bool Deserialize(std::shared_ptr<SerializeContext> context) override;

    // Logs "Dataset @{} Initialized, id={}, caption={}"; true.
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    bool OnCMD(const std::string& command, IBaseCtr* sender);
    // Storage name to the file id that Persist gives, for the present group, in name order.
    static std::map<std::string, std::string> GetFileIdMap(IBaseCtr* owner);

    // The Base64 text of the file table, and the bytes of the axis table, as written.
    static std::string EncodeFileTable(const std::map<std::string, std::string>& files);
    static std::vector<uint8_t> EncodeAxisTable(const std::map<std::string, AxisRecord>& axes);
    // The entries of a file table text whose key and value are texts; empty for text
    // that is not Base64. At most the table's capacity is decoded.
    static std::map<std::string, std::string> DecodeFileTable(const std::string& base64);

private:
    void SendToAxes(const std::string& command, bool size_axis_only = false);
    void WriteFileTable(const SerializeContext& context);
    void WriteAxisTable(const SerializeContext& context);
    void WriteDataState(const SerializeContext& context);
    bool LoadFiles(DataSetBase& dataset, const SerializeContext& context);
    void LoadAxes(const SerializeContext& context);
    void LoadDataState(const SerializeContext& context);
    bool Export();

    IBaseCtr* owner_;
};
