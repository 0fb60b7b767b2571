// Value search: crossings forward and backward, over gaps, with and without the index,
// the fixed rules where the index walk and the raw scans differ, and brute-force checks.

#include "reader/open_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

using namespace reader_tests;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kAny = -1;  // not checked

template <class P>
std::optional<double> Find(const P& reader, double value, double time, bool forward) {
    double result = 0;
    if (!reader->Find(value, time, result, forward)) return std::nullopt;
    return result;
}

testing::AssertionResult At(std::optional<double> found, double time) {
    if (time == kAny) return testing::AssertionSuccess();
    if (std::isnan(time)) return found ? testing::AssertionFailure() << "found " << *found : testing::AssertionSuccess();
    if (!found) return testing::AssertionFailure() << "not found, expected " << time;
    if (std::fabs(*found - time) > 1e-9) return testing::AssertionFailure() << *found << ", expected " << time;
    return testing::AssertionSuccess();
}

// A search and its answer by the raw scans and by the index walk (NaN: none found).
struct Search {
    double value, time;
    bool forward;
    double raw, index;
};

template <class T>
void ExpectSearches(Wave<T>& wave, std::initializer_list<Search> searches) {
    for (bool index : {false, true}) {
        auto reader = wave.Reader(index);
        for (const Search& s : searches)
            EXPECT_TRUE(At(Find(reader, s.value, s.time, s.forward), index ? s.index : s.raw))
                << (index ? "index " : "raw ") << s.value << (s.forward ? " after " : " before ") << s.time;
    }
}

TEST(ValueSearch, AConstantWaveAndATriangle) {
    // A raw scan compares its first sample with itself; the index walk never takes the
    // sample it starts at.
    Wave<double> flat("WAVEDATASET[DOUBLE]");
    flat.Runs({{1.0, std::vector<double>(200, 1.0)}});
    ExpectSearches(flat, {{1.0, 1.0505, true, 1.050, 1.051}, {1.0, 1.0505, false, 1.050, kAny},
                          {2.0, 1.0, true, kNaN, kNaN}, {2.0, 1.199, false, kNaN, kNaN}});
    Wave<double> triangle("WAVEDATASET[DOUBLE]");
    std::vector<double> values;
    for (int i = 0; i <= 100; ++i) values.push_back(10.0 * (50 - std::abs(50 - i)));  // 500 at sample 50
    triangle.Runs({{0.0, values}});
    ExpectSearches(triangle, {{123.0, 0.0015, true, 0.012, 0.012},  // 120 -> 130: nearer 120
                              {127.0, 0.0015, true, 0.013, 0.013},
                              {125.0, 0.0015, true, 0.013, 0.013},  // a tie: the later one
                              {125.0, 0.0555, true, 0.088, 0.088},  // falling: 130 -> 120
                              {501.0, 0.0, true, kNaN, kNaN},
                              // Backward one sample later, unless the scan reads from position 0.
                              {123.0, 0.0505, false, 0.012, 0.013}});
    // A run of one sample equal to the value is passed over: reads of fewer than two samples.
    Wave<float> one("WAVEDATASET[FLOAT]");
    one.Runs({{1.0, {5.0f}}, {2.0, std::vector<float>(50, 0.0f)}, {3.0, {0.0f, 5.0f, 0.0f}}});
    EXPECT_TRUE(At(Find(one.Reader(false), 5.0, 1.0, true), 3.001));
    EXPECT_FALSE(Find(one.Reader(false), 5.0, 3.002, true));
}

