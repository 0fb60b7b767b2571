// A computed wave read like a pushed one: its storages equal those of the same
// difference pushed through the producer, and its min/max views equal the reference's
// and a brute-force min/max of left - right.

#include "math_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using namespace math_test;

std::vector<float> Noise(std::size_t count, uint32_t seed) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        seed = seed * 1664525u + 1013904223u;
        values[i] = std::sin(0.003f * static_cast<float>(i)) * 50.0f + static_cast<float>(seed >> 26);
    }
    return values;
}

MinMaxData<double> Extremes(const std::vector<float>& v, uint64_t lo, uint64_t hi) {
    hi = std::min<uint64_t>(hi, v.size() - 1);
    const auto [mn, mx] = std::minmax_element(v.begin() + static_cast<std::ptrdiff_t>(lo),
                                              v.begin() + static_cast<std::ptrdiff_t>(hi) + 1);
    return {*mn, *mx};
}

template <class R>
void ExpectSameRecords(const std::shared_ptr<StorageBase>& a, const std::shared_ptr<StorageBase>& b, const char* what) {
    const auto x = ReadAll<R>(a), y = ReadAll<R>(b);
    ASSERT_EQ(x.size(), y.size()) << what;
    EXPECT_EQ(std::memcmp(x.data(), y.data(), x.size() * sizeof(R)), 0) << what;
}

bool SameColumn(const MinMaxData<double>& a, const MinMaxData<double>& b) {
    auto same = [](double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); };
    return same(a.min, b.min) && same(a.max, b.max);
}

class MathView : public ::testing::Test {
protected:
    static constexpr std::size_t kFirst = 40000, kSecond = 30000;
    static constexpr double kSecondStart = 100.0;  // on the grid of 100-sample entries

    void SetUp() override {
        const std::vector<float> a1 = Noise(kFirst, 1), b1 = Noise(kFirst, 2);
        const std::vector<float> a2 = Noise(kSecond, 3), b2 = Noise(kSecond, 4);
        left.Run(0.0, a1).Run(kSecondStart, a2);
        right.Run(0.0, b1).Run(kSecondStart, b2);
        for (std::size_t i = 0; i < kFirst; ++i) first.push_back(a1[i] - b1[i]);
        for (std::size_t i = 0; i < kSecond; ++i) second.push_back(a2[i] - b2[i]);
        pushed.Run(0.0, first).Run(kSecondStart, second);
        m.Link(left.item.get(), right.item.get());
        m.math->CalcRange(0.0, 1000.0);
        computed = QueryInterface<CBasicWaveReader<float>>(m.item.get());
        reference = QueryInterface<CBasicWaveReader<float>>(pushed.item.get());
    }

    // The view of [begin, end] in columns from both readers; they must agree.
    std::vector<MinMaxData<double>> View(double begin, double end, unsigned columns, unsigned char whole = 0) {
        std::vector<MinMaxData<double>> out, want;
        double b = begin, e = end;
        computed->GetMinMaxData(b, e, out, columns, GetDataParam{}, whole);
        double rb = begin, re = end;
        reference->GetMinMaxData(rb, re, want, columns, GetDataParam{}, whole);
        EXPECT_EQ(b, rb);
        EXPECT_EQ(e, re);
        EXPECT_EQ(out.size(), want.size());
        for (std::size_t i = 0; i < std::min(out.size(), want.size()); ++i)
            EXPECT_TRUE(SameColumn(out[i], want[i])) << "column " << i << " of " << begin << ".." << end;
        return out;
    }

    Source<float> left{kPeriod, 100}, right{kPeriod, 100}, pushed{kPeriod, 100};
    Math<float, 1> m{kPeriod, 100};
    std::vector<float> first, second;
    Ctr<CBasicWaveReader<float>> computed, reference;
};

TEST_F(MathView, TheStoragesEqualThoseOfThePushedDifference) {
    ExpectSameRecords<float>(m.math->GetStorage("Wave"), pushed.dataset->GetStorage("Wave"), "Wave");
    ExpectSameRecords<MinMaxData<float>>(m.math->GetStorage("Index"), pushed.dataset->GetStorage("Index"), "Index");
    ExpectSameRecords<ValidDataArea>(m.math->GetStorage("Area"), pushed.dataset->GetStorage("Area"), "Area");
}

TEST_F(MathView, IndexServedColumnsAreTheExtremesOfTheirSamples) {
    const auto out = View(0.0, (kFirst - 1) * kPeriod, 37);
    ASSERT_EQ(out.size(), 37u);
    ASSERT_GE(computed->PointsPerColumn(), 100.0);
    double x = 0;  // column boundaries run on a sum, as the reader's do
    for (std::size_t i = 0; i < out.size(); ++i, x += computed->PointsPerColumn()) {
        const auto want = Extremes(first, std::llround(x), std::llround(std::min(x + computed->PointsPerColumn(),
                                                                                  double(kFirst)) - 1.0));
        EXPECT_EQ(out[i].min, want.min) << i;
        EXPECT_EQ(out[i].max, want.max) << i;
    }
}

TEST_F(MathView, ScannedColumnsAreTheExtremesOfTheirSamples) {
    const double begin = kSecondStart, end = kSecondStart + 19999 * kPeriod;
    const auto out = View(begin, end, 700);
    ASSERT_EQ(out.size(), 700u);
    ASSERT_LT(computed->PointsPerColumn(), 100.0);
    double x = 0;
    for (std::size_t i = 0; i < out.size(); ++i, x += computed->PointsPerColumn()) {
        const auto want = Extremes(second, static_cast<uint64_t>(std::floor(x)),
                                   static_cast<uint64_t>(std::ceil(std::min(20000.0, computed->PointsPerColumn() + x - 1))));
        EXPECT_EQ(out[i].min, want.min) << i;
        EXPECT_EQ(out[i].max, want.max) << i;
    }
}

TEST_F(MathView, WholeRangeViewsGiveEachAreaItsExtremesAndTheGapNaN) {
    const double end = kSecondStart + (kSecond - 1) * kPeriod;
    const auto pieces = View(0.0, end, 3, 1);
    ASSERT_EQ(pieces.size(), 3u);
    const auto a = Extremes(first, 0, kFirst - 1), b = Extremes(second, 0, kSecond - 1);
    EXPECT_EQ(pieces[0].min, a.min);
    EXPECT_EQ(pieces[0].max, a.max);
    EXPECT_TRUE(std::isnan(pieces[1].min));
    EXPECT_EQ(pieces[2].min, b.min);
    EXPECT_EQ(pieces[2].max, b.max);

    // Views across the gap and into the second area agree with the pushed wave.
    const auto across = View(50.0, end, 1000);
    EXPECT_EQ(std::count_if(across.begin(), across.end(), [](const auto& c) { return std::isnan(c.max); }) > 0, true);
    View(kSecondStart + 1.0, kSecondStart + 40.0, 250);
    View(10.0, 60.0, 1000);
}

}  // namespace
