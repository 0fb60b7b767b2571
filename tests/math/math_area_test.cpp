// The result areas: each source's pieces of a range, the pairwise intersection and its
// advance code, the merge with its first-element test, and what survives when a source
// has nothing in the range.

#include "math_fixture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace math_test;

_ValidAreaIndex Piece(double begin, double end, uint64_t first, uint64_t last, bool data = true) {
    _ValidAreaIndex piece{};
    piece.begin_time = begin;
    piece.end_time = end;
    piece.wave_beg_pos = first;
    piece.wave_end_pos = last;
    piece.has_data = data;
    return piece;
}

TEST(MathArea, TwoPiecesIntersectAndTellWhichListToAdvance) {
    Math<double, 1> m;
    ValidDataArea area{};
    int code = 0;
    // The same single area on both sides: one result, both lists advance.
    ASSERT_TRUE(m.math->CalcArea(Piece(1, 2, 0, 512), Piece(1, 2, 0, 512), area, code));
    EXPECT_EQ(code, 0xFF);
    EXPECT_EQ(area.start_time, 1000000000);
    EXPECT_EQ(area.end_time, 2000000000);
    EXPECT_EQ(area.wave_beg_pos, 0u);
    EXPECT_EQ(area.wave_end_pos, 512u);
    EXPECT_EQ(m.math->NextWavePos(), 513u);

    // The left one ends first: advance left; the right one's estimate is the larger.
    code = 0;
    ASSERT_TRUE(m.math->CalcArea(Piece(0, 1, 0, 99), Piece(0.5, 2.5, 0, 999), area, code));
    EXPECT_EQ(code, 0xF0);
    EXPECT_EQ(area.start_time, 500000000);
    EXPECT_EQ(area.end_time, 1000000000);
    EXPECT_EQ(area.wave_beg_pos, 513u);
    EXPECT_EQ(area.wave_end_pos, 513u + 250 - 1);  // 0.5 / 2 x 1000 against 0.5 x 100

    code = 0;
    ASSERT_TRUE(m.math->CalcArea(Piece(0, 3, 0, 99), Piece(0.5, 2.5, 0, 999), area, code));
    EXPECT_EQ(code, 0x0F);
    EXPECT_EQ(area.end_time, 2500000000);

    // Gaps and disjoint pieces give no area and say which side is done.
    code = 0;
    EXPECT_FALSE(m.math->CalcArea(Piece(0, 1, 0, 0, false), Piece(0, 1, 0, 9), area, code));
    EXPECT_EQ(code, 0xF0);
    code = 0;
    EXPECT_FALSE(m.math->CalcArea(Piece(0, 1, 0, 0, false), Piece(0, 1, 0, 0, false), area, code));
    EXPECT_EQ(code, 0xFF);
    code = 0;
    EXPECT_FALSE(m.math->CalcArea(Piece(2, 3, 0, 9), Piece(0, 1, 0, 9), area, code));
    EXPECT_EQ(code, 0x0F);
    code = 0;
    EXPECT_FALSE(m.math->CalcArea(Piece(0, 1, 0, 9), Piece(2, 3, 0, 9), area, code));
    EXPECT_EQ(code, 0xF0);
    const uint64_t before = m.math->NextWavePos();

    // A one-sample piece divides 0 by 0: the estimate is the pattern of NaN.
    code = 0;
    ASSERT_TRUE(m.math->CalcArea(Piece(4, 4, 7, 7), Piece(4, 4, 3, 3), area, code));
    EXPECT_EQ(area.wave_beg_pos, before);
    EXPECT_EQ(area.wave_end_pos, before - 1 + (uint64_t{1} << 63));
}

