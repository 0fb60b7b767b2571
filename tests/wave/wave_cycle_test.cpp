// Cycling: the checker in the push path, the step normalisation of the cycler, and what
// its two handlers cut (seen through storages that record CutHead) and shift.

#include "cut_recording_storage.h"
#include "dataset/dataset_tool.h"
#include "host/item_type.h"
#include "support/test_wave.h"
#include "wave/basic_wave_cycler.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using testing_support::ModuleScope;
using testing_support::TestWave;

// Periods that stay exact on the axis: 0.25 s per sample, 8 samples (2 s) per column.
constexpr double kPeriod = 0.25;
constexpr double kColumn = 2.0;
constexpr uint64_t kIndexStep = 8;

struct CountedEvents {
    int size = 0;
    int time = 0;
    explicit CountedEvents(IBaseCtr* item) {
        item->SubscribeEvent("OutLimit:Size", MakeEventHandler([this](IBaseCtr*) { ++size; }));
        item->SubscribeEvent("OutLimit:Time", MakeEventHandler([this](IBaseCtr*) { ++time; }));
    }
};

std::vector<float> Samples(std::size_t n) { return std::vector<float>(n, 1.0f); }

TEST(WaveChecker, SizeLimitFiresOnlyAboveTheByteCountAndOnEveryPushAfter) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    CountedEvents events(wave.item.get());
    ASSERT_TRUE(CallTypeFunction(wave.item.get(), "SetCycleSize", {Vellum::Var(40ull)}));
    const auto samples = Samples(10);
    wave.dataset->Push(samples.data(), 10);  // 40 bytes: at the limit
    EXPECT_EQ(events.size, 0);
    wave.dataset->Push(samples.data(), 1);  // one unit more
    EXPECT_EQ(events.size, 1);
    wave.dataset->Push(samples.data(), 1);  // no hysteresis
    EXPECT_EQ(events.size, 2);
    EXPECT_EQ(events.time, 0);
    ASSERT_TRUE(CallTypeFunction(wave.item.get(), "DisableCycle", {}));
    wave.dataset->Push(samples.data(), 5);
    EXPECT_EQ(events.size, 2);
}

TEST(WaveChecker, TimeLimitFiresWhenTheSpanEqualsIt) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", 0.5, 2);
    CountedEvents events(wave.item.get());
    ASSERT_TRUE(CallTypeFunction(wave.item.get(), "SetCycleTime", {Vellum::Var(2.5)}));
    const auto samples = Samples(5);
    wave.dataset->Push(samples.data(), 4);  // 2.0 s
    EXPECT_EQ(events.time, 0);
    wave.dataset->Push(samples.data(), 1);  // 2.5 s
    EXPECT_EQ(events.time, 1);
    EXPECT_EQ(events.size, 0);
}

TEST(WaveChecker, IndexAndAreaPushesNeverRunTheCheck) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    CountedEvents events(wave.item.get());
    ASSERT_TRUE(CallTypeFunction(wave.item.get(), "SetCycleSize", {Vellum::Var(0ull)}));
    const MinMaxData<float> column{0, 1};
    ValidDataArea area{};
    const auto samples = Samples(1);
    wave.dataset->Push(samples.data(), 1);
    ASSERT_EQ(events.size, 1);
    wave.dataset->Push(&column, 1);
    wave.dataset->Push(&area, 1);
    EXPECT_EQ(events.size, 1);
    wave.dataset->Push(samples.data(), 0);  // nothing appended: no check either
    EXPECT_EQ(events.size, 1);
}

TEST(WaveCycler, StepIsNormalisedToWholeColumns) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    auto normalised = [&](BasicWaveCycler::CycleType type, double step) {
        BasicWaveCycler cycler;
        cycler.Config(type, step);
        cycler.ConfigStorages(wave.dataset->GetStorage("Wave"), wave.dataset->GetStorage("Index"),
                              wave.dataset->GetStorage("Area"));
        cycler.InitEvents(wave.item.get());
        return cycler.Step();
    };
    // 32 bytes per column of 8 floats.
    EXPECT_EQ(normalised(BasicWaveCycler::kSize, 100), 96.0);
    EXPECT_EQ(normalised(BasicWaveCycler::kSize, 96), 96.0);
    EXPECT_EQ(normalised(BasicWaveCycler::kSize, 20), 0.0);
    EXPECT_EQ(normalised(BasicWaveCycler::kTime, 2.5 * kColumn), 2 * kColumn);
    EXPECT_EQ(normalised(BasicWaveCycler::kTime, 0.5 * kColumn), 0.0);
}

