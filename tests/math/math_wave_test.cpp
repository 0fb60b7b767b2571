// The result samples and index: chunked walks, the grid of the index entries, the
// constants that the sources give, sources that don't match, and the index accumulator.

#include "math_fixture.h"

#include "math/math_index_accumulator.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace math_test;
using testing_support::LogCapture;

TEST(MathWave, TheSourcesGiveTheStepAndTheIndexGrid) {
    Source<double> left(1e-6, 1000), right(2e-6, 250);  // index steps 1e-3 and 5e-4 s
    left.Constant(0.0, 0.01, 1.0);
    right.Constant(0.0, 0.01, 1.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->Load();
    EXPECT_DOUBLE_EQ(m.math->SampleTime(), 1e-6);
    EXPECT_DOUBLE_EQ(m.math->IndexStepTime(), 1e-3);
    EXPECT_EQ(m.math->IndexPointCount(), 1000u);

    // A source without a sample time is reported and the constants stay.
    Source<double> untimed(0.0, 10);
    m.item->SetLinkItem(untimed.item.get(), "right");
    LogCapture log;
    m.math->Load();
    const double left_time = QueryInterface<CBasicWaveReader<double>>(left.item.get())->GetTools()->GetSampleTime();
    EXPECT_TRUE(log.Contains(LogLevel::Error,
                             fmt::format("mathdataset load error : RightSizeRatio: 0,LeftSizeRatio:{}", left_time)));
    EXPECT_DOUBLE_EQ(m.math->SampleTime(), 1e-6);
    EXPECT_EQ(m.math->IndexPointCount(), 1000u);
    // A sample time of exactly 1 ns passes.
    Source<double> fast(1e-9, 1000);
    m.item->SetLinkItem(fast.item.get(), "right");
    m.math->Load();
    EXPECT_DOUBLE_EQ(m.math->SampleTime(), 1e-9);
}

TEST(MathWave, SourcesOfDifferentSampleTimesStopAtTheFirstChunk) {
    Source<double> left(kPeriod, 10), right(2 * kPeriod, 5);
    left.Constant(0.0, 4.0, 2.0);
    right.Constant(0.0, 4.0, 1.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 4.0);
    EXPECT_EQ(m.Count("Area"), 1u);  // the areas are listed and stored
    EXPECT_EQ(m.Count("Wave"), 0u);  // the chunks differ in size from the first one on
    EXPECT_EQ(m.Count("Index"), 0u);
    EXPECT_EQ(m.math->SampleTime(), kPeriod);
}

TEST(MathWave, LongAreasAreWalkedInChunksOfTheReader) {
    const std::size_t count = 300000;  // more than two chunks of 0x20000 doubles
    std::vector<double> a(count), b(count);
    for (std::size_t i = 0; i < count; ++i) {
        a[i] = std::sin(0.001 * static_cast<double>(i)) * 10;
        b[i] = static_cast<double>(i % 7);
    }
    Source<double> left, right;
    left.Run(8.0, a);
    right.Run(8.0, b);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 1000.0);
    const auto samples = ReadAll<double>(m.math->GetStorage("Wave"));
    ASSERT_EQ(samples.size(), count);
    for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(samples[i], a[i] - b[i]) << i;
    const auto entries = ReadAll<MinMaxData<double>>(m.math->GetStorage("Index"));
    ASSERT_EQ(entries.size(), count / 10);
    for (std::size_t e = 0; e < entries.size(); ++e) {
        double lo = samples[e * 10], hi = lo;
        for (std::size_t i = e * 10; i < e * 10 + 10; ++i) lo = std::min(lo, samples[i]), hi = std::max(hi, samples[i]);
        ASSERT_EQ(entries[e].min, lo) << e;
        ASSERT_EQ(entries[e].max, hi) << e;
    }
}

// Two sources with the same two areas, the second one starting `offset` samples after a
// point of an index grid of `step` samples; the result's stored areas.
std::vector<ValidDataArea> TwoAreasOnAGrid(uint64_t step, uint64_t offset, uint64_t* index_count) {
    Source<float> left(kPeriod, step), right(kPeriod, step);
    const double second = static_cast<double>(10 * step + offset) * kPeriod;
    for (Source<float>* source : {&left, &right}) {
        source->Constant(0.0, 999 * kPeriod, 1.0f);
        source->Constant(second, second + 999 * kPeriod, 2.0f);
    }
    Math<float, 0> m(kPeriod, step);
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 20.0);
    EXPECT_EQ(m.Count("Wave"), 2000u);
    *index_count = m.Count("Index");
    const auto entries = ReadAll<MinMaxData<float>>(m.math->GetStorage("Index"));
    const auto areas = ReadAll<ValidDataArea>(m.math->GetStorage("Area"));
    if (areas.size() == 2 && areas[1].index_id < entries.size()) {
        EXPECT_EQ(entries[areas[1].index_id - 1].max, 2.0f);  // the first area's last entry
        EXPECT_EQ(entries[areas[1].index_id].min, 4.0f);
    }
    return areas;
}

TEST(MathWave, ALaterAreaStartsWithTheEntryThatReachesTheNextGridPoint) {
    uint64_t entries = 0;
    // 256 samples per entry, the second area 64 samples after a grid point: 192.
    auto areas = TwoAreasOnAGrid(256, 64, &entries);
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[0].first_count, 256u);
    EXPECT_EQ(areas[1].first_count, 192u);
    EXPECT_EQ(areas[1].index_id, 4u);      // 3 x 256 and 232
    EXPECT_EQ(entries, 4u + 1 + 4);        // 192, then 3 x 256 and 40

    // 250 samples per entry, 100 after a grid point: the phase 0.4 comes out of the
    // floating-point division a hair above, and the first entry takes 149 samples.
    areas = TwoAreasOnAGrid(250, 100, &entries);
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[1].first_count, 149u);
    EXPECT_EQ(entries, 4u + 1 + 4);        // 149, then 3 x 250 and 101
}