TEST(MathArea, SourcesListDataAndGapsOfTheRange) {
    Source<double> left, right;
    left.Constant(0.0, 1.0, 1.0).Constant(2.0, 3.0, 3.0);
    right.Constant(0.5, 2.5, 10.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->Load();
    auto list = [&](Source<double>& source, double start, double end) {
        std::vector<_ValidAreaIndex> out;
        m.math->SearchValidArea(QueryInterface<CBasicWaveReader<double>>(source.item.get()),
                                QueryInterface<IInforIteratorReader>(source.item.get(), "ValidReader"), start, end,
                                out);
        return out;
    };
    const auto l = list(left, 0.5, 2.5);
    ASSERT_EQ(l.size(), 3u);
    EXPECT_TRUE(l[0].has_data);
    EXPECT_EQ(l[0].begin_time, 0.5);
    EXPECT_EQ(l[0].end_time, 1.0);
    EXPECT_EQ(l[0].wave_beg_pos, 256u);
    EXPECT_EQ(l[0].wave_end_pos, 512u);
    EXPECT_FALSE(l[1].has_data);
    EXPECT_EQ(Ns(l[1].begin_time), Ns(1.0 + kPeriod));
    EXPECT_EQ(Ns(l[1].end_time), Ns(2.0 - kPeriod));
    EXPECT_EQ(l[1].wave_end_pos, 512u);  // a gap keeps the positions before it
    EXPECT_TRUE(l[2].has_data);
    EXPECT_EQ(l[2].begin_time, 2.0);
    EXPECT_EQ(l[2].end_time, 2.5);
    EXPECT_EQ(l[2].wave_beg_pos, 513u);
    EXPECT_EQ(l[2].wave_end_pos, 513u + 256);
    EXPECT_NEAR(l[0].ratio + l[1].ratio + l[2].ratio, 1.0, 0.01);

    const auto r = list(right, 0.5, 2.5);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_TRUE(r[0].has_data);

    // A range that starts before the source: a leading gap; one that ends between two
    // areas: a trailing gap.
    const auto early = list(right, 0.25, 2.75);
    ASSERT_EQ(early.size(), 2u);
    EXPECT_FALSE(early[0].has_data);
    EXPECT_EQ(early[0].begin_time, 0.25);
    EXPECT_EQ(Ns(early[0].end_time), Ns(0.5 - kPeriod));
    EXPECT_EQ(early[1].begin_time, 0.5);
    EXPECT_EQ(early[1].end_time, 2.5);
    const auto between = list(left, 0.0, 1.5);
    ASSERT_EQ(between.size(), 2u);
    EXPECT_TRUE(between[0].has_data);
    EXPECT_FALSE(between[1].has_data);
    EXPECT_EQ(between[1].end_time, 1.5);
    // Ending exactly on an area's end stops after that area.
    EXPECT_EQ(list(left, 0.0, 3.0).size(), 3u);

    EXPECT_TRUE(list(left, 5.0, 6.0).empty());  // outside the source
    EXPECT_TRUE(list(left, 2.0, 1.0).empty());  // start after end
}

TEST(MathArea, TheResultIsTheIntersectionOfTheSourcesAreas) {
    Source<double> left, right;
    left.Constant(0.0, 1.0, 1.0).Constant(2.0, 3.0, 3.0);
    right.Constant(0.5, 2.5, 10.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.5, 2.5);

    const auto areas = ReadAll<ValidDataArea>(m.math->GetStorage("Area"));
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[0].start_time, 500000000);
    EXPECT_EQ(areas[0].end_time, 1000000000);
    EXPECT_EQ(areas[1].start_time, 2000000000);
    EXPECT_EQ(areas[1].end_time, 2500000000);
    EXPECT_EQ(areas[0].wave_beg_pos, 0u);
    EXPECT_EQ(areas[0].wave_end_pos, 256u);
    EXPECT_EQ(areas[1].wave_beg_pos, 257u);
    EXPECT_EQ(areas[1].wave_end_pos, 513u);
    EXPECT_EQ(m.math->AreaOrigin(), 500000000u);

    const auto samples = ReadAll<double>(m.math->GetStorage("Wave"));
    ASSERT_EQ(samples.size(), 514u);
    for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(samples[i], i < 257 ? -9.0 : -7.0) << i;
    auto reader = QueryInterface<IBasicWaveReader>(m.item.get());
    double value = 0;
    EXPECT_TRUE(reader->At(0.75, value));
    EXPECT_EQ(value, -9.0);
    EXPECT_TRUE(reader->At(2.25, value));
    EXPECT_EQ(value, -7.0);
    EXPECT_FALSE(reader->At(1.5, value));  // the gap of the left source
}

TEST(MathArea, DisjointSourcesEmptyTheAreasButASourceWithoutDataKeepsThem) {
    Source<double> left, right, apart, empty;
    left.Constant(0.0, 1.0, 1.0);
    right.Constant(0.0, 1.0, 2.0);
    apart.Constant(2.0, 3.0, 2.0);
    Math<double, 0> m;
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 3.0);
    ASSERT_EQ(m.math->Areas().size(), 1u);
    const uint64_t once = m.Count("Wave");

    // Both sources list pieces, none of them meet: the areas are emptied.
    m.item->SetLinkItem(apart.item.get(), "right");
    m.math->CalcRange(0.0, 3.0);
    EXPECT_TRUE(m.math->Areas().empty());
    EXPECT_EQ(m.Count("Wave"), once);
    EXPECT_EQ(m.Count("Area"), 1u);

    // Back to a match, then a source without samples: the last areas are run again.
    m.item->SetLinkItem(right.item.get(), "right");
    m.math->CalcRange(0.0, 3.0);
    ASSERT_EQ(m.math->Areas().size(), 1u);
    m.item->SetLinkItem(empty.item.get(), "right");
    m.math->CalcRange(0.0, 3.0);
    EXPECT_EQ(m.math->Areas().size(), 1u);
    EXPECT_EQ(m.Count("Area"), 3u);
    // With the empty source the walk reads nothing, so only the areas grow.
    EXPECT_EQ(m.Count("Wave"), 2 * once);
    double start = 0, end = 0;
    m.math->GetLastRange(start, end);
    EXPECT_EQ(end, 3.0);
}

TEST(MathArea, AnAreaWithAnEndOfTheFirstAreaIsDroppedThoughNotARepeatOfTheLast) {
    // Left areas out of time order: [0, 1], [2, 3], then [0.5, 1] again.
    Source<double> left, right;
    left.Constant(0.0, 1.0, 1.0).Constant(2.0, 3.0, 1.0);
    ValidDataArea late{};
    late.start_time = 500000000;
    late.end_time = 1000000000;
    late.first_count = 10;
    late.wave_beg_pos = 256;
    late.wave_end_pos = 512;
    left.dataset->Push(&late, 1);
    right.Constant(0.0, 4.0, 1.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    m.math->CalcRange(0.0, 4.0);
    const auto& areas = m.math->Areas();
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[0].end_time, 1000000000);
    EXPECT_EQ(areas[1].start_time, 2000000000);
    // The dropped area still took its positions.
    EXPECT_EQ(m.math->NextWavePos(), areas[1].wave_end_pos + 1 + 257);
}

}  // namespace
