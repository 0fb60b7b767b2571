// The dataset record of a saved project: the tagged tables, when a save writes, what a
// load binds and restores, and damaged records.

#include "dataset/axis.h"
#include "dataset/dataset_base.h"
#include "dataset/partial_exportable.h"
#include "dataset/serialization_helper.h"
#include "dataset/tagged_table.h"
#include "host/base64.h"
#include "host/configuration.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "host/string_utils.h"
#include "host/value_item.h"
#include "storage/storage_base.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <thread>

namespace fs = std::filesystem;
using testing_support::LogCapture;

namespace {

// A dataset with two storages on managed files, and an item face like the real ones.
class RecordDataSet : public DataSetBase {
public:
    RecordDataSet() {
        CreateStorage("Wave", 4);
        CreateStorage("Index", 8);
    }
    bool InitItem(IBaseCtr* item) {
        if (item) SetSerialization(std::make_unique<DataSetSerializationHelper>(item));
        return true;
    }
    bool OnCMD(const std::string& command, IBaseCtr* argument) {
        return Serialization() && Serialization()->OnCMD(command, argument);
    }
    using DataSetBase::BindMemoryStorage;
    using DataSetBase::CreateStorage;
};

// The same, able to export: a data save type of 1 hands it to the manager instead.
class ExportingDataSet : public RecordDataSet, public IPartialExportable {
public:
    bool InitializeExport(bool) override { return false; }
    bool AddRange(const Vellum::Var&, const Vellum::Var&, const Vellum::Var&) override { return false; }
    bool FinalizeExport() override { return false; }
};

CLocalSource& Scope() {
    static CLocalSource* scope = [] {
        auto* s = new CLocalSource("serialization-tests", GetRootLocal());
        RegisterAxisType(s);
        RegisterClassType<RecordDataSet>("SER_RECORD_TEST", s);
        RegisterClassType<ExportingDataSet>("SER_EXPORTING_TEST", s);
        return s;
    }();
    return *scope;
}

template <class D>
std::unique_ptr<IBaseCtr> MakeItem(const char* exportable = "1") {
    Scope();
    std::unique_ptr<IBaseCtr> item(CreateItemByTypeID(VellumTypeOf<D>(), "ds"));
    item->AddChildItem(CreateItemByTypeID(VellumTypeOf<CDatasetAxis>(), "sizeAxis"), "sizeAxis", true);
    item->AddChildItem(CreateItemByTypeID(VellumTypeOf<CDatasetAxis>(), "dataAxis"), "dataAxis", true);
    if (exportable) item->SetAttribute("exportable", exportable);
    return item;
}

IDatasetAxis* Axis(IBaseCtr* item, const char* name) {
    return QueryInterface<IDatasetAxis>(item->GetChildItem(name)).get();
}

// The content as 32-bit words.
std::vector<uint32_t> ReadUnits(StorageBase& storage) {
    const uint64_t words = storage.UnitSize() / 4;
    std::vector<uint32_t> units(storage.Count() * words);
    units.resize(storage.Read(0, units.data(), storage.Count()) * words);
    return units;
}

bool WaitReady(const std::string& id) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
        auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
        if (file && file->IsReady() == 1) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

// Each test works in the project folder "<dir>/work". A save is completed as a host does
// it: the files of the table are copied to "<dir>/__old__", where a later load with the
// project folder "<dir>" finds them. (A dataset that goes away empties its own files.)
class Record : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() /
               ("wavestore-record-test-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
        ProjectFileManager::instance().SetProjectFolder((dir_ / "work").string());
        SerializationManager::Instance().SetDataSaveType(0);
    }
    void TearDown() override {
        SerializationManager::Instance().SetDataSaveType(0);
        SerializationManager::Instance().TakeDynamicData();
        SerializationManager::Instance().TakePartialData();
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    void CompleteSave(const Configuration& config) {
        fs::create_directories(dir_ / "__old__");
        for (const auto& [name, id] :
             DataSetSerializationHelper::DecodeFileTable(config.GetString("project/ds/files/value")))
            fs::copy_file(dir_ / "work" / id, dir_ / "__old__" / id);
    }
    void StartLoading() { ProjectFileManager::instance().SetProjectFolder(dir_.string()); }

    static void Save(IBaseCtr* item, Configuration& config, uint32_t flag = 1) {
        const SerializeConfig save{flag};
        Helper(item)->Serialize(Context(config), &save);
    }
    static bool Load(IBaseCtr* item, Configuration& config) { return Helper(item)->Deserialize(Context(config)); }
    static std::shared_ptr<SerializeContext> Context(Configuration& config) {
        return std::make_shared<SerializeContext>(SerializeContext{&config, "project/ds"});
    }
    static Ctr<ISerializable> Helper(IBaseCtr* item) { return QueryInterface<ISerializable>(item); }
    static DataSetBase& Data(IBaseCtr* item) { return *QueryInterface<DataSetBase>(item); }

    fs::path dir_;
};

TEST(TaggedTable, EntriesThatDoNotFitAreLeftOutAndTheLengthStaysTrue) {
    TaggedTableWriter table;
    EXPECT_FALSE(table.AddText(std::string(8000, 'k'), std::string(8373, 'v')));  // one byte too many
    ASSERT_TRUE(table.AddText(std::string(8000, 'k'), std::string(8370, 'v')));   // leaves 2 bytes
    EXPECT_EQ(table.Free(), 2u);
    const double record[3] = {1.5, 0, 0};
    EXPECT_FALSE(table.AddRecord("", record, 24));
    auto bytes = table.Bytes();
    ASSERT_EQ(bytes.size(), 16382u);
    uint32_t length = 0;
    std::memcpy(&length, bytes.data(), 4);
    EXPECT_EQ(length, 16382u);
    uint32_t tag = 0;
    std::memcpy(&tag, bytes.data() + 4, 4);
    EXPECT_EQ(tag, 0x000A0000u | 8000u);
    auto entries = ParseTaggedTable(bytes.data(), bytes.size());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].value.size(), 8370u);

    TaggedTableWriter axes;
    ASSERT_TRUE(axes.AddRecord("sizeAxis", record, 24));
    bytes = axes.Bytes();
    std::memcpy(&tag, bytes.data() + 4 + 4 + 8, 4);
    EXPECT_EQ(tag, 0x000C0018u);
    entries = ParseTaggedTable(bytes.data(), bytes.size());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].value_type, kTaggedRecord);
    EXPECT_EQ(entries[0].value.size(), 24u);
}

