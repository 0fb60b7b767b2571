// The device wave dataset: storages linked onto the channels of device items.

#include "host/item_binding.h"
#include "storage/storage_base.h"
#include "support/fake_channel.h"
#include "support/log_capture.h"
#include "support/test_wave.h"
#include "wave/device_wave_dataset.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace {

using testing_support::FakeChannel;
using testing_support::LogCapture;
using testing_support::ModuleScope;

// An item that offers a channel of memory, as a device item does. Like every linked
// item it must outlive the dataset that links it.
struct ChannelItem {
    std::shared_ptr<FakeChannel> channel = std::make_shared<FakeChannel>(IDeviceChannel::kMemory);
    CBasePointItem<IDeviceChannel> item{"device", channel.get()};
    explicit ChannelItem(std::size_t bytes = 0) { channel->SetBytes(std::vector<uint8_t>(bytes, 0)); }
};

std::size_t ChannelLines(const LogCapture& log, const std::string& id) {
    std::size_t n = 0;
    for (const auto& [level, text] : log.Lines())
        n += level == LogLevel::Info && text.find("group(__def__) id(" + id + ") ") != std::string::npos;
    return n;
}

struct Device {
    std::unique_ptr<IBaseCtr> item;
    DataSetBase* dataset = nullptr;
    explicit Device(const char* type = "DEVWAVEDATASET[FLOAT]")
        : item(CreateItemByType(&ModuleScope(), type, "device-wave")),
          dataset(QueryInterface<DataSetBase>(item.get()).get()) {}
    IDeviceChannel* Channel(const char* id) const { return dataset->Groups().at("__def__").at(id).get(); }
};

TEST(DeviceWave, OnlyAreaUntilLinkedAndPushesAppendNothing) {
    Device device;
    ASSERT_NE(device.dataset, nullptr);
    ASSERT_EQ(device.dataset->Storages().size(), 1u);
    EXPECT_EQ(device.dataset->GetStorage("Area")->UnitSize(), 48u);
    auto wave = QueryInterface<DeviceWaveDataSet<float>>(device.item.get());
    const float samples[2] = {1, 2};
    const MinMaxData<float> column{1, 2};
    EXPECT_EQ(wave->Push(samples, 2), 0u);
    EXPECT_EQ(wave->Push(&column, 1), 0u);
    EXPECT_EQ(device.dataset->Storages().size(), 1u);
    EXPECT_FALSE(QueryInterface<IReader>(device.item.get(), "Wave"));
    double begin = 0, end = 0;
    EXPECT_FALSE(QueryInterface<IBasicWaveReader>(device.item.get())->GetMaxValidRange(begin, end, false));
}

TEST(DeviceWave, EachLinkBindsItsStorageWithItsUnitSize) {
    ChannelItem wave(12), index(16), area(100), again(20);
    const float values[3] = {1.5f, 2.5f, 3.5f};
    wave.channel->SetBytes(std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(values),
                                                reinterpret_cast<const uint8_t*>(values + 3)));
    Device device;
    const std::shared_ptr<StorageBase> area_storage = device.dataset->GetStorage("Area");
    LogCapture log;
    EXPECT_TRUE(device.item->SetLinkItem(&wave.item, "DevChWave"));
    EXPECT_TRUE(device.item->SetLinkItem(&index.item, "devchindex"));
    EXPECT_TRUE(device.item->SetLinkItem(&area.item, "DevChArea"));

    EXPECT_EQ(device.dataset->GetStorage("Area"), area_storage);  // rebound, not replaced
    // Unit size and count of each storage: 12 bytes of floats, 16 of columns, 100 bytes hold two whole areas.
    for (auto [id, unit, count, channel] : {std::tuple{"Wave", 4u, 3u, &wave}, {"Index", 8u, 2u, &index}, {"Area", 48u, 2u, &area}}) {
        EXPECT_EQ(device.dataset->GetStorage(id)->UnitSize(), unit) << id;
        EXPECT_EQ(device.dataset->GetStorage(id)->Count(), count) << id;
        EXPECT_EQ(device.Channel(id), channel->channel.get()) << id;
    }
    float second = 0;
    EXPECT_EQ(QueryInterface<IReader>(device.item.get(), "Wave")->Read(1, &second, 1), 1u);
    EXPECT_EQ(second, 2.5f);

    // A second link of the wave replaces its channel and logs again.
    device.item->SetLinkItem(&again.item, "DevChWave");
    EXPECT_EQ(std::make_tuple(ChannelLines(log, "Wave"), ChannelLines(log, "Index"), ChannelLines(log, "Area")),
              std::make_tuple(2u, 1u, 1u));
    EXPECT_EQ(device.dataset->GetStorage("Wave")->Count(), 5u);
    EXPECT_EQ(device.Channel("Wave"), again.channel.get());

    // An item without a channel makes a storage without content.
    CBaseItem plain("plain");
    Device other;
    EXPECT_TRUE(other.item->SetLinkItem(&plain, "DevChIndex"));
    EXPECT_EQ(other.dataset->GetStorage("Index")->Count(), 0u);
    EXPECT_EQ(other.Channel("Index"), nullptr);
}

TEST(DeviceWave, LongDoubleInstanceAndCycleFunctionsOnTheDeviceItem) {
    RegisterClassType<DeviceWaveDataSet<LongDouble>>("TEST_DEVWAVE_LD", &ModuleScope());
    ChannelItem wave, index;
    Device device("TEST_DEVWAVE_LD");
    ASSERT_NE(device.dataset, nullptr);
    EXPECT_EQ(device.item->GetAttribute("ElementType"), "long double");
    device.item->SetLinkItem(&wave.item, "DevChWave");
    device.item->SetLinkItem(&index.item, "DevChIndex");
    EXPECT_EQ(device.dataset->GetStorage("Wave")->UnitSize(), 8u);
    EXPECT_EQ(device.dataset->GetStorage("Index")->UnitSize(), 16u);

    // The type functions reach the wave dataset under the device item.
    int fired = 0;
    device.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
    ASSERT_TRUE(CallTypeFunction(device.item.get(), "SetCycleSize", {Vellum::Var(8ull)}));
    auto dataset = QueryInterface<BasicWaveDataSet<LongDouble>>(device.item.get());
    ASSERT_TRUE(dataset);
    const LongDouble samples[2] = {1.0, 2.0};
    dataset->Push(samples, 1);
    EXPECT_EQ(fired, 0);
    dataset->Push(samples, 1);
    EXPECT_EQ(fired, 1);
}

}  // namespace
