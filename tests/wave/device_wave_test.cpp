// The device wave dataset: storages linked onto channels of device items.

#include "host/item_binding.h"
#include "storage/data_channel.h"
#include "storage/storage_base.h"
#include "support/fake_channel.h"
#include "support/log_capture.h"
#include "support/test_wave.h"
#include "wave/device_wave_dataset.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using testing_support::FakeChannel;
using testing_support::LogCapture;
using testing_support::ModuleScope;

// An item that offers a channel, as a device item does: memory written by someone else.
// Like every linked item it must outlive the dataset that links it.
struct ChannelItem {
    std::shared_ptr<FakeChannel> channel = std::make_shared<FakeChannel>(IDeviceChannel::kMemory);
    CBasePointItem<IDeviceChannel> item{"device", channel.get()};
    explicit ChannelItem(std::size_t bytes = 0) { channel->SetBytes(std::vector<uint8_t>(bytes, 0)); }
};

std::size_t ChannelLines(const LogCapture& log, const std::string& id) {
    std::size_t n = 0;
    for (const auto& [level, text] : log.Lines())
        if (level == LogLevel::Info && text.find("Channel Info: group(__def__) id(" + id + ")") != std::string::npos) ++n;
    return n;
}

std::unique_ptr<IBaseCtr> MakeDevice(const char* type) {
    return std::unique_ptr<IBaseCtr>(CreateItemByType(&ModuleScope(), type, "device-wave"));
}

TEST(DeviceWave, OnlyAreaUntilLinkedAndPushesAppendNothing) {
    auto item = MakeDevice("DEVWAVEDATASET[FLOAT]");
    ASSERT_TRUE(item);
    Ctr<DeviceWaveDataSet<float>> dataset = QueryInterface<DeviceWaveDataSet<float>>(item.get());
    ASSERT_TRUE(dataset);
    ASSERT_EQ(dataset->Storages().size(), 1u);
    EXPECT_EQ(dataset->GetStorage("Area")->UnitSize(), 48u);
    const float samples[2] = {1, 2};
    const MinMaxData<float> column{1, 2};
    EXPECT_EQ(dataset->Push(samples, 2), 0u);
    EXPECT_EQ(dataset->Push(&column, 1), 0u);
    EXPECT_EQ(dataset->Storages().size(), 1u);  // the pushes made no storage
    Ctr<IReader> wave = QueryInterface<IReader>(item.get(), "Wave");
    EXPECT_FALSE(wave);
    Ctr<IBasicWaveReader> reader = QueryInterface<IBasicWaveReader>(item.get());
    ASSERT_TRUE(reader);
    double begin = 0, end = 0;
    EXPECT_FALSE(reader->GetMaxValidRange(begin, end, false));
}

TEST(DeviceWave, EachLinkBindsItsStorageWithItsUnitSize) {
    ChannelItem wave(12), index(16), area(100);
    auto item = MakeDevice("DEVWAVEDATASET[FLOAT]");
    Ctr<DeviceWaveDataSet<float>> dataset = QueryInterface<DeviceWaveDataSet<float>>(item.get());
    float values[3] = {1.5f, 2.5f, 3.5f};
    std::vector<uint8_t> bytes(sizeof(values));
    std::memcpy(bytes.data(), values, sizeof(values));
    wave.channel->SetBytes(bytes);

    LogCapture log;
    EXPECT_TRUE(item->SetLinkItem(&wave.item, "DevChWave"));
    EXPECT_TRUE(item->SetLinkItem(&index.item, "devchindex"));
    const std::shared_ptr<StorageBase> area_storage = dataset->GetStorage("Area");
    EXPECT_TRUE(item->SetLinkItem(&area.item, "DevChArea"));

    EXPECT_EQ(dataset->GetStorage("Wave")->UnitSize(), 4u);
    EXPECT_EQ(dataset->GetStorage("Index")->UnitSize(), 8u);
    EXPECT_EQ(dataset->GetStorage("Area"), area_storage);  // rebound, not replaced
    EXPECT_EQ(area_storage->UnitSize(), 48u);
    EXPECT_EQ(dataset->GetStorage("Wave")->Count(), 3u);
    EXPECT_EQ(dataset->GetStorage("Index")->Count(), 2u);
    EXPECT_EQ(area_storage->Count(), 2u);  // 100 bytes hold two whole areas
    const ChannelGroup& group = dataset->Groups().at("__def__");
    EXPECT_EQ(group.at("Wave").get(), wave.channel.get());
    EXPECT_EQ(group.at("Index").get(), index.channel.get());
    EXPECT_EQ(group.at("Area").get(), area.channel.get());
    EXPECT_EQ(ChannelLines(log, "Wave"), 1u);
    EXPECT_EQ(ChannelLines(log, "Index"), 1u);
    EXPECT_EQ(ChannelLines(log, "Area"), 1u);

    Ctr<IReader> reader = QueryInterface<IReader>(item.get(), "Wave");
    ASSERT_TRUE(reader);
    float second = 0;
    EXPECT_EQ(reader->Read(1, &second, 1), 1u);
    EXPECT_EQ(second, 2.5f);
}