TEST(TaggedTable, ManyStoragesFillTheFileTableUpToItsCapacity) {
    std::map<std::string, std::string> files;
    for (int i = 0; i < 1000; ++i) files[fmt::format("storage-{:04}", i)] = fmt::format("cache-{:06}.wsc", i);
    files[""] = "no-name.wsc";
    const std::string text = DataSetSerializationHelper::EncodeFileTable(files);
    const auto bytes = Base64Decode(text);
    ASSERT_TRUE(bytes);
    uint32_t length = 0;
    std::memcpy(&length, bytes->data(), 4);
    EXPECT_EQ(length, bytes->size());
    EXPECT_LE(bytes->size(), 16384u);
    EXPECT_GT(bytes->size(), 16384u - 36u);  // one more 36-byte entry would not have fitted
    const auto back = DataSetSerializationHelper::DecodeFileTable(text);
    EXPECT_EQ(back.size(), (bytes->size() - 4) / 36);
    EXPECT_EQ(back.count(""), 0u);
    for (const auto& [name, id] : back) EXPECT_EQ(files.at(name), id);
    EXPECT_EQ(back.begin()->first, "storage-0000");  // the first ones in name order stay
}

TEST(TaggedTable, DamagedTablesGiveWhatTheyHold) {
    TaggedTableWriter table;
    table.AddText("Wave", "a.wsc");
    table.AddText("Index", "b.wsc");
    auto bytes = table.Bytes();
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size()).size(), 2u);
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size() - 1).size(), 1u);  // cut inside the last value
    EXPECT_TRUE(ParseTaggedTable(bytes.data(), 3).empty());
    EXPECT_TRUE(ParseTaggedTable(nullptr, 100).empty());
    bytes[0] = bytes[1] = bytes[2] = bytes[3] = 0xFF;  // a length beyond the buffer
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size()).size(), 2u);
    bytes[4 + 4 + 4] = 0xF0;  // the value of "Wave" claims 0xF005 bytes
    bytes[4 + 4 + 4 + 1] = 0xF0;
    EXPECT_TRUE(ParseTaggedTable(bytes.data(), bytes.size()).empty());
    EXPECT_TRUE(DataSetSerializationHelper::DecodeFileTable("not base64!").empty());
}