// Runs of 100 samples at 1, 2, 3 and 4 s (positions 0, 100, 200, 300), all 0 but a 9 at
// 1.050 and at 3.050 and a 7 at 2.000.
TEST(ValueSearch, FromAGapBothWaysAndPastTheEndsThroughThePiece) {
    Wave<float> wave("WAVEDATASET[FLOAT]");
    std::vector<float> a(100, 0.0f), b(100, 0.0f), c(100, 0.0f), d(100, 0.0f);
    a[50] = c[50] = 9.0f;
    b[0] = 7.0f;
    wave.Runs({{1.0, a}, {2.0, b}, {3.0, c}, {4.0, d}});
    ExpectSearches(wave, {// Forward from a gap: the next area from its first sample, which the index walk
                          // doesn't take (7 is next met where the 9 at 3.050 rises through it).
                          {9.0, 2.5, true, 3.050, 3.050},
                          {7.0, 1.5, true, 2.000, 3.050},
                          {0.0, 0.2, true, 1.000, 1.001},
                          // Backward from the gap after the third run: one area back from the third, at
                          // the second's first sample, then the runs before; the third's 9 is not searched.
                          {9.0, 3.5, false, 1.050, 1.051},
                          // The raw scan meets 7 against the sample below the second run: one later.
                          {7.0, 3.5, false, 2.001, 1.051},
                          {9.0, 1.5, false, kNaN, kNaN},  // no area before the first
                          {9.0, 4.2, true, kNaN, kNaN},   // after the last sample
                          {9.0, 0.5, false, kNaN, kNaN},
                          {9.0, 5.0, false, kNaN, kNaN},  // after the last area: none to step back from
                          {0.0, 4.099, false, 4.099, 4.098}});
    for (bool index : {false, true}) {
        // On a piece, piece time = axis zero position + (base time - zero): both ways out.
        auto reader = wave.Reader(index);
        double result = 42.0;  // a search past either end leaves the result alone
        EXPECT_FALSE(reader->Find(9.0, 4.2, result, true) || reader->Find(9.0, 0.5, result, false));
        EXPECT_EQ(result, 42.0);
        reader->SetAxis(wave.axis);
        wave.axis->SetTrigPos(0.25);
        reader->SetZeroPosition(1.0, IPieceReader::kTimeModePiece);
        EXPECT_FALSE(reader->Find(9.0, 3.3, result, true));  // base 4.05
        EXPECT_DOUBLE_EQ(result, 42.0 + 0.25 - 1.0);
        EXPECT_TRUE(At(Find(reader, 9.0, 0.25, true), 1.050 + 0.25 - 1.0));
        wave.axis->SetTrigPos(0.0);
    }
    // Backward the scan of an earlier area runs up to the start position again: a start
    // sample equal to the value, passed over in its own area, is met there and reckoned
    // from that area's start (1.0 + 150 samples, in the gap).
    Wave<float> two("WAVEDATASET[FLOAT]");
    std::vector<float> dip(100, 5.0f);
    dip[50] = 1.0f;
    two.Runs({{1.0, std::vector<float>(100, 5.0f)}, {2.0, dip}});
    EXPECT_TRUE(At(Find(two.Reader(false), 1.0, 2.0505, false), 1.150));
}

TEST(ValueSearch, NaNAndIntegerTruncation) {
    Wave<float> wave("WAVEDATASET[FLOAT]");
    std::vector<float> values(50, 10.0f);
    values[0] = 6.0f, values[1] = 8.0f, values[2] = std::numeric_limits<float>::quiet_NaN(), values[3] = 0.0f;
    wave.Runs({{0.0, values}});
    // In a raw scan every comparison with NaN fails, so the first test is equal at once; where a
    // NaN takes part no nearer sample is chosen. No index comparison holds.
    ExpectSearches(wave, {{kNaN, 0.0, true, kAny, kNaN}, {kNaN, 0.001, true, 0.001, kAny},
                          {5.0, 0.001, true, 0.001, kAny},  // 8, then the NaN sample
                          {5.0, 0.003, true, 0.004, kAny}});
    Wave<int16_t> ints("WAVEDATASET[INT16]");
    ints.Runs({{0.0, {0, 1, 2, 3, 4, 5, -1, -2, -3, 32767, 7}}});
    ExpectSearches(ints, {{2.9, 0.0005, true, 0.002, 0.002},     // 2.9 asks for 2
                          {-2.9, 0.0055, true, 0.007, 0.007},    // toward zero: -2
                          {kNaN, 0.0085, true, 0.009, 0.009}});  // the invalid value
}

const std::optional<Hit> kNone;

