// The dataset base: storages and groups, clear against the lock count, configuration
// text, swaps, and the record of saved file names.

#include "dataset/dataset_base.h"
#include "dataset/dataset_base_ex.h"
#include "host/base64.h"
#include "host/configuration.h"
#include "storage/block_storage.h"
#include "support/fake_channel.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using testing_support::FakeChannel;
using testing_support::LogCapture;

namespace {

// Opens the protected binding operations to the tests.
class TestDataSet : public DataSetBase {
public:
    using DataSetBase::BindCustomStorage;
    using DataSetBase::SwitchGroup;
    int data_changed = 0;
    int cleared = 0;
    void OnDataChanged() override { ++data_changed; }
    void OnClear() override { ++cleared; }
    std::string MainStorageId() override { return "Wave"; }
};

std::shared_ptr<FakeChannel> ChannelWith(uint32_t units) {
    auto channel = std::make_shared<FakeChannel>(IDeviceChannel::kExternalFile);
    std::vector<uint8_t> bytes(units * 4);
    for (uint32_t i = 0; i < units; ++i) std::memcpy(bytes.data() + 4 * i, &i, 4);
    channel->SetBytes(bytes);
    return channel;
}

TEST(DataSetBase, ASecondBindingOfAnIdRebindsTheOneStorageAndKeepsItsUnitSize) {
    TestDataSet dataset;
    LogCapture log;
    auto first = ChannelWith(10);
    auto second = ChannelWith(20);
    EXPECT_TRUE(dataset.BindCustomStorage("Wave", first, 4));
    auto storage = dataset.GetStorage("Wave");
    EXPECT_TRUE(dataset.BindCustomStorage("Wave", second, 8));
    EXPECT_EQ(dataset.GetStorage("Wave"), storage);
    EXPECT_EQ(storage->UnitSize(), 4u);
    EXPECT_EQ(storage->Count(), 20u);  // the view of the first channel is gone
    int lines = 0;
    for (const auto& line : log.Lines())
        lines += line.second.find("Channel Info: group(__def__) id(Wave) unit_size(") != std::string::npos;
    EXPECT_EQ(lines, 2);
    RawData view = dataset.RequestRawData(3, 1);  // the main storage gives views, by whole blocks
    ASSERT_GE(view.Count(), 1u);
    EXPECT_EQ(*static_cast<const uint32_t*>(view.Ptr()), 3u);
}

TEST(DataSetBase, GroupsWaitUntilSwitchedAndUnknownOnesFallBackToTheDefault) {
    TestDataSet dataset;
    dataset.BindCustomStorage("Wave", ChannelWith(10), 4);
    dataset.BindCustomStorage("Wave", ChannelWith(30), 4, "__imported__");
    auto storage = dataset.GetStorage("Wave");
    EXPECT_EQ(storage->Count(), 10u);  // a channel of another group waits
    EXPECT_TRUE(dataset.SwitchGroup("__imported__"));
    EXPECT_EQ(storage->Count(), 30u);
    EXPECT_EQ(dataset.CurrentGroup(), "__imported__");
    EXPECT_TRUE(dataset.SwitchGroup("no such group"));
    EXPECT_EQ(dataset.CurrentGroup(), "__def__");
    EXPECT_EQ(storage->Count(), 10u);
    EXPECT_EQ(dataset.data_changed, 2);

    dataset.BindCustomStorage("Other", ChannelWith(5), 4, "partial");
    // A group naming a storage that doesn't exist fails but still becomes current.
    TestDataSet empty;
    EXPECT_FALSE(empty.SwitchGroup("__def__"));  // no default group at all: false, no endless fallback
}

TEST(DataSetBase, ClearWaitsForTheLastReaderToUnlock) {
    TestDataSet dataset;
    dataset.BindCustomStorage("Wave", std::make_shared<FakeChannel>(), 4);
    const uint32_t values[3] = {1, 2, 3};
    dataset.GetStorage("Wave")->Write(values, 3);
    dataset.Lock();
    std::atomic<bool> cleared{false};
    std::thread clearing([&] {
        dataset.Clear();
        cleared = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(cleared.load());
    EXPECT_EQ(dataset.GetStorage("Wave")->Count(), 3u);
    dataset.UnLock();
    clearing.join();
    EXPECT_TRUE(cleared.load());
    EXPECT_EQ(dataset.cleared, 1);
    EXPECT_EQ(dataset.GetStorage("Wave")->Count(), 0u);
}

TEST(DataSetBase, ConfigurationTextTurnsThrottlingOffOnlyWithTheExactWord) {
    TestDataSet dataset;
    dataset.BindCustomStorage("Wave", std::make_shared<FakeChannel>(), 4);
    auto* storage = dynamic_cast<CStorage*>(dataset.GetStorage("Wave").get());
    ASSERT_NE(storage, nullptr);
    EXPECT_TRUE(dataset.FinishConfig(nullptr, nullptr, ""));
    EXPECT_TRUE(dataset.FinishConfig(nullptr, nullptr, "DISABLE_THROTTLE"));
    EXPECT_TRUE(storage->ThrottleEnabled());
    EXPECT_TRUE(dataset.FinishConfig(nullptr, nullptr, "cycle=SIZE(1G,1M);xdisable_throttlex"));
    EXPECT_FALSE(storage->ThrottleEnabled());
}

TEST(DataSetBaseEx, TheRecordOfSavedFileNamesRoundTrips) {
    const std::map<std::string, std::string> files{{"Area", "cache-3.wsc"}, {"Index", "cache-2.wsc"},
                                                   {"Wave", "cache-1.wsc"}, {"", "ignored"}};
    const std::string text = DataSetBaseEx::EncodeRecord(files);
    const auto bytes = Base64Decode(text);
    ASSERT_TRUE(bytes.has_value());
    // total, then "Area" as a tagged text: 4 + (4 + 4) + (4 + 11) per entry.
    EXPECT_EQ(bytes->size(), 4u + 3 * (8 + 4 + 11) + 1);
    EXPECT_EQ((*bytes)[0] | (*bytes)[1] << 8, static_cast<int>(bytes->size()));
    EXPECT_EQ((*bytes)[6], 0x0A);  // the tag in the high half of the first header
    const auto decoded = DataSetBaseEx::DecodeRecord(text);
    ASSERT_EQ(decoded.size(), 3u);
    EXPECT_EQ(decoded.at("Wave").second, "cache-1.wsc");
    EXPECT_EQ(decoded.at("Wave").first, 0x0Au);
}

TEST(DataSetBaseEx, TheRecordDropsWhatDoesNotFitAndLoadReadsAQuarterOfIt) {
    std::map<std::string, std::string> files;
    for (int i = 0; i < 200; ++i) files[fmt::format("storage{:03}", i)] = std::string(100, 'f');
    const auto bytes = Base64Decode(DataSetBaseEx::EncodeRecord(files));
    ASSERT_TRUE(bytes.has_value());
    EXPECT_LE(bytes->size(), 16384u);
    const uint32_t total = (*bytes)[0] | (*bytes)[1] << 8 | (*bytes)[2] << 16;
    EXPECT_EQ(total, bytes->size());  // the total stays true when entries are left out
    EXPECT_LT(bytes->size(), 200u * (8 + 10 + 100));
    const auto loaded = DataSetBaseEx::DecodeRecord(DataSetBaseEx::EncodeRecord(files));
    EXPECT_EQ(loaded.size(), (4096u - 4) / (8 + 10 + 100));  // only whole entries of the first 4096 bytes
    EXPECT_TRUE(DataSetBaseEx::DecodeRecord("not base64!").empty());
}

TEST(DataSetBaseEx, SaveAndLoadBindTheFilesUnderTheImportedGroup) {
    DataSetBaseEx saved;
    saved.BindStorage("Wave", ChannelWith(10), 4, "__def__");
    Configuration config;
    auto context = std::make_shared<SerializeContext>(SerializeContext{&config, "project/ds1"});

    // An external channel without the copy feature persists to nothing; the memory one
    // of the loading side resolves whatever id it is given.
    saved.Save(context);
    const std::string text = config.GetString("project/ds1/files/value", "");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(DataSetBaseEx::DecodeRecord(text).at("Wave").second, "");

    config.SetString("project/ds1/files/value", DataSetBaseEx::EncodeRecord({{"Wave", "saved-wave"}}));
    DataSetBaseEx loading;
    loading.BindStorage("Wave", std::make_shared<FakeChannel>(), 4, "__def__");
    std::string asked;
    loading.SetResolver([&](const std::string& id) {
        asked = id;
        return ChannelWith(25);
    });
    EXPECT_FALSE(loading.Load(context));
    EXPECT_EQ(asked, "saved-wave");
    EXPECT_EQ(loading.CurrentGroup(), "__imported__");
    EXPECT_EQ(loading.GetStorage("Wave")->Count(), 25u);
    EXPECT_EQ(loading.LockCount(), 0u);
}

}  // namespace
