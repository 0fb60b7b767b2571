#pragma once
// CLevelStatistics<T>: the two levels of a pulse wave, from a histogram of its samples.
//
// Samples are accumulated one by one: every distinct value with its number of
// occurrences, the extremes, the sum and the count. Analyse makes a histogram of 256
// bins over [min, max], searches its peaks by splitting it into runs of bins above a
// rising threshold, and takes top and base from the strongest peaks above and below
// the middle of the peak values, or of the mean when the two peaks are more than ten
// times apart in weight.
//
// Kept as they stand: the first accumulated sample sets only the maximum (the minimum
// is taken from the samples after it); a histogram of equal minimum and maximum puts
// every value into the last bin; Analyse consumes the distinct values, so that a second
// Analyse without new samples is false.

#include "dataset/element_types.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

template <class T>
class CLevelStatistics {
public:
    struct Peak {
        T value;
        uint32_t count;
    };
    struct Bin {
        uint32_t index;
        uint32_t count;
    };

    CLevelStatistics();

    // The start state: no values, extremes at their far ends, sums and levels 0.
    void Reset();
    void Accumulate(const T* samples, std::size_t count);
    // Accumulates value count times, as a block of that many equal samples.
    void AccumulateRepeated(T value, uint64_t count);
    // Histogram, peaks, top and base; false when no sample was accumulated.
    bool Analyse();

    // The peak search over a run of bins whose counts lie above threshold.
    void SplitRuns(const std::vector<Bin>& bins, uint32_t threshold);
    // One peak from a run of bins: the count-weighted index of the strongest bins that
    // hold 85 percent of the run.
    void MakePeak(std::vector<Bin> bins);

    double Sum() const { return m_sum; }
    double Count() const { return m_count; }
    double BinWidth() const { return m_binWidth; }
    uint32_t BinCount() const { return m_binCount; }
    uint32_t MinPeakCount() const { return m_minPeakCount; }
    uint32_t PeakCount() const { return m_peakCount; }
    const std::vector<Peak>& Peaks() const { return m_peaks; }
    std::size_t DistinctValues() const { return m_values.size(); }
    T Top() const { return m_top; }
    T Base() const { return m_base; }
    T Min() const { return m_min; }
    T Max() const { return m_max; }
    T Mean() const { return m_mean; }
    void SetTop(T value) { m_top = value; }
    void SetBase(T value) { m_base = value; }

private:
    struct KeyHash {
        std::size_t operator()(const T& value) const;
    };
    struct KeyEqual {
        bool operator()(const T& a, const T& b) const;
    };
    // Top and base from the peaks sorted by value, descending, split at middle.
    void PickLevels(double middle, double& best_low, double& best_high);

    double m_sum = 0;
    double m_count = 0;
    double m_binWidth = 0;
    uint32_t m_binCount = 0;
    uint32_t m_maxGap = 1;
    uint32_t m_minPeakCount = 2;
    uint32_t m_peakCount = 0;
    T m_top{};
    T m_base{};
    T m_min{};
    T m_max{};
    T m_mean{};
    std::unordered_map<T, uint32_t, KeyHash, KeyEqual> m_values;
    std::vector<Peak> m_peaks;
};

extern template class CLevelStatistics<int8_t>;
extern template class CLevelStatistics<uint8_t>;
extern template class CLevelStatistics<int16_t>;
extern template class CLevelStatistics<uint16_t>;
extern template class CLevelStatistics<int32_t>;
extern template class CLevelStatistics<uint32_t>;
extern template class CLevelStatistics<int64_t>;
extern template class CLevelStatistics<uint64_t>;
extern template class CLevelStatistics<float>;
extern template class CLevelStatistics<double>;
extern template class CLevelStatistics<LongDouble>;
