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
#include "storage/storage_base.h"
#include "support/log_capture.h"

#include "support/wait.h"

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

using testing_support::WaitReady;

// Each test works in a project folder of its own.
class Record : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() /
               ("wavestore-record-test-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
        ProjectFileManager::instance().SetProjectFolder(dir_.string());
        SerializationManager::Instance().SetDataSaveType(0);
    }
    void TearDown() override {
        SerializationManager::Instance().SetDataSaveType(0);
        SerializationManager::Instance().TakeDynamicData();
        SerializationManager::Instance().TakePartialData();
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
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

TEST(TaggedTable, FitLengthFieldTagsAndDamagedTables) {
    TaggedTableWriter table;
    EXPECT_FALSE(table.AddText(std::string(8000, 'k'), std::string(8373, 'v')));  // one byte too many
    ASSERT_TRUE(table.AddText(std::string(8000, 'k'), std::string(8370, 'v')));   // leaves 2 bytes
    const double record[3] = {1.5, 0, 0};
    EXPECT_FALSE(table.AddRecord("", record, 24));
    auto bytes = table.Bytes();
    uint32_t words[2] = {};
    std::memcpy(words, bytes.data(), 8);
    EXPECT_EQ(words[0], 16382u);  // the length field counts what is there
    EXPECT_EQ(words[1], 0x000A0000u | 8000u);

    TaggedTableWriter axes;
    ASSERT_TRUE(axes.AddRecord("sizeAxis", record, 24));
    axes.AddText("Index", "b.wsc");
    bytes = axes.Bytes();
    std::memcpy(words, bytes.data() + 16, 4);
    EXPECT_EQ(words[0], 0x000C0018u);
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size()).size(), 2u);
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size() - 1).size(), 1u);  // cut inside the last value
    EXPECT_TRUE(ParseTaggedTable(bytes.data(), 3).empty());
    bytes[0] = bytes[1] = bytes[2] = bytes[3] = 0xFF;  // a length beyond the buffer
    EXPECT_EQ(ParseTaggedTable(bytes.data(), bytes.size()).size(), 2u);
    bytes[4 + 4 + 8 + 1] = 0xF0;  // the record claims 0xF018 bytes
    EXPECT_TRUE(ParseTaggedTable(bytes.data(), bytes.size()).empty());
}

TEST(TaggedTable, ManyStoragesFillTheFileTableUpToItsCapacity) {
    std::map<std::string, std::string> files{{"", "no-name.wsc"}};
    for (int i = 0; i < 1000; ++i) files[fmt::format("storage-{:04}", i)] = fmt::format("cache-{:06}.wsc", i);
    const std::string text = DataSetSerializationHelper::EncodeFileTable(files);
    const auto bytes = Base64Decode(text);
    ASSERT_TRUE(bytes);
    uint32_t length = 0;
    std::memcpy(&length, bytes->data(), 4);
    EXPECT_EQ(length, bytes->size());
    EXPECT_GT(bytes->size(), 16384u - 36u);  // a further 36-byte entry would not have fitted
    const auto back = DataSetSerializationHelper::DecodeFileTable(text);
    EXPECT_EQ(back.size(), (bytes->size() - 4) / 36);
    EXPECT_EQ(back.begin()->first, "storage-0000");  // the first in name order stay, no empty name
    for (const auto& [name, id] : back) EXPECT_EQ(files.at(name), id);
    EXPECT_TRUE(DataSetSerializationHelper::DecodeFileTable("not base64!").empty());
}

