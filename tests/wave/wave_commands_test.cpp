// The wave dataset's commands and queries that reach other items: the fill by a
// "Filler" child, the hand-over to a data channel, and the IReader query by name.

#include "host/item_binding.h"
#include "storage/data_channel.h"
#include "support/test_wave.h"
#include "wave/device_wave_dataset.h"
#include "wave/wave_data_filler.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using testing_support::ModuleScope;
using testing_support::TestWave;

struct RecordingChannel final : IDataChannel {
    void SetDataset(IBaseCtr* item) override {
        dataset = item;
        ++calls;
    }
    IBaseCtr* dataset = nullptr;
    int calls = 0;
};

struct PushingFiller final : IWaveDataFiller {
    void Fill(IBaseCtr* dataset) override {
        filled = dataset;
        lock_count_seen = QueryInterface<DataSetBase>(dataset)->LockCount();
        const std::vector<float> samples(7, 3.0f);
        QueryInterface<StructFiller<float>>(dataset)->Push(samples.data(), samples.size());
    }
    IBaseCtr* filled = nullptr;
    uint32_t lock_count_seen = 0;
};

TEST(WaveCommands, DataRefleshIgnorFillsUnderTheLockThenFiresUpdate) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", 0.5, 2);
    int updates = 0;
    wave.item->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { ++updates; }));
    EXPECT_TRUE(wave.item->OnCMD("DataRefleshIgnor", nullptr));  // no filler: a no-op
    EXPECT_EQ(updates, 0);

    PushingFiller filler;
    wave.item->AddChildItem(new CBasePointItem<IWaveDataFiller>("Filler", &filler), "Filler", true);
    EXPECT_TRUE(wave.item->OnCMD("datarefleshignor", nullptr));
    EXPECT_EQ(filler.filled, wave.item.get());
    EXPECT_EQ(filler.lock_count_seen, 1u);
    EXPECT_EQ(wave.dataset->LockCount(), 0u);
    EXPECT_EQ(updates, 1);
    EXPECT_EQ(wave.dataset->GetStorage("Wave")->Count(), 7u);
}

TEST(WaveCommands, ChannelDatasetByCommandAndByLink) {
    RecordingChannel channel;
    CBasePointItem<IDataChannel> channel_item("source", &channel);
    CBaseItem plain("plain");
    TestWave<float> wave("WAVEDATASET[FLOAT]", 0.5, 2);
    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", nullptr));
    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", &plain));
    EXPECT_EQ(channel.calls, 0);
    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", &channel_item));
    EXPECT_EQ(channel.dataset, wave.item.get());

    EXPECT_TRUE(wave.item->SetLinkItem(&channel_item, "Other"));
    EXPECT_EQ(channel.calls, 1);
    channel.dataset = nullptr;
    EXPECT_TRUE(wave.item->SetLinkItem(&channel_item, "datach"));
    EXPECT_EQ(channel.dataset, wave.item.get());

    // The device dataset passes the link on.
    std::unique_ptr<IBaseCtr> device(CreateItemByType(&ModuleScope(), "DEVWAVEDATASET[FLOAT]", "device"));
    EXPECT_TRUE(device->SetLinkItem(&channel_item, "DataCH"));
    EXPECT_EQ(channel.dataset, device.get());
    EXPECT_EQ(channel.calls, 3);
}

}  // namespace
