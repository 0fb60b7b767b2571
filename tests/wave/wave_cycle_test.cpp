// Cycling: the checker in the push path, the cycler's step normalisation, and what its
// handlers cut (seen through storages that record CutHead) and shift.

#include "cut_recording_storage.h"
#include "dataset/dataset_tool.h"
#include "host/item_type.h"
#include "support/test_wave.h"
#include "wave/basic_wave_cycler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

using testing_support::ModuleScope;
using testing_support::TestWave;

// Periods that stay exact on the axis: 0.25 s per sample, 8 samples (2 s, 32 bytes) per column.
constexpr double kPeriod = 0.25;
constexpr double kColumn = 2.0;
using Cuts = std::vector<std::vector<uint64_t>>;  // CutHead calls on Wave, Index, Area

struct Wave {
    TestWave<float> wave{"WAVEDATASET[FLOAT]", kPeriod, 8};
    int size_events = 0, time_events = 0;
    Wave() {
        wave.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([this](IBaseCtr*) { ++size_events; }));
        wave.item->SubscribeEvent("OutLimit:Time", MakeEventHandler([this](IBaseCtr*) { ++time_events; }));
    }
    void Push(std::size_t n) {
        const std::vector<float> samples(n, 1.0f);
        wave.dataset->Push(samples.data(), n);
    }
};

TEST(WaveChecker, SizeFiresAboveTheByteCountTimeAtEquality) {
    Wave w;
    ASSERT_TRUE(CallTypeFunction(w.wave.item.get(), "SetCycleSize", {Vellum::Var(40ull)}));
    w.Push(10);  // 40 bytes: at the limit
    EXPECT_EQ(w.size_events, 0);
    w.Push(1);
    w.Push(1);  // no hysteresis
    EXPECT_EQ(w.size_events, 2);
    ASSERT_TRUE(CallTypeFunction(w.wave.item.get(), "DisableCycle", {}));
    w.Push(5);
    EXPECT_EQ(w.size_events, 2);

    ASSERT_TRUE(CallTypeFunction(w.wave.item.get(), "SetCycleTime", {Vellum::Var(4.75)}));
    w.Push(1);  // 18 samples: 4.5 s
    EXPECT_EQ(w.time_events, 0);
    w.Push(1);  // 4.75 s
    EXPECT_EQ(w.time_events, 1);
    EXPECT_EQ(w.size_events, 2);
}

TEST(WaveChecker, IndexAndAreaPushesNeverRunTheCheck) {
    Wave w;
    ASSERT_TRUE(CallTypeFunction(w.wave.item.get(), "SetCycleSize", {Vellum::Var(0ull)}));
    const MinMaxData<float> column{0, 1};
    const ValidDataArea area{};
    w.wave.dataset->Push(&column, 1);
    w.wave.dataset->Push(&area, 1);
    w.Push(0);
    EXPECT_EQ(w.size_events, 0);
    w.Push(1);
    EXPECT_EQ(w.size_events, 1);
}

TEST(WaveChecker, LimitChangesFromAnotherThreadWhilePushing) {
    Wave w;
    std::atomic<bool> done{false};
    std::thread script([&] {
        for (int k = 0; !done; ++k)
            CallTypeFunction(w.wave.item.get(), k % 2 ? "DisableCycle" : "SetCycleSize", {Vellum::Var(4ull)});
    });
    for (int k = 0; k < 2000; ++k) w.Push(2);
    done = true;
    script.join();
    ASSERT_TRUE(CallTypeFunction(w.wave.item.get(), "SetCycleSize", {Vellum::Var(4ull)}));
    const int before = w.size_events;
    w.Push(1);
    EXPECT_EQ(w.size_events, before + 1);
}

// A cycler on a wave of 1000 samples that cuts through recording storages.
struct Cycled : Wave {
    std::shared_ptr<CutRecordingStorage> storages[3];
    BasicWaveCycler cycler;

    Cycled(BasicWaveCycler::CycleType type, double step) {
        const char* ids[3] = {"Wave", "Index", "Area"};
        for (int k = 0; k < 3; ++k)
            storages[k] = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage(ids[k]));
        cycler.Config(type, step);
        cycler.ConfigStorages(storages[0], storages[1], storages[2]);
        cycler.InitEvents(wave.item.get());
        Push(1000);
    }
    void AddArea(int64_t start_ns, int64_t end_ns, uint64_t beg_pos, uint64_t end_pos, uint64_t first_count = 8) {
        const ValidDataArea area{start_ns, end_ns, 0, first_count, beg_pos, end_pos};
        wave.dataset->Push(&area, 1);
    }
    WaveDatasetParameters& Parameters() {
        return *QueryInterface<WaveDatasetParameters>(wave.item->GetChildItem("WaveParam"));
    }
    Cuts Fire(const char* event) {
        EventPublishHelper::FireObjectEvent(wave.item.get(), event);
        return {storages[0]->cuts, storages[1]->cuts, storages[2]->cuts};
    }
    double AxisOffset() {
        double offset = -1;
        wave.axis->GetRatioOffset(&offset, nullptr);
        return offset;
    }
};