TEST_F(Record, WhenASaveWritesAndWhenItHandsTheDatasetOver) {
    auto item = MakeItem<RecordDataSet>();
    auto closed = MakeItem<RecordDataSet>("0");
    auto exporting = MakeItem<ExportingDataSet>();
    Configuration config;
    Helper(item.get())->Serialize(Context(config), nullptr);
    Save(item.get(), config, 0);
    Save(closed.get(), config);
    SerializationManager::Instance().SetDataSaveType(1);
    Save(exporting.get(), config);  // handed over as partial data
    EXPECT_TRUE(config.Keys().empty());
    EXPECT_EQ(SerializationManager::Instance().TakePartialData(),
              (std::vector<std::pair<IBaseCtr*, std::string>>{{exporting.get(), "project/ds"}}));

    Save(item.get(), config);  // not exportable: saved in place
    EXPECT_EQ(config.Keys(),
              (std::vector<std::string>{"project/ds/axis/value", "project/ds/data/value", "project/ds/files/value"}));
    item->SetAttribute("lazy", "1");
    Save(item.get(), config);
    EXPECT_EQ(SerializationManager::Instance().TakeDynamicData(), std::vector<IBaseCtr*>{item.get()});
}

TEST_F(Record, AMemoryStorageIsCopiedIntoAFileNamedInTheTable) {
    auto item = MakeItem<RecordDataSet>();
    std::vector<uint32_t> memory(300000);
    std::iota(memory.begin(), memory.end(), 11u);
    static_cast<RecordDataSet&>(Data(item.get())).BindMemoryStorage("Memory", memory.data(), memory.size() * 4, 4);
    Configuration config;
    Save(item.get(), config);
    const auto files = DataSetSerializationHelper::DecodeFileTable(config.GetString("project/ds/files/value"));
    ASSERT_EQ(files.size(), 3u);
    ASSERT_TRUE(WaitReady(files.at("Memory")));
    auto file = ProjectFileManager::instance().GetFile(files.at("Memory"), 19, 0).lock();
    ASSERT_TRUE(file && !file->GetAutoRemove());
    std::vector<uint32_t> back(memory.size());
    file->GetCFile()->Seek(0, Tessel::CFile::SeekBegin);
    ASSERT_EQ(file->GetCFile()->Read(back.data(), back.size() * 4), static_cast<int64_t>(back.size() * 4));
    EXPECT_EQ(back, memory);
}

TEST_F(Record, DamagedRecordsLoadWhatTheyCan) {
    auto item = MakeItem<RecordDataSet>();
    DataSetBase& dataset = Data(item.get());
    const uint32_t kept[3] = {9, 8, 7};
    dataset.GetStorage("Wave")->Write(kept, 3);
    Axis(item.get(), "sizeAxis")->SetRatioOffset(0.0, 0.5);
    LogCapture log;

    Configuration config;
    EXPECT_FALSE(Load(item.get(), config));  // nothing saved
    EXPECT_FALSE(Helper(item.get())->Deserialize(nullptr));
    for (const char* text : {"%%% not base64 %%%", "AAA=", "BAAAAA==", "/////wAAAAA="}) {
        config.SetString("project/ds/files/value", text);  // bad text, cut tables, lengths beyond the data
        EXPECT_FALSE(Load(item.get(), config)) << text;
    }
    TaggedTableWriter files;  // a name without a storage, and a value that is not a text
    files.AddText("Unknown", "cache-000001.wsc");
    const double record[3] = {0, 0, 0};
    files.AddRecord("Wave", record, 24);
    config.SetString("project/ds/files/value", Base64Encode(files.Bytes()));
    EXPECT_FALSE(Load(item.get(), config));
    EXPECT_TRUE(log.ContainsSubstring("has no storage Unknown"));

    // Axis tables: a short record, a text value, an unknown axis and a length field that
    // lies; only the one whole record of a known axis is applied.
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
    config.SetBinary("project/ds/axis/value", table.data(), 30);  // cut inside the first record
    EXPECT_FALSE(Load(item.get(), config));
    EXPECT_DOUBLE_EQ(Axis(item.get(), "sizeAxis")->GetRatio(), 0.5);
    EXPECT_DOUBLE_EQ(Axis(item.get(), "dataAxis")->GetRatio(), 0.125);
    EXPECT_EQ(dataset.CurrentGroup(), "__def__");  // the storages as they were
    EXPECT_EQ(ReadUnits(*dataset.GetStorage("Wave")), (std::vector<uint32_t>{9, 8, 7}));
}

}  // namespace
