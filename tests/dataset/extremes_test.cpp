// The in-order fold of min/max records: the same bits as a fold one record after the
// other, with ties of signed zeros, NaN fields and integer types, at every length.

#include "dataset/extremes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

template <class T>
MinMaxData<T> Sequential(const std::vector<MinMaxData<T>>& records, MinMaxData<T> running) {
    for (const auto& r : records) {
        if (r.min < running.min) running.min = r.min;
        if (r.max > running.max) running.max = r.max;
    }
    return running;
}

template <class T>
bool SameBits(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Values drawn from a few, so that extremes tie often; for the floating types zeros of
// both signs (the least of them) and NaN among them.
template <class T>
std::vector<MinMaxData<T>> Records(std::mt19937_64& rng, std::size_t count) {
    std::vector<MinMaxData<T>> records(count);
    auto value = [&]() -> T {
        const unsigned pick = rng() % 8;
        if constexpr (std::is_floating_point_v<T>) {
            if (pick == 0) return static_cast<T>(-0.0);
            if (pick == 1) return static_cast<T>(0.0);
            if (pick == 2 && rng() % 4 == 0) return std::numeric_limits<T>::quiet_NaN();
            return static_cast<T>(rng() % 3);
        }
        return static_cast<T>(static_cast<int>(rng() % 5) - (std::is_signed_v<T> ? 2 : 0));
    };
    for (auto& r : records) r = {value(), value()};
    return records;
}

template <class T>
void CompareWithSequential(uint64_t seed) {
    std::mt19937_64 rng(seed);
    int lane_ties = 0;
    for (int round = 0; round < 4000; ++round) {
        const auto records = Records<T>(rng, rng() % 70);
        MinMaxData<T> start{};
        if constexpr (std::is_floating_point_v<T>) {
            start = {std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity()};
            if (rng() % 4 == 0) start = {static_cast<T>(0.0), static_cast<T>(-0.0)};
        } else {
            start = {static_cast<T>(rng() % 3), static_cast<T>(rng() % 3)};
        }
        const MinMaxData<T> expected = Sequential(records, start);
        T lo = start.min, hi = start.max;
        FoldInOrder(records.data(), records.size(), lo, hi);
        ASSERT_TRUE(SameBits(lo, expected.min) && SameBits(hi, expected.max))
            << "round " << round << " count " << records.size() << ": " << +lo << " " << +hi << " vs "
            << +expected.min << " " << +expected.max;
        if (std::is_floating_point_v<T> && expected.min == 0 && records.size() >= 16) ++lane_ties;
    }
    if (std::is_floating_point_v<T>) {
        EXPECT_GT(lane_ties, 100) << "zeros of both signs must tie across lanes";
    }
}

TEST(FoldInOrder, SameBitsAsTheSequentialFold) {
    CompareWithSequential<float>(1);
    CompareWithSequential<double>(2);
    CompareWithSequential<int16_t>(3);
    CompareWithSequential<uint8_t>(4);
}

// A zero of one sign early in a late lane, the other sign early in the first lane: the
// first one met stays.
TEST(FoldInOrder, TheFirstZeroMetStaysWhicheverLaneHoldsIt) {
    std::vector<MinMaxData<float>> records(32, MinMaxData<float>{1.0f, -1.0f});
    records[3] = {-0.0f, -0.0f};  // lane 3, first
    records[4] = {0.0f, 0.0f};    // lane 0, later
    float lo = std::numeric_limits<float>::infinity(), hi = -lo;
    FoldInOrder(records.data(), records.size(), lo, hi);
    EXPECT_TRUE(std::signbit(lo));
    EXPECT_TRUE(std::signbit(hi));
    std::swap(records[3], records[4]);
    lo = std::numeric_limits<float>::infinity(), hi = -lo;
    FoldInOrder(records.data(), records.size(), lo, hi);
    EXPECT_FALSE(std::signbit(lo));
    EXPECT_FALSE(std::signbit(hi));
}

}  // namespace