TEST(MathWave, AnAreaShorterThanItsFirstEntryGetsOneEntry) {
    Source<double> left(kPeriod, 128), right(kPeriod, 128);
    for (Source<double>* source : {&left, &right}) {
        source->Constant(0.0, 1023 * kPeriod, 1.0);
        source->Run(1056 * kPeriod, std::vector<double>(30, 2.0));  // 96 samples short of the grid
    }
    Math<double, 0> m(kPeriod, 128);
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 10.0);
    const auto areas = ReadAll<ValidDataArea>(m.math->GetStorage("Area"));
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[1].first_count, 96u);
    EXPECT_EQ(areas[1].index_id, 8u);
    EXPECT_EQ(m.Count("Wave"), 1054u);
    const auto entries = ReadAll<MinMaxData<double>>(m.math->GetStorage("Index"));
    ASSERT_EQ(entries.size(), 9u);  // the second call starts past the area and reads nothing
    EXPECT_EQ(entries[8].min, 4.0);
}

TEST(MathWave, IntegerResultsWrapAndHalveTowardZero) {
    Source<int8_t> left, right;
    left.Constant(0.0, 1.0, 100);
    right.Constant(0.0, 1.0, -100);
    Math<int8_t, 1> minus;
    minus.Link(left.item.get(), right.item.get());
    minus.math->CalcRange(0.0, 1.0);
    const auto difference = ReadAll<int8_t>(minus.math->GetStorage("Wave"));
    ASSERT_EQ(difference.size(), 513u);
    EXPECT_EQ(difference.front(), -56);
    EXPECT_EQ(difference.back(), -56);

    Source<int8_t> low, lower;
    low.Constant(0.0, 1.0, -100);
    lower.Constant(0.0, 1.0, -101);
    Math<int8_t, 2> mean;
    mean.Link(low.item.get(), lower.item.get());
    mean.math->CalcRange(0.0, 1.0);
    EXPECT_EQ(ReadAll<int8_t>(mean.math->GetStorage("Wave")).at(7), -100);
    const auto entries = ReadAll<MinMaxData<int8_t>>(mean.math->GetStorage("Index"));
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries[0].min, -100);
}

TEST(MathWave, ASingleInstantReadsOneSample) {
    Source<double> left, right;
    left.Constant(1.0, 2.0, 3.0);
    right.Constant(1.0, 2.0, 1.0);
    Math<double, 0> m;
    m.Link(left.item.get(), right.item.get());
    m.math->Load();
    m.math->SaveIndexByTime(1.5, 1.5);
    EXPECT_EQ(m.Count("Wave"), 1u);
    EXPECT_EQ(m.Count("Index"), 1u);
    m.math->SaveIndexByTime(5.0, 6.0);  // nothing there
    EXPECT_EQ(m.Count("Wave"), 1u);
}

TEST(MathWave, AFullIndexBufferIsFollowedByOneBufferOfZeroEntries) {
    // One sample per entry: 70000 samples overflow the buffer of 65536 entries once.
    Source<double> left(kPeriod, 1), right(kPeriod, 1);
    std::vector<double> values(70000);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = 1.0 + static_cast<double>(i);
    left.Run(0.0, values);
    right.Run(0.0, std::vector<double>(values.size(), 0.0));
    Math<double, 0> m(kPeriod, 1);
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 1000.0);
    EXPECT_EQ(m.math->IndexPointCount(), 1u);
    ASSERT_EQ(m.Count("Wave"), 70000u);
    const auto entries = ReadAll<MinMaxData<double>>(m.math->GetStorage("Index"));
    constexpr std::size_t kBuffer = MathIndexAccumulator<double>::kCapacity;
    ASSERT_EQ(kBuffer, 65536u);
    // The first entry closes its own call; the second call flushes 65536 entries, then
    // writes a buffer of zeros ahead of its remaining 4463.
    ASSERT_EQ(entries.size(), 70000u + kBuffer);
    EXPECT_EQ(entries[0].max, 1.0);
    EXPECT_EQ(entries[kBuffer].max, static_cast<double>(kBuffer + 1));
    EXPECT_EQ(entries[kBuffer + 1].min, 0.0);
    EXPECT_EQ(entries[2 * kBuffer].max, 0.0);
    EXPECT_EQ(entries[2 * kBuffer + 1].max, static_cast<double>(kBuffer + 2));
    EXPECT_EQ(entries.back().max, 70000.0);
}

TEST(MathWave, TheAccumulatorKeepsANaNThatOpensAnEntry) {
    Source<double> holder;
    auto storage = holder.dataset->GetStorage("Index");
    {
        MathIndexAccumulator<double> accumulator(*storage, 3);
        for (double v : {std::nan(""), 5.0, -5.0, 2.0, std::nan(""), 1.0, 7.0}) {
            accumulator.Take(v);
            accumulator.CloseIfFull();
        }
        EXPECT_EQ(accumulator.Buffered(), 2u);
        accumulator.Finish();
    }
    const auto entries = ReadAll<MinMaxData<double>>(storage);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_TRUE(std::isnan(entries[0].min) && std::isnan(entries[0].max));
    EXPECT_EQ(entries[1].min, 1.0);  // a NaN later in an entry compares false and is passed over
    EXPECT_EQ(entries[1].max, 2.0);
    EXPECT_EQ(entries[2].min, 7.0);  // the open entry closes at the end
}

}  // namespace