// A wave with areas and a cycler that cuts through recording storages.
struct CycledWave {
    TestWave<float> wave{"WAVEDATASET[FLOAT]", kPeriod, kIndexStep};
    std::shared_ptr<CutRecordingStorage> samples, columns, areas;
    std::unique_ptr<BasicWaveCycler> cycler;

    CycledWave(BasicWaveCycler::CycleType type, double step) {
        samples = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Wave"));
        columns = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Index"));
        areas = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Area"));
        cycler = std::make_unique<BasicWaveCycler>();
        cycler->Config(type, step);
        cycler->ConfigStorages(samples, columns, areas);
        cycler->InitEvents(wave.item.get());
        const auto data = Samples(1000);
        wave.dataset->Push(data.data(), data.size());
    }
    void AddArea(int64_t start_ns, int64_t end_ns, uint64_t beg_pos, uint64_t end_pos, uint64_t first_count = 128) {
        ValidDataArea area{start_ns, end_ns, 0, first_count, beg_pos, end_pos};
        wave.dataset->Push(&area, 1);
    }
    WaveDatasetParameters& Parameters() {
        return *QueryInterface<WaveDatasetParameters>(wave.item->GetChildItem("WaveParam"));
    }
    void Fire(const char* event) { EventPublishHelper::FireObjectEvent(wave.item.get(), event); }
    // (wave, index, area) cuts of the last event; empty vectors where nothing was cut.
    std::vector<std::vector<uint64_t>> Cuts() const { return {samples->cuts, columns->cuts, areas->cuts}; }
    using Cut = std::vector<std::vector<uint64_t>>;
};

TEST(WaveCycler, SizeCutWithoutAreasShiftsTheSizeAxis) {
    CycledWave c(BasicWaveCycler::kSize, 100);  // 96 bytes: 24 samples, 3 columns
    c.Fire("OutLimit:Size");
    EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {3}, {}}));
    double offset = -1, ratio = 0;
    c.wave.axis->GetRatioOffset(&offset, &ratio);
    EXPECT_DOUBLE_EQ(offset, 24 * kPeriod);
    EXPECT_EQ(ratio, kPeriod);
    // The block storage cuts nothing, so the wave now reads from the shifted start.
    auto reader = c.wave.MakeReader();
    double begin = 0, end = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(begin, end, false));
    EXPECT_DOUBLE_EQ(begin, 24 * kPeriod);
    EXPECT_EQ(c.wave.dataset->GetStorage("Wave")->Count(), 1000u);
}

TEST(WaveCycler, SizeLimitOfTheConfigurationCutsInsideThePush) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    ASSERT_TRUE(wave.item->FinishConfig(&ModuleScope(), "cycle=SIZE(2K,100)"));
    BasicWaveCycler* cycler = QueryInterface<BasicWaveCycler>(wave.item->GetChildItem("CircleTool")).get();
    ASSERT_NE(cycler, nullptr);
    auto samples = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Wave"));
    auto columns = std::make_shared<CutRecordingStorage>(wave.dataset->GetStorage("Index"));
    cycler->ConfigStorages(samples, columns, wave.dataset->GetStorage("Area"));
    const auto data = Samples(512);
    wave.dataset->Push(data.data(), 512);  // 2048 bytes: at the limit
    EXPECT_TRUE(samples->cuts.empty());
    wave.dataset->Push(data.data(), 1);
    EXPECT_EQ(samples->cuts, std::vector<uint64_t>{24});
    EXPECT_EQ(columns->cuts, std::vector<uint64_t>{3});
}