// The index walk upward (FindNextIndex) or downward over entries first .. last.
std::optional<Hit> Walk(OpenReader<float>& reader, bool up, double value, Position first, Position last) {
    Hit hit;
    if (!(up ? reader.FindNextIndex(value, first, last, hit) : reader.FindPreIndex(value, first, last, hit))) return {};
    return hit;
}

TEST(ValueSearch, AnEntryHoldsTheValueWhileTheCrossingLiesInTheNextOne) {
    // Entry 3 claims [0, 10] over samples that are all 0; they cross 5 inside entry 4,
    // after its first sample.
    Wave<float> wave("WAVEDATASET[FLOAT]");
    std::vector<float> values(80, 0.0f);
    std::fill(values.begin() + 44, values.end(), 10.0f);
    wave.Push(values);
    std::vector<MinMaxData<float>> columns(8, MinMaxData<float>{10.0f, 10.0f});
    std::fill_n(columns.begin(), 3, MinMaxData<float>{0.0f, 0.0f});
    columns[3] = columns[4] = {0.0f, 10.0f};
    wave.Push(columns);
    wave.Push(std::vector<ValidDataArea>{{0, 79000000, 0, 10, 0, 79}});
    auto reader = wave.Reader(true);
    EXPECT_EQ(Walk(*reader, true, 5.0, 1, 7), Hit(2, 3));  // the pair test of 2 with 3 comes before entry 3 itself
    // Entries 2 and 3 are scanned in vain, again one start entry later each time, until the
    // walk reaches entry 4: the crossing 43 -> 44, halfway, gives the later sample.
    EXPECT_TRUE(At(Find(reader, 5.0, 0.0125, true), 0.044));
    EXPECT_TRUE(At(Find(wave.Reader(false), 5.0, 0.0125, true), 0.044));

    // Entries all [0, 1] but 5, which is [9, 9]: 4 and 5 meet 5.0 only as a pair.
    Wave<float> small("WAVEDATASET[FLOAT]");
    columns.assign(8, MinMaxData<float>{0.0f, 1.0f});
    columns[5] = {9.0f, 9.0f};
    small.Push(columns);
    reader = small.Reader(true);
    EXPECT_EQ(Walk(*reader, true, 5.0, 1, 5), Hit(4, 5));
    // From entry 0 the first read takes one entry less than the range, and pairs are tested
    // within one read only; entry 0 alone reads nothing. Downward the pair with the entry
    // above comes before the entry itself.
    EXPECT_EQ(Walk(*reader, true, 5.0, 0, 5), kNone);
    EXPECT_EQ(Walk(*reader, true, 0.5, 0, 0), kNone);
    EXPECT_EQ(Walk(*reader, false, 5.0, 0, 7), Hit(5, 6));
    EXPECT_EQ(Walk(*reader, false, 9.0, 0, 5), Hit(5, 5));
    EXPECT_EQ(Walk(*reader, false, 5.0, 6, 7), kNone);

    // 200001 entries: [0, 1] up to 65556, [9, 9] from 65557, [3, 4] at 60000, [20, 30] at
    // 100000. Reads of 65536 from 21 end between 65556 and 65557, from 22 they don't.
    Wave<float> big("WAVEDATASET[FLOAT]");
    columns.assign(200001, MinMaxData<float>{9.0f, 9.0f});
    std::fill_n(columns.begin(), 65557, MinMaxData<float>{0.0f, 1.0f});
    columns[60000] = {3.0f, 4.0f};
    columns[100000] = {20.0f, 30.0f};
    big.Push(columns);
    reader = big.Reader(true);
    EXPECT_EQ(Walk(*reader, true, 5.0, 22, 200000), Hit(65556, 65557));
    EXPECT_EQ(Walk(*reader, true, 5.0, 21, 200000), kNone);
    // Downward windows over [0, 200000] start at 134464, then at 68927; the next would
    // start below 0, so entries under 68927 are never tested.
    EXPECT_EQ(Walk(*reader, false, 25.0, 0, 200000), Hit(100000, 100000));
    EXPECT_EQ(Walk(*reader, false, 3.5, 0, 200000), kNone);
    EXPECT_EQ(Walk(*reader, false, 3.5, 0, 65536), Hit(60000, 60000));  // one window of 65537
    EXPECT_EQ(Walk(*reader, false, 3.5, 0, 69999), Hit(65556, 65557));  // the separated pair above 60000 first
}

