// The validity areas as a walk: the cursor rules at both ends, the time search, and the
// synthetic area of a dataset without stored areas.

#include "dataset/time_rules.h"
#include "support/derived_wave.h"

#include <gtest/gtest.h>

namespace {

// Three runs of 100 samples at 1, 2 and 3 s.
DerivedWave<double>& ThreeRuns(DerivedWave<double>& wave) {
    return wave.Runs({{1.0, std::vector<double>(100, 1.0)},
                      {2.0, std::vector<double>(100, 2.0)},
                      {3.0, std::vector<double>(100, 3.0)}});
}

ValidDataArea ResultOf(CValidAreaDataReader& reader) {
    ValidDataArea area{};
    reader.GetResult(&area);
    return area;
}

// The index and the record's start position after each step.
std::pair<uint64_t, uint64_t> Now(CValidAreaDataReader& reader) { return {reader.GetCurIndex(), ResultOf(reader).wave_beg_pos}; }
using Step = std::pair<uint64_t, uint64_t>;

TEST(ValidAreaReader, StepsPastEitherEndResetTheIndexAndKeepTheRecord) {
    DerivedWave<double> wave;
    ThreeRuns(wave);
    auto reader = wave.Areas();
    EXPECT_EQ(reader->GetCount(), 3u);
    ASSERT_TRUE(reader->GetBeginData());
    EXPECT_EQ(ResultOf(*reader).start_time, 1000000000);
    EXPECT_TRUE(reader->GetNextData() && reader->GetNextData());
    EXPECT_EQ(Now(*reader), Step(2, 200));
    EXPECT_FALSE(reader->GetNextData());
    EXPECT_EQ(Now(*reader), Step(0, 200));  // index 0, not the last; the former record stays
    EXPECT_FALSE(reader->GetPrevData());     // from 0: the same
    EXPECT_EQ(Now(*reader), Step(0, 200));
    ASSERT_TRUE(reader->GetEndData());
    EXPECT_EQ(reader->GetCurIndex(), 2u);
    EXPECT_TRUE(reader->GetPrevData());
    EXPECT_EQ(Now(*reader), Step(1, 100));

    DerivedWave<double> one;  // one area has a begin record but no end record
    one.Runs({{1.0, std::vector<double>(50, 1.0)}});
    EXPECT_TRUE(one.Areas()->GetBeginData());
    EXPECT_FALSE(one.Areas()->GetEndData());
}

TEST(ValidAreaReader, TimeSearchInsideBetweenAndOutsideTheAreas) {
    DerivedWave<double> wave;
    ThreeRuns(wave);
    auto reader = wave.Areas();
    // Inside, at the last sample of the last area, in the gap after the first (the area
    // before it), then before the first and after the last (area 0, each after a search
    // that placed the reader elsewhere).
    for (auto [time, index] : {std::pair{2.05, 1u}, {3.099, 2u}, {1.5, 0u}, {2.05, 1u}, {0.5, 0u}, {2.05, 1u}, {9.0, 0u}}) {
        EXPECT_TRUE(reader->GetAppointTimeData(time)) << time;
        EXPECT_EQ(reader->GetCurIndex(), index) << time;
        EXPECT_EQ(ResultOf(*reader).start_time, 1000000000 * static_cast<int64_t>(index + 1)) << time;
    }
}

TEST(ValidAreaReader, WithoutStoredAreasTheSyntheticAreaServesTheBeginButNotTheCount) {
    DerivedWave<double> wave;
    const std::vector<double> samples(100, 4.0);
    wave.dataset->Push(samples.data(), samples.size());  // samples only, no area
    auto reader = wave.Areas();
    EXPECT_EQ(reader->GetCount(), 0u);
    ASSERT_TRUE(reader->GetBeginData());
    const ValidDataArea area = ResultOf(*reader);
    EXPECT_EQ(area.wave_beg_pos, 0u);
    EXPECT_EQ(area.wave_end_pos, 100u);  // one past the last sample
    EXPECT_EQ(area.first_count, 10u);
    // The start is the axis window's width, the length count x the window's offset.
    double offset = 0, width = 0;
    wave.axis->GetOffsetScale(&offset, &width);
    ASSERT_EQ(offset, 0.0);
    ASSERT_GT(width, 0.0);
    EXPECT_EQ(area.start_time, SecondsToNs(width));
    EXPECT_EQ(area.end_time, area.start_time);
    EXPECT_FALSE(reader->GetNextData());
    EXPECT_FALSE(reader->GetEndData());

    DerivedWave<double> empty;
    EXPECT_FALSE(empty.Areas()->GetBeginData());
    EXPECT_EQ(empty.Areas()->GetCount(), 0u);
}

}  // namespace
