// Element types and the time, position and column rules of areas.

#include "dataset/record_types.h"
#include "dataset/records.h"
#include "dataset/time_rules.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/struct_type.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

ValidDataArea Area(int64_t start_ns, int64_t end_ns, uint64_t index_id, uint64_t first_count, uint64_t beg,
                   uint64_t end) {
    ValidDataArea area{};
    area.start_time = start_ns;
    area.end_time = end_ns;
    area.index_id = index_id;
    area.first_count = first_count;
    area.wave_beg_pos = beg;
    area.wave_end_pos = end;
    return area;
}

TEST(ElementTypes, LongDoubleSamplesAreBinary64BitForBit) {
    const double values[] = {1.0 / 3.0, -0.0, 1e308, std::nextafter(1.0, 2.0)};
    for (double v : values) {
        LongDouble sample(v);
        unsigned char a[8], b[8];
        std::memcpy(a, &sample, 8);
        std::memcpy(b, &v, 8);
        EXPECT_EQ(std::memcmp(a, b, 8), 0);
    }
    LongDouble x = 1.5, y = 2.0;
    EXPECT_LT(x, y);
    EXPECT_DOUBLE_EQ(x * y, 3.0);
}

TEST(TimeRules, NanosecondTruncationAndEquality) {
    EXPECT_EQ(SecondsToNs(1.9e-9), 1);
    EXPECT_EQ(SecondsToNs(-1.9e-9), -1);  // toward zero
    EXPECT_EQ(SecondsToNs(std::nan("")), 0);
    EXPECT_EQ(SecondsToNs(1e300), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(SecondsToUnsignedNs(-5.0), 0u);
    EXPECT_TRUE(TimesEqual(1.0, 1.0 + 5e-13));
    EXPECT_FALSE(TimesEqual(1.0, 1.0 + 2e-12));
}

TEST(TimeRules, PositionsInsideAnAreaIncludingItsEnd) {
    // 1 ms samples from t = 1 s, positions 100..1100.
    const ValidDataArea area = Area(1'000'000'000, 2'000'000'000, 5, 30, 100, 1100);
    EXPECT_EQ(AreaTimeToPosition(area, 1.0, 1'000'000), 100u);
    EXPECT_EQ(AreaTimeToPosition(area, 1.5, 1'000'000), 600u);
    EXPECT_EQ(AreaTimeToPosition(area, 1.5009, 1'000'000), 600u);        // truncated to the sample before
    EXPECT_EQ(AreaTimeToPosition(area, 2.0, 1'000'000), 1100u);          // exactly at end_time
    EXPECT_EQ(AreaTimeToPosition(area, 2.000000001, 1'000'000), kInvalidPosition);  // one ns later
    EXPECT_EQ(AreaTimeToPosition(area, 0.999, 1'000'000), kInvalidPosition);
    EXPECT_EQ(AreaTimeToPosition(area, 1.5, 0), kInvalidPosition);
    EXPECT_DOUBLE_EQ(AreaPositionToTime(area, 600, 1'000'000), 1.5);
    EXPECT_DOUBLE_EQ(AreaPositionToTime(area, 99, 1'000'000), 0.999);  // before the area: earlier

    // An area over most of the time range (a damaged file's): the distance from its start
    // exceeds the largest signed count and still gives the position.
    const ValidDataArea wide = Area(-8'000'000'000'000'000'000, 8'000'000'000'000'000'000, 0, 1, 7, 0);
    EXPECT_EQ(AreaTimeToPosition(wide, 7e9, 1'000'000'000), 7u + 15'000'000'000u);
}

TEST(TimeRules, ColumnsOfPositions) {
    const ValidDataArea area = Area(0, 0, 5, 30, 100, 1099);
    EXPECT_EQ(AreaPositionToColumn(area, 100, 100), 5u);
    EXPECT_EQ(AreaPositionToColumn(area, 129, 100), 5u);
    EXPECT_EQ(AreaPositionToColumn(area, 130, 100), 6u);   // wave_beg_pos + first_count
    EXPECT_EQ(AreaPositionToColumn(area, 229, 100), 6u);
    EXPECT_EQ(AreaPositionToColumn(area, 230, 100), 7u);
    EXPECT_EQ(IndexStepSamples(1e-4, 1e-6), 100u);
    EXPECT_EQ(IndexStepSamples(1e-7, 1e-6), 1u);  // truncates to zero: taken as 1
    EXPECT_EQ(IndexStepSamples(1e-4, 1e-12), 1u);  // sample period below 1 ns
}

TEST(TimeRules, SyntheticAreaEndsOnePastTheLastSample) {
    const ValidDataArea area = SyntheticArea(0.5, 1000, 1e-3, 0.1);
    EXPECT_EQ(area.start_time, 500'000'000);
    EXPECT_EQ(area.end_time, 1'500'000'000);
    EXPECT_EQ(area.first_count, 100u);
    EXPECT_EQ(area.wave_beg_pos, 0u);
    EXPECT_EQ(area.wave_end_pos, 1000u);
}

}  // namespace
