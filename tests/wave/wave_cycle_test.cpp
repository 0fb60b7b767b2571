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

TEST(WaveChecker, SizeFiresAboveTheByteCountTimeAtEqualityAndOnlyOnSamplePushes) {
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

    Wave other;  // index and area pushes never run the check
    ASSERT_TRUE(CallTypeFunction(other.wave.item.get(), "SetCycleSize", {Vellum::Var(0ull)}));
    const MinMaxData<float> column{0, 1};
    const ValidDataArea area{};
    other.wave.dataset->Push(&column, 1);
    other.wave.dataset->Push(&area, 1);
    other.Push(0);
    EXPECT_EQ(other.size_events, 0);
    other.Push(1);
    EXPECT_EQ(other.size_events, 1);
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

// A cut with areas: the samples and columns up to the start of the area that holds the
// cut, and the areas before it.
struct AreaCut {
    BasicWaveCycler::CycleType type;
    int64_t time_offset;
    uint64_t raw_offset;
    std::vector<ValidDataArea> areas;
    Cuts cuts;
};

TEST(WaveCycler, CutsWithAreasEndAtTheStartOfAnArea) {
    const auto size = BasicWaveCycler::kSize, time = BasicWaveCycler::kTime;  // 96 bytes = 24 samples; 6e9 ns
    const AreaCut cases[] = {
        {size, 0, 0, {{0, 1, 0, 8, 0, 9}, {2, 3, 0, 8, 10, 49}, {4, 5, 0, 8, 50, 999}}, {{24}, {3}, {1}}},
        {size, 0, 0, {{0, 1, 0, 8, 0, 999}}, {{24}, {0}, {0}}},                         // inside the first area
        {size, 0, 0, {{0, 1, 0, 8, 0, 9}, {2, 3, 0, 8, 10, 19}}, {{24}, {0}, {0}}},     // past every area
        {size, 0, 10, {{0, 1, 0, 8, 10, 29}, {2, 3, 0, 8, 30, 89}}, {{24}, {3}, {1}}},  // positions after an earlier cut
        // A sample is 2.5e8 ns: 3e9 / 2.5e8 + 4 = 16 samples, (16 - 2) / 8 + 1 = 2 columns.
        {time, 5'000'000'000, 0, {{0, 1'000'000'000, 0, 8, 0, 3}, {2'000'000'000, 200'000'000'000, 0, 2, 4, 999}},
         {{16}, {2}, {1}}},
        {time, 0, 0, {{0, 10'000'000'000, 0, 8, 0, 999}}, {{0}, {0}, {0}}},
        {time, 0, 0, {{0, 1'000'000'000, 0, 8, 0, 3}, {1'500'000'000, 5'000'000'000, 0, 8, 4, 999}}, {{0}, {0}, {0}}},
    };
    for (const AreaCut& c : cases) {
        Cycled cycled(c.type, c.type == size ? 96 : 3 * kColumn);
        if (c.time_offset != 0) cycled.Parameters().time_offset = c.time_offset;
        if (c.raw_offset != 0) cycled.Parameters().raw_point_offset = c.raw_offset;
        cycled.wave.dataset->Push(c.areas.data(), c.areas.size());
        EXPECT_EQ(cycled.Fire(c.type == size ? "OutLimit:Size" : "OutLimit:Time"), c.cuts) << &c - cases;
    }
}

}  // namespace