TEST(DeviceWave, LinkingWaveTwiceReplacesTheChannelAndLogsTwice) {
    ChannelItem first(8), second(20);
    auto item = MakeDevice("DEVWAVEDATASET[FLOAT]");
    Ctr<DeviceWaveDataSet<float>> dataset = QueryInterface<DeviceWaveDataSet<float>>(item.get());
    LogCapture log;
    item->SetLinkItem(&first.item, "DevChWave");
    const std::shared_ptr<StorageBase> storage = dataset->GetStorage("Wave");
    item->SetLinkItem(&second.item, "DevChWave");
    EXPECT_EQ(ChannelLines(log, "Wave"), 2u);
    EXPECT_EQ(dataset->GetStorage("Wave"), storage);
    EXPECT_EQ(storage->Count(), 5u);
    EXPECT_EQ(dataset->Groups().at("__def__").at("Wave").get(), second.channel.get());
}

TEST(DeviceWave, ItemWithoutChannelBindsAnEmptyStorage) {
    CBaseItem plain("plain");
    auto item = MakeDevice("DEVWAVEDATASET[FLOAT]");
    Ctr<DeviceWaveDataSet<float>> dataset = QueryInterface<DeviceWaveDataSet<float>>(item.get());
    EXPECT_TRUE(item->SetLinkItem(&plain, "DevChWave"));
    ASSERT_TRUE(dataset->GetStorage("Wave"));
    EXPECT_EQ(dataset->GetStorage("Wave")->Count(), 0u);
    EXPECT_EQ(dataset->Groups().at("__def__").at("Wave"), nullptr);
}

class RecordingChannel final : public IDataChannel {
public:
    void SetDataset(IBaseCtr* item) override { dataset = item; }
    IBaseCtr* dataset = nullptr;
};

TEST(DeviceWave, OtherLinksAreThoseOfTheWaveDataset) {
    RecordingChannel source;
    CBasePointItem<IDataChannel> source_item("source", &source);
    auto item = MakeDevice("DEVWAVEDATASET[FLOAT]");
    EXPECT_TRUE(item->SetLinkItem(&source_item, "DataCH"));
    EXPECT_EQ(source.dataset, item.get());
}

TEST(DeviceWave, LongDoubleInstanceAndCycleFunctionsOnTheDeviceItem) {
    RegisterClassType<DeviceWaveDataSet<LongDouble>>("TEST_DEVWAVE_LD", &ModuleScope());
    ChannelItem wave, index;
    auto item = MakeDevice("TEST_DEVWAVE_LD");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->GetAttribute("ElementType"), "long double");
    item->SetLinkItem(&wave.item, "DevChWave");
    item->SetLinkItem(&index.item, "DevChIndex");
    Ctr<DataSetBase> base = QueryInterface<DataSetBase>(item.get());
    EXPECT_EQ(base->GetStorage("Wave")->UnitSize(), 8u);
    EXPECT_EQ(base->GetStorage("Index")->UnitSize(), 16u);

    // The type functions reach the wave dataset under the device item.
    int fired = 0;
    item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
    ASSERT_TRUE(CallTypeFunction(item.get(), "SetCycleSize", {Vellum::Var(8ull)}));
    Ctr<BasicWaveDataSet<LongDouble>> dataset = QueryInterface<BasicWaveDataSet<LongDouble>>(item.get());
    ASSERT_TRUE(dataset);
    const LongDouble samples[2] = {1.0, 2.0};
    dataset->Push(samples, 1);
    EXPECT_EQ(fired, 0);
    dataset->Push(samples, 1);
    EXPECT_EQ(fired, 1);
}

}  // namespace