TEST(WaveCycler, StepIsNormalisedToWholeColumns) {
    auto step = [](BasicWaveCycler::CycleType type, double s) { return Cycled(type, s).cycler.Step(); };
    EXPECT_EQ(step(BasicWaveCycler::kSize, 100), 96.0);
    EXPECT_EQ(step(BasicWaveCycler::kSize, 96), 96.0);
    EXPECT_EQ(step(BasicWaveCycler::kSize, 20), 0.0);
    EXPECT_EQ(step(BasicWaveCycler::kTime, 2.5 * kColumn), 2 * kColumn);
    EXPECT_EQ(step(BasicWaveCycler::kTime, 0.5 * kColumn), 0.0);
}

TEST(WaveCycler, CutsWithoutAreasShiftTheSizeAxis) {
    Cycled size(BasicWaveCycler::kSize, 100);  // 96 bytes: 24 samples, 3 columns
    EXPECT_EQ(size.Fire("OutLimit:Size"), (Cuts{{24}, {3}, {}}));
    EXPECT_DOUBLE_EQ(size.AxisOffset(), 24 * kPeriod);
    // The block storage cuts nothing: the wave now reads from the shifted start.
    double begin = 0, end = 0;
    ASSERT_TRUE(size.wave.MakeReader()->GetMaxValidRange(begin, end, false));
    EXPECT_DOUBLE_EQ(begin, 24 * kPeriod);
    EXPECT_EQ(size.wave.dataset->GetStorage("Wave")->Count(), 1000u);

    Cycled time(BasicWaveCycler::kTime, 3 * kColumn);
    EXPECT_EQ(time.Fire("OutLimit:Time"), (Cuts{{24}, {3}, {}}));
    EXPECT_DOUBLE_EQ(time.AxisOffset(), 3 * kColumn);

    Cycled small(BasicWaveCycler::kSize, 20);  // below one column: cuts nothing
    EXPECT_EQ(small.Fire("OutLimit:Size"), (Cuts{{0}, {0}, {}}));
    EXPECT_EQ(small.AxisOffset(), 0.0);
}

TEST(WaveCycler, ConfiguredSizeLimitCutsInsideThePush) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, 8);
    ASSERT_TRUE(wave.item->FinishConfig(&ModuleScope(), "cycle=SIZE(2K,100)"));
    auto cycler = QueryInterface<BasicWaveCycler>(wave.item->GetChildItem("CircleTool"));
    ASSERT_TRUE(cycler);
    auto samples = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Wave"));
    cycler->ConfigStorages(samples, wave.dataset->GetStorage("Index"), wave.dataset->GetStorage("Area"));
    const std::vector<float> data(513, 1.0f);
    wave.dataset->Push(data.data(), 512);  // 2048 bytes: at the limit
    EXPECT_TRUE(samples->cuts.empty());
    wave.dataset->Push(data.data(), 1);
    EXPECT_EQ(samples->cuts, std::vector<uint64_t>{24});
}

TEST(WaveCycler, SizeCutWithAreasCountsTheAreasBeforeTheCut) {
    Cycled c(BasicWaveCycler::kSize, 96);  // n = 24 samples
    c.AddArea(0, 1, 0, 9);
    c.AddArea(2, 3, 10, 49);
    c.AddArea(4, 5, 50, 999);
    EXPECT_EQ(c.Fire("OutLimit:Size"), (Cuts{{24}, {3}, {1}}));

    Cycled first(BasicWaveCycler::kSize, 96);  // ends inside the first area
    first.AddArea(0, 1, 0, 999);
    EXPECT_EQ(first.Fire("OutLimit:Size"), (Cuts{{24}, {0}, {0}}));

    Cycled past(BasicWaveCycler::kSize, 96);  // passes every area
    past.AddArea(0, 1, 0, 9);
    past.AddArea(2, 3, 10, 19);
    EXPECT_EQ(past.Fire("OutLimit:Size"), (Cuts{{24}, {0}, {0}}));

    Cycled shifted(BasicWaveCycler::kSize, 96);  // positions count from what was cut before
    shifted.Parameters().raw_point_offset = 10;
    shifted.AddArea(0, 1, 10, 29);
    shifted.AddArea(2, 3, 30, 89);
    EXPECT_EQ(shifted.Fire("OutLimit:Size"), (Cuts{{24}, {3}, {1}}));
}

TEST(WaveCycler, TimeCutWithAreasCutsToTheStartOfAnArea) {
    // Step 6e9 ns; a sample is 2.5e8 ns.
    Cycled c(BasicWaveCycler::kTime, 3 * kColumn);
    c.Parameters().time_offset = 5'000'000'000;
    c.AddArea(0, 1'000'000'000, 0, 3);
    c.AddArea(2'000'000'000, 200'000'000'000, 4, 999, 2);
    // samples = 3e9 / 2.5e8 + 4 = 16; columns = (16 - 2) / 8 + 1 = 2.
    EXPECT_EQ(c.Fire("OutLimit:Time"), (Cuts{{16}, {2}, {1}}));

    Cycled first(BasicWaveCycler::kTime, 3 * kColumn);
    first.AddArea(0, 10'000'000'000, 0, 999);
    EXPECT_EQ(first.Fire("OutLimit:Time"), (Cuts{{0}, {0}, {0}}));

    Cycled past(BasicWaveCycler::kTime, 3 * kColumn);
    past.AddArea(0, 1'000'000'000, 0, 3);
    past.AddArea(1'500'000'000, 5'000'000'000, 4, 999);
    EXPECT_EQ(past.Fire("OutLimit:Time"), (Cuts{{0}, {0}, {0}}));
}

}  // namespace