TEST(WaveCycler, SizeCutWithAreasCountsWholeAreasBeforeTheCut) {
    {
        CycledWave c(BasicWaveCycler::kSize, 96);  // n = 24
        c.AddArea(0, 1, 0, 9);
        c.AddArea(2, 3, 10, 49);
        c.AddArea(4, 5, 50, 999);
        c.Fire("OutLimit:Size");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {3}, {1}}));
    }
    {  // The cut ends inside the first area: samples only.
        CycledWave c(BasicWaveCycler::kSize, 96);
        c.AddArea(0, 1, 0, 999);
        c.Fire("OutLimit:Size");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {0}, {0}}));
    }
    {  // The cut passes every area: the list ends, samples only.
        CycledWave c(BasicWaveCycler::kSize, 96);
        c.AddArea(0, 1, 0, 9);
        c.AddArea(2, 3, 10, 19);
        c.Fire("OutLimit:Size");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {0}, {0}}));
    }
    {  // Area positions count from what was cut before.
        CycledWave c(BasicWaveCycler::kSize, 96);
        c.Parameters().raw_point_offset = 10;
        c.AddArea(0, 1, 10, 29);
        c.AddArea(2, 3, 30, 89);
        c.Fire("OutLimit:Size");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {3}, {1}}));
    }
}

TEST(WaveCycler, StepBelowOneColumnCutsNothing) {
    CycledWave c(BasicWaveCycler::kSize, 20);
    c.Fire("OutLimit:Size");
    EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{0}, {0}, {}}));
    double offset = -1;
    c.wave.axis->GetRatioOffset(&offset, nullptr);
    EXPECT_EQ(offset, 0.0);
}

TEST(WaveCycler, TimeCutWithoutAreasShiftsTheAxisByTheStep) {
    CycledWave c(BasicWaveCycler::kTime, 3 * kColumn);
    c.Fire("OutLimit:Time");
    EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{24}, {3}, {}}));
    double offset = -1;
    c.wave.axis->GetRatioOffset(&offset, nullptr);
    EXPECT_DOUBLE_EQ(offset, 3 * kColumn);
}

TEST(WaveCycler, TimeCutWithAreasCutsToTheStartOfAnArea) {
    // Step 3 columns = 6e9 ns; a sample is 2.5e8 ns.
    {
        CycledWave c(BasicWaveCycler::kTime, 3 * kColumn);
        c.Parameters().time_offset = 5'000'000'000;
        c.AddArea(0, 1'000'000'000, 0, 3);
        c.AddArea(2'000'000'000, 200'000'000'000, 4, 999, 2);
        c.Fire("OutLimit:Time");
        // samples = 3e9 / 2.5e8 + 4 = 16; columns = (16 - 2) / 8 + 1 = 2.
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{16}, {2}, {1}}));
    }
    {  // Stops at the first area: nothing cut.
        CycledWave c(BasicWaveCycler::kTime, 3 * kColumn);
        c.AddArea(0, 10'000'000'000, 0, 999);
        c.Fire("OutLimit:Time");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{0}, {0}, {0}}));
    }
    {  // The step passes every area: nothing cut.
        CycledWave c(BasicWaveCycler::kTime, 3 * kColumn);
        c.AddArea(0, 1'000'000'000, 0, 3);
        c.AddArea(1'500'000'000, 5'000'000'000, 4, 999);
        c.Fire("OutLimit:Time");
        EXPECT_EQ(c.Cuts(), (CycledWave::Cut{{0}, {0}, {0}}));
    }
}

TEST(WaveCycler, RemovesItsSubscriptionsWhenItGoes) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    auto cycler = std::make_unique<BasicWaveCycler>();
    cycler->Config(BasicWaveCycler::kSize, 32);
    cycler->ConfigStorages(wave.dataset->GetStorage("Wave"), wave.dataset->GetStorage("Index"),
                           wave.dataset->GetStorage("Area"));
    cycler->InitEvents(wave.item.get());
    EXPECT_EQ(wave.item->Events().SubscriberCount("OutLimit:Size"), 1u);
    EXPECT_EQ(wave.item->Events().SubscriberCount("OutLimit:Time"), 1u);
    cycler.reset();
    EXPECT_EQ(wave.item->Events().SubscriberCount("OutLimit:Size"), 0u);
    EXPECT_EQ(wave.item->Events().SubscriberCount("OutLimit:Time"), 0u);
    EventPublishHelper::FireObjectEvent(wave.item.get(), "OutLimit:Size");  // no handler left
}

}  // namespace
