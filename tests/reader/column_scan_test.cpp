// The pieces of the raw column scan against the library's floor/ceil and the windowed
// fold; whole views against the windowed path are compared with the other accelerations.

#include "reader/column_scan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

template <class T>
bool SameBits(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// The fold of the windowed path: the first sample starts both extremes, FoldExtremes the rest.
template <class T>
MinMaxData<T> WindowedFold(const T* samples, uint64_t count) {
    T lo = samples[0], hi = samples[0];
    FoldExtremes(samples + 1, count - 1, lo, hi);
    return {lo, hi};
}

TEST(ColumnScan, SpanIsFloorAndCeilOverTheWholeRange) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> fraction(0.0, 1.0);
    const double scales[] = {1.0, 100.0, 1e6, 1e12, 4503599627370496.0, 1e17};
    for (const double scale : scales) {
        for (int i = 0; i < 2000; ++i) {
            double x = std::floor(fraction(random) * scale);
            if (i % 3 != 0) x += fraction(random);  // whole positions too
            double y = x + (i % 5 == 0 ? 0.0 : fraction(random) * 50.0);
            if (i % 7 == 0) y = std::floor(y);
            if (y < x) y = x;
            uint64_t first = 0, last = 0;
            column_scan::Span(x, y, first, last);
            EXPECT_EQ(first, static_cast<uint64_t>(std::floor(x))) << x;
            EXPECT_EQ(last, static_cast<uint64_t>(std::ceil(y))) << y;
        }
    }
}

TEST(ColumnScan, FoldRunKeepsTheFirstOfEqualExtremesAndSkipsALaterNaN) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> zeros = {0.0f, -0.0f, 1.0f, -0.0f};
    MinMaxData<float> r = column_scan::FoldRun(zeros.data(), 2);
    EXPECT_FALSE(std::signbit(r.min) || std::signbit(r.max));  // +0 came first
    r = column_scan::FoldRun(zeros.data() + 1, 3);
    EXPECT_TRUE(std::signbit(r.min) && r.max == 1.0f);
    const std::vector<float> later_nan = {3.0f, nan, -2.0f, nan, 5.0f};
    r = column_scan::FoldRun(later_nan.data(), later_nan.size());
    EXPECT_TRUE(r.min == -2.0f && r.max == 5.0f);
    r = column_scan::FoldRun(later_nan.data() + 1, 4);  // a NaN first stays on both sides
    EXPECT_TRUE(std::isnan(r.min) && std::isnan(r.max));

    // Random runs of few distinct values (both zeros, NaN, infinities), short and long.
    std::mt19937 random(11);
    const float alphabet[] = {0.0f, -0.0f, nan, 1.0f, -1.0f, std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 0.5f};
    std::vector<float> run(80);
    for (int trial = 0; trial < 3000; ++trial) {
        for (float& v : run) v = alphabet[random() % 8];
        const uint64_t count = 1 + random() % run.size();
        const MinMaxData<float> want = WindowedFold(run.data(), count);
        const MinMaxData<float> got = column_scan::FoldRun(run.data(), count);
        ASSERT_TRUE(SameBits(got.min, want.min) && SameBits(got.max, want.max)) << "trial " << trial;
    }
}

}  // namespace
