#pragma once
// DataSetSerializationHelper: the part of a dataset that speaks for it to the project:
// it completes the item's configuration with its log line, takes the commands that all
// dataset types share, and lists which storage lives in which file.
//
// Shared commands (any case): "LockAxis" / "UnlockAxis" send "Lock" / "UnLock" to the
// children "dataAxis" and "sizeAxis"; "Update" sends "Update" to both, "AxisUpdate" to
// "sizeAxis" only; "flush" flushes the dataset, then "Update"; "reset" sends "Clear" to
// the dataset, switches it to the group "__def__", then "Update".

#include <map>
#include <string>

class IBaseCtr;
class ILocalSource;

class DataSetSerializationHelper {
public:
    explicit DataSetSerializationHelper(IBaseCtr* owner) : owner_(owner) {}
    virtual ~DataSetSerializationHelper() = default;

    IBaseCtr* Owner() const { return owner_; }

    // Logs "Dataset @{} Initialized, id={}, caption={}"; true.
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    bool OnCMD(const std::string& command, IBaseCtr* sender);
    // Storage name to the file id that Persist gives, for the present group, in name order.
    static std::map<std::string, std::string> GetFileIdMap(IBaseCtr* owner);

private:
    void SendToAxes(const std::string& command, bool size_axis_only = false);

    IBaseCtr* owner_;
};
