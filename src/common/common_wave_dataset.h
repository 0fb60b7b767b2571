#pragma once
// CommonWaveDataSet: a wave dataset whose element type is a run-time value. It keeps
// the type as a host type code with its row of operations, and gets its storages and
// indexers from its XML definition:
//
//   <item name="w" type="WaveDataset" dtype="FLOAT">
//     <storage>                          one element per storage: name, "kind;argument"
//       <Wave type="File;"/>             "File" (also any unknown kind), "ExtFile;path",
//       <Area type="Mem;areaBuffer"/>    "Mem;item" (an item that is an IMemoryBuffer)
//     </storage>
//     <index>
//       <default id="mm" step="100"/>    the main min/max indexer
//       <item type="..." id="other"/>    any other indexer item, registered under its id
//     </index>
//   </item>
//
// Writers push raw elements through IWaveWriter: they go to "Wave", to every indexer,
// and into the last area, the run being written (times in sample numbers). A run ends
// when a block doesn't continue it; its area then goes to "Area".
//
// CommonWaveDataSetInit (common_wave_dataset_init.h) is the companion item: when a
// dataset item has one as its child IDataSetEx::INIT_OBJECT_NAME, that item configures
// the dataset and the dataset's own XML is skipped.

#include "common/common_wave_interfaces.h"
#include "dataset/dataset_base_ex.h"
#include "host/ctr_var.h"
#include "host/serialization.h"
#include "host/xml_items.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class CommonWaveMaxMinIndexer;
class StorageBase;

// The three channel makers of a dataset; by default the module's own factories.
struct WaveChannelFactory {
    std::function<std::shared_ptr<IDeviceChannel>()> managed;
    std::function<std::shared_ptr<IDeviceChannel>(const void* base, uint64_t length)> memory;
    std::function<std::shared_ptr<IDeviceChannel>(const std::string& path)> external;

    static WaveChannelFactory Default();
};

class CommonWaveDataSet : public IWaveDataset, public IWaveWriter, public IItemXmlInit, public ISerializable {
public:
    static constexpr const char* kMainIndexerName = "__MinMaxIndexer__";

    CommonWaveDataSet();
    ~CommonWaveDataSet() override;
    CommonWaveDataSet(const CommonWaveDataSet&) = delete;
    CommonWaveDataSet& operator=(const CommonWaveDataSet&) = delete;

    // Item binding.
    bool InitItem(IBaseCtr* item);
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;

    // IDataSetEx
    void OnDataChanged() override {}
    // Resets every indexer; the storages are emptied by the group.
    void OnClear() override;
    // The last area is forgotten with the data.
    void PostClear() override;
    std::string MainStorageId() override { return "Wave"; }

    // IWaveDataset
    bool SetDataType(const std::string& type, bool save) override;
    int GetDataType() const override { return data_type_; }
    bool AddIndexer(const std::string& name, IWaveIndexer* indexer) override;
    void ResetIndexer(const std::string& name) override;
    const WaveTypeOps* TypeOperations() const override { return ops_; }
    VellumLevelTime SamplePeriod() const override;
    VellumLevelTime TimeUnit() const override;
    IWaveWriter* Writers() override { return this; }
    bool CreateStorages(const std::map<std::string, std::string>& storages, ILocalSource* source,
                        const pugi::xml_node& xml) override;
    void SetIndexStep(unsigned int step) override;
    IDataSetBase* StorageGroup() override { return &group_; }
    ValidDataArea LastArea() const override { return last_area_; }
    IBaseCtr* Item() const override { return item_; }

    // IWaveWriter. Elements go to "Wave" only while its unit is the element size.
    bool Push(VellumTime time, const void* data, uint64_t count) override;

    // ISerializable: the type, the rate and the last area as texts under the context's
    // path (path + ".data_type" and so on), the files through the storage group.
    void Serialize(std::shared_ptr<SerializeContext> context, const SerializeConfig* config) override;
    bool Deserialize(std::shared_ptr<SerializeContext> context) override;

    void SetSampleRate(double rate) { sample_rate_ = rate; }
    double SampleRate() const { return sample_rate_; }
    // Times in nanoseconds instead of sample periods.
    void SetNanosecondTime(bool on) { nanosecond_time_ = on; }
    void SetChannelFactory(WaveChannelFactory factory) { factory_ = std::move(factory); }
    DataSetBaseEx& Group() { return group_; }
    std::shared_ptr<StorageBase> WaveStorage() const { return wave_; }
    std::shared_ptr<StorageBase> IndexStorage() const { return index_; }
    std::shared_ptr<StorageBase> AreaStorage() const { return area_; }
    CommonWaveMaxMinIndexer* MainIndexer() const { return main_indexer_.get(); }
    IWaveIndexer* FindIndexer(const std::string& name) const;
    std::vector<std::string> IndexerNames() const;

    // The sample period of a rate, as a small integer times a power of ten within 0.1 %:
    // 1 ms for a rate that is not positive; the zero period where it can't be expressed.
    static VellumLevelTime PeriodOfRate(double rate);

    // The steps of a definition: the type (when dtype isn't empty), the storages, the
    // indexers of the "index" node, and the main indexer if none was declared.
    // Configured() is true from then on.
    void Configure(ILocalSource* source, const std::string& dtype, const pugi::xml_node& storage,
                   const pugi::xml_node& index);
    bool Configured() const { return configured_; }

private:
    // Selects the row of data_type_ and makes the storages and indexers follow it.
    void RefreshDerivedState();
    void MakeMainIndexer();
    // The children of an "index" node: "default" is the main indexer, any other an item.
    void BuildIndexers(ILocalSource* source, const pugi::xml_node& index);
    // Ends the last area: it goes to "Area".
    void CloseArea();

    IBaseCtr* item_ = nullptr;
    WaveChannelFactory factory_;
    int data_type_ = -1;
    const WaveTypeOps* ops_ = nullptr;
    double sample_rate_ = 0.0;
    int saved_data_type_ = -1;
    std::shared_ptr<StorageBase> wave_;
    std::shared_ptr<StorageBase> index_;
    std::shared_ptr<StorageBase> area_;
    std::unique_ptr<CommonWaveMaxMinIndexer> main_indexer_;
    std::vector<std::pair<std::string, IWaveIndexer*>> indexers_;
    std::vector<std::unique_ptr<IBaseCtr>> indexer_items_;
    ValidDataArea last_area_{};
    bool area_open_ = false;
    bool nanosecond_time_ = false;
    bool configured_ = false;  // Configure ran
    ILocalSource* source_ = nullptr;
    DataSetBaseEx group_;
};

// Reads the children of a "storage" node: element name to its "type" text.
std::map<std::string, std::string> ReadStorageDeclarations(const pugi::xml_node& storage);

#include "common/common_wave_dataset_init.h"