TEST_F(Record, NothingIsWrittenWithoutAFlagOrWhenNotExportable) {
    auto item = MakeItem<RecordDataSet>();
    auto closed = MakeItem<RecordDataSet>("0");
    auto unmarked = MakeItem<RecordDataSet>(nullptr);
    Configuration config;
    Helper(item.get())->Serialize(Context(config), nullptr);
    Save(item.get(), config, 0);
    Save(closed.get(), config);
    Save(unmarked.get(), config);
    EXPECT_TRUE(config.Keys().empty());

    item->SetAttribute("exportable", "1");
    Save(item.get(), config);
    EXPECT_EQ(config.Keys(),
              (std::vector<std::string>{"project/ds/axis/value", "project/ds/data/value", "project/ds/files/value"}));
}

TEST_F(Record, SaveTypeOneHandsExportableDatasetsOverAndLazyOnesComeBackLater) {
    auto exporting = MakeItem<ExportingDataSet>();
    auto plain = MakeItem<RecordDataSet>();
    Configuration config;
    SerializationManager::Instance().SetDataSaveType(1);
    Save(exporting.get(), config);
    EXPECT_TRUE(config.Keys().empty());
    const auto partial = SerializationManager::Instance().TakePartialData();
    ASSERT_EQ(partial.size(), 1u);
    EXPECT_EQ(partial[0].first, exporting.get());
    EXPECT_EQ(partial[0].second, "project/ds");
    Save(plain.get(), config);  // not exportable: saved in place
    EXPECT_TRUE(config.Has("project/ds/files/value"));

    SerializationManager::Instance().SetDataSaveType(0);
    plain->SetAttribute("lazy", "1");
    Save(plain.get(), config);
    EXPECT_EQ(SerializationManager::Instance().TakeDynamicData(), std::vector<IBaseCtr*>{plain.get()});
}

TEST_F(Record, AMemoryStorageIsCopiedIntoAFileNamedInTheTable) {
    auto item = MakeItem<RecordDataSet>();
    auto& dataset = static_cast<RecordDataSet&>(Data(item.get()));
    std::vector<uint32_t> memory(300000);
    std::iota(memory.begin(), memory.end(), 11u);
    dataset.BindMemoryStorage("Memory", memory.data(), memory.size() * 4, 4);
    Configuration config;
    Save(item.get(), config);
    const auto files = DataSetSerializationHelper::DecodeFileTable(config.GetString("project/ds/files/value"));
    ASSERT_EQ(files.size(), 3u);
    const std::string id = files.at("Memory");
    ASSERT_FALSE(id.empty());
    ASSERT_TRUE(WaitReady(id));
    auto file = ProjectFileManager::instance().GetFile(id, 19, 0).lock();
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->GetAutoRemove());
    std::vector<uint32_t> back(memory.size());
    file->GetCFile()->Seek(0, Tessel::CFile::SeekBegin);
    ASSERT_EQ(file->GetCFile()->Read(back.data(), back.size() * 4), static_cast<int64_t>(back.size() * 4));
    EXPECT_EQ(back, memory);
}

TEST_F(Record, ALoadedItemReadsTheSavedFilesAndGetsItsAxesAndStateBack) {
    Configuration config;
    std::vector<uint32_t> units(200000);
    std::iota(units.begin(), units.end(), 5u);
    std::map<std::string, std::string> saved_ids;
    {
        auto item = MakeItem<RecordDataSet>();
        DataSetBase& dataset = Data(item.get());
        ASSERT_EQ(dataset.GetStorage("Wave")->Write(units.data(), units.size()), units.size());
        const uint32_t two[4] = {1, 2, 3, 4};
        dataset.GetStorage("Index")->Write(two, 2);
        Axis(item.get(), "sizeAxis")->SetRatioOffset(0.0, 1e-3);
        Axis(item.get(), "sizeAxis")->SetIndexStep(50);
        uint64_t scale = 7;
        Axis(item.get(), "sizeAxis")->SetScale(&scale);
        Axis(item.get(), "dataAxis")->SetRatioOffset(2.0, 0.25);
        IBaseCtr* state = Eval("STRING = acquired", nullptr);
        item->AddChildItem(state, "ST_DataState", true);
        Save(item.get(), config);
        saved_ids = DataSetSerializationHelper::DecodeFileTable(config.GetString("project/ds/files/value"));
        EXPECT_EQ(config.GetString("project/ds/data/value"), "acquired");
        CompleteSave(config);
    }
    ASSERT_EQ(saved_ids.size(), 2u);

    StartLoading();
    auto item = MakeItem<RecordDataSet>();
    DataSetBase& dataset = Data(item.get());
    EXPECT_EQ(dataset.GetStorage("Wave")->Count(), 0u);
    EXPECT_TRUE(Load(item.get(), config));
    EXPECT_EQ(dataset.CurrentGroup(), "__imported__");
    EXPECT_EQ(ReadUnits(*dataset.GetStorage("Wave")), units);
    EXPECT_EQ(ReadUnits(*dataset.GetStorage("Index")), (std::vector<uint32_t>{1, 2, 3, 4}));
    for (const auto& [name, channel] : dataset.Groups().at("__imported__")) {
        EXPECT_FALSE(channel->Writable()) << name;
        EXPECT_EQ(std::dynamic_pointer_cast<IFileCache>(channel)->GetId(), saved_ids.at(name));
        EXPECT_TRUE(fs::is_regular_file(dir_ / "__old__" / saved_ids.at(name)));
    }
    IDatasetAxis* size = Axis(item.get(), "sizeAxis");
    EXPECT_DOUBLE_EQ(size->GetRatio(), 1e-3);
    EXPECT_EQ(size->GetIndexStep(), 50u);
    EXPECT_EQ(size->GetScale(), 7u);
    EXPECT_DOUBLE_EQ(Axis(item.get(), "dataAxis")->GetRatio(), 0.25);
    EXPECT_EQ(size->GetAxisState(), 1u);  // "LockAxis" reached both axes
    EXPECT_EQ(Axis(item.get(), "dataAxis")->GetAxisState(), 1u);
    ASSERT_NE(item->GetChildItem("ST_DataState"), nullptr);
    EXPECT_EQ(item->GetChildItem("ST_DataState")->GetValue().ToString(), "acquired");
    EXPECT_EQ(item->GetAttribute("ST_DataState"), "acquired");
}

