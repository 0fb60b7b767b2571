// The wave dataset's commands and queries that reach other items: the fill by a
// "Filler" child, the hand-over to a data channel, and the IReader query by name.

#include "host/item_binding.h"
#include "storage/data_channel.h"
#include "support/test_wave.h"
#include "wave/wave_data_filler.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using testing_support::TestWave;

class RecordingChannel final : public IDataChannel {
public:
    void SetDataset(IBaseCtr* item) override {
        dataset = item;
        ++calls;
    }
    IBaseCtr* dataset = nullptr;
    int calls = 0;
};

class PushingFiller final : public IWaveDataFiller {
public:
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

    // Without a filler: a successful no-op.
    EXPECT_TRUE(wave.item->OnCMD("DataRefleshIgnor", nullptr));
    EXPECT_EQ(updates, 0);
    EXPECT_EQ(wave.dataset->GetStorage("Wave")->Count(), 0u);

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
    TestWave<float> wave("WAVEDATASET[FLOAT]", 0.5, 2);
    RecordingChannel channel;
    CBasePointItem<IDataChannel> channel_item("source", &channel);

    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", nullptr));
    EXPECT_EQ(channel.calls, 0);
    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", &channel_item));
    EXPECT_EQ(channel.dataset, wave.item.get());
    EXPECT_EQ(channel.calls, 1);

    channel.dataset = nullptr;
    EXPECT_TRUE(wave.item->SetLinkItem(&channel_item, "DataCH"));
    EXPECT_EQ(channel.dataset, wave.item.get());
    EXPECT_EQ(channel.calls, 2);
    // Other links are ignored, and so is an item without a data channel.
    CBaseItem plain("plain");
    EXPECT_TRUE(wave.item->SetLinkItem(&channel_item, "Other"));
    EXPECT_TRUE(wave.item->SetLinkItem(&plain, "DataCH"));
    EXPECT_TRUE(wave.item->OnCMD("SetChannelDataset", &plain));
    EXPECT_EQ(channel.calls, 2);
}

TEST(WaveCommands, ReaderQueriesByStorageName) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", 0.5, 2);
    const float samples[3] = {1, 2, 3};
    wave.dataset->Push(samples, 3);
    Ctr<IReader> reader = QueryInterface<IReader>(wave.item.get(), "Wave");
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->Count(), 3u);
    float second = 0;
    EXPECT_EQ(reader->Read(1, &second, 1), 1u);
    EXPECT_EQ(second, 2.0f);
    EXPECT_TRUE(QueryInterface<IReader>(wave.item.get(), "Area"));
    EXPECT_FALSE(QueryInterface<IReader>(wave.item.get(), "Trend"));
    EXPECT_FALSE(QueryInterface<IReader>(wave.item.get()));
    // Each query makes a reader of its own.
    Ctr<IBasicWaveReader> a = QueryInterface<IBasicWaveReader>(wave.item.get());
    Ctr<IBasicWaveReader> b = QueryInterface<IBasicWaveReader>(wave.item.get());
    ASSERT_TRUE(a && b);
    EXPECT_NE(a.get(), b.get());
}

}  // namespace