// ---------------------------------------------------------------------------------------
// Brute force, from the definition: between a sample prev and the next one x the wave
// crosses the value upward when prev < value < x, downward (or touches it) when
// x <= value <= prev, and meets it when x equals it.

bool Meets(double prev, double x, double value) {
    return (prev < value && value < x) || (x <= value && value <= prev) || std::fabs(x - value) < 1e-12;
}

// Going up from `from` to `to`, `from` first against itself: the nearer sample of the pair
// that meets the value, the later on a tie.
std::optional<Position> CrossingUp(const std::vector<double>& s, Position from, Position to, double value) {
    for (Position q = from; q <= to; ++q) {
        const double prev = s[q == from ? q : q - 1];
        if (Meets(prev, s[q], value)) return std::fabs(prev - value) >= std::fabs(s[q] - value) ? q : q - 1;
    }
    return std::nullopt;
}

// Going down on the raw scan's terms from `from` to `to`: the pairs (q + 1, q) from
// q = from - 1 to to - 1, answering the nearer sample (the lower on a tie) plus one. From
// position 0 it starts with `from` against itself and answers the nearer sample itself.
std::optional<Position> CrossingDown(const std::vector<double>& s, Position from, Position to, double value) {
    const Position shift = to == 0 ? 0 : 1;
    for (Position q = from + 1 - shift; q-- > to - shift;) {
        const double prev = s[std::min(q + 1, from)];
        if (Meets(prev, s[q], value)) return (std::fabs(prev - value) >= std::fabs(s[q] - value) ? q : q + 1) + shift;
    }
    return std::nullopt;
}

TEST(ValueSearch, BruteForceRawScansBothWaysAndTheForwardIndexWalk) {
    // Two runs of 500 samples of noise at 1 s and 2 s, positions 0..499 and 500..999.
    Wave<float> wave("WAVEDATASET[FLOAT]");
    std::vector<float> noise(1000);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = std::sin(0.013f * static_cast<float>(i)) * 50.0f + static_cast<float>((i * 7919) % 41);
    wave.Runs({{1.0, {noise.begin(), noise.begin() + 500}}, {2.0, {noise.begin() + 500, noise.end()}}});
    const auto time_in = [](Position area, Position p) { return 1.0 + area + (double(p) - 500.0 * area) * 1e-3; };
    // Forward: the start's area from pos, each later one from its first sample; the index
    // walk one sample later each time. Backward: the start's area down to one below its
    // first sample, then each earlier one from its first sample up to pos again. The
    // index walk is left out at the wave's first entry, where its first read is short.
    const auto expected = [&](int mode, Position area, Position pos, double value) -> std::optional<double> {
        for (Position k = area; k < 2; mode == 2 ? --k : ++k) {
            const Position from = (k == area ? pos : 500 * k) + (mode == 1 ? 1 : 0);
            const auto q = mode == 2 ? CrossingDown(wave.samples, pos, 500 * k, value)
                                     : CrossingUp(wave.samples, from, 500 * k + 499, value);
            if (q) return time_in(k, *q);
        }
        return std::nullopt;
    };
    const auto [lo, hi] = std::minmax_element(noise.begin(), noise.end());
    int hits = 0;
    for (int mode = 0; mode < 3; ++mode) {
        auto reader = wave.Reader(mode == 1);
        for (Position pos = mode == 1 ? 10 : 0; pos < 1000; pos += 7) {
            for (int step = -1; step <= 11; ++step) {
                const double value = *lo + (*hi - *lo) * step / 10.0 + 0.37;
                const auto want = expected(mode, pos / 500, pos, value);
                const auto got = Find(reader, value, time_in(pos / 500, pos) + 0.0004, mode != 2);
                ASSERT_EQ(got.has_value(), want.has_value()) << mode << " " << pos << " " << value;
                if (want) {
                    EXPECT_TRUE(At(got, *want)) << mode << " " << pos << " " << value;
                }
                hits += want.has_value();
            }
        }
    }
    EXPECT_GT(hits, 1500);
}

}  // namespace