TEST_F(Record, DamagedRecordsLoadWhatTheyCan) {
    auto item = MakeItem<RecordDataSet>();
    DataSetBase& dataset = Data(item.get());
    const uint32_t kept[3] = {9, 8, 7};
    dataset.GetStorage("Wave")->Write(kept, 3);
    Axis(item.get(), "sizeAxis")->SetRatioOffset(0.0, 0.5);
    LogCapture log;

    Configuration empty;
    EXPECT_FALSE(Load(item.get(), empty));  // nothing saved: nothing changes but the axis lock
    EXPECT_FALSE(Helper(item.get())->Deserialize(nullptr));
    Configuration config;
    for (const char* text : {"%%% not base64 %%%", "AAA=", "BAAAAA==", "/////wAAAAA="}) {
        config.SetString("project/ds/files/value", text);  // bad text, cut tables, lengths beyond the data
        EXPECT_FALSE(Load(item.get(), config)) << text;
    }
    // Names without a storage, and a value that is not a text.
    TaggedTableWriter files;
    files.AddText("Unknown", "cache-000001.wsc");
    const double record[3] = {0, 0, 0};
    files.AddRecord("Wave", record, 24);
    const auto bytes = files.Bytes();
    config.SetString("project/ds/files/value", Base64Encode(bytes));
    EXPECT_FALSE(Load(item.get(), config));
    EXPECT_TRUE(log.ContainsSubstring("has no storage Unknown"));
    EXPECT_EQ(dataset.CurrentGroup(), "__def__");
    EXPECT_EQ(ReadUnits(*dataset.GetStorage("Wave")), (std::vector<uint32_t>{9, 8, 7}));

    // Axis tables: a wrong record size, a text value, and a table whose length field
    // lies; only the one whole record is applied.
    TaggedTableWriter axes;
    const uint64_t short_record[2] = {0, 0};
    axes.AddRecord("sizeAxis", short_record, 16);
    axes.AddText("sizeAxis", "0.25");
    const AxisRecord good{0.125, 3, 4};
    axes.AddRecord("dataAxis", &good, 24);
    axes.AddRecord("noAxis", &good, 24);
    auto table = axes.Bytes();
    table[2] = 0x7F;
    config.SetBinary("project/ds/axis/value", table.data(), table.size());
    EXPECT_FALSE(Load(item.get(), config));
    EXPECT_DOUBLE_EQ(Axis(item.get(), "sizeAxis")->GetRatio(), 0.5);
    EXPECT_DOUBLE_EQ(Axis(item.get(), "dataAxis")->GetRatio(), 0.125);
    config.SetBinary("project/ds/axis/value", table.data(), 30);  // cut inside the first record
    EXPECT_FALSE(Load(item.get(), config));
    EXPECT_EQ(ReadUnits(*dataset.GetStorage("Wave")), (std::vector<uint32_t>{9, 8, 7}));
}

}  // namespace
