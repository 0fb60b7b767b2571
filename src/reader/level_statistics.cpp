#include "reader/level_statistics.h"

#include "reader/basic_wave_reader.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>

namespace {

// The largest finite double (or its negative), as far as T reaches.
template <class T>
T FarEnd(bool high) {
    if constexpr (std::is_same_v<T, float>)
        return high ? FLT_MAX : -FLT_MAX;
    else if constexpr (kIsFloatingElement<T>)
        return static_cast<T>(high ? DBL_MAX : -DBL_MAX);
    else
        return high ? std::numeric_limits<T>::max() : std::numeric_limits<T>::lowest();
}

}  // namespace

template <class T>
std::size_t CLevelStatistics<T>::KeyHash::operator()(const T& value) const {
    const double v = static_cast<double>(value);
    if (std::isnan(v)) return 0x7ff8;
    return std::hash<double>()(v);
}

template <class T>
bool CLevelStatistics<T>::KeyEqual::operator()(const T& a, const T& b) const {
    if constexpr (kIsFloatingElement<T>) {
        const double x = static_cast<double>(a), y = static_cast<double>(b);
        return x == y || (std::isnan(x) && std::isnan(y));
    } else {
        return a == b;
    }
}

template <class T>
CLevelStatistics<T>::CLevelStatistics() : m_min(FarEnd<T>(true)), m_max(FarEnd<T>(false)) {}

template <class T>
void CLevelStatistics<T>::Reset() {
    m_values.clear();
    m_min = FarEnd<T>(true);
    m_max = FarEnd<T>(false);
    m_top = T{};
    m_base = T{};
    m_mean = T{};
    m_sum = 0;
    m_count = 0;
}

template <class T>
void CLevelStatistics<T>::Accumulate(const T* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const T v = samples[i];
        ++m_values[v];
        if (v > m_max)
            m_max = v;
        else if (m_min > v)
            m_min = v;
        m_count += 1.0;
        m_sum += static_cast<double>(v);
    }
}

template <class T>
void CLevelStatistics<T>::AccumulateRepeated(T value, uint64_t count) {
    // The first two samples settle the extremes; the rest only add to the counts.
    const uint64_t direct = std::min<uint64_t>(count, 2);
    for (uint64_t i = 0; i < direct; ++i) Accumulate(&value, 1);
    const uint64_t rest = count - direct;
    if (rest == 0) return;
    m_values[value] += static_cast<uint32_t>(rest);
    m_count += static_cast<double>(rest);
    m_sum += static_cast<double>(value) * static_cast<double>(rest);
}

template <class T>
bool CLevelStatistics<T>::Analyse() {
    if (m_values.empty()) return false;
    m_peaks.clear();
    constexpr uint32_t kBins = 256;
    std::vector<Bin> table(kBins);
    for (uint32_t i = 0; i < kBins; ++i) table[i] = Bin{i, 0};
    m_binCount = kBins;
    const double low = static_cast<double>(m_min);
    m_binWidth = (static_cast<double>(m_max) - low) * 0.00390625;

    double weighted = 0, total = 0;
    for (const auto& [value, count] : m_values) {
        const double v = static_cast<double>(value);
        weighted += static_cast<double>(count) * v;
        total += count;
        // Without a spread the quotient is no number; such a value (as one beyond the
        // range) goes to the last bin.
        const double position = std::trunc((v - low) / m_binWidth);
        const uint32_t bin = position >= 0.0 && position < 255.0 ? static_cast<uint32_t>(position) : 255u;
        table[bin].count += count;
    }
    m_mean = CBasicWaveReader<T>::Double2T(weighted / total);

    const uint64_t per_bin = static_cast<uint64_t>(total) / kBins;
    m_minPeakCount = per_bin == 0 ? 1u : per_bin >= 6 ? 5u : static_cast<uint32_t>(per_bin);

    SplitRuns(table, m_minPeakCount);
    m_peakCount = static_cast<uint32_t>(m_peaks.size());

    if (m_peaks.size() == 1) {
        m_top = m_base = m_peaks.front().value;
    } else if (m_peaks.size() >= 2) {
        std::stable_sort(m_peaks.begin(), m_peaks.end(), [](const Peak& a, const Peak& b) {
            return static_cast<double>(a.value) > static_cast<double>(b.value);
        });
        const double middle =
            (static_cast<double>(m_peaks.front().value) + static_cast<double>(m_peaks.back().value)) * 0.5;
        double best_low = 0, best_high = 0;
        PickLevels(middle, best_low, best_high);
        if (best_low / best_high > 10.0 || 0.1 > best_high / best_low) {
            // The two levels are out of proportion: split at the mean instead.
            m_top = T{};
            m_base = T{};
            best_low = best_high = 0;
            PickLevels(static_cast<double>(m_mean), best_low, best_high);
        }
    }
    m_values.clear();
    return true;
}

template <class T>
void CLevelStatistics<T>::PickLevels(double middle, double& best_low, double& best_high) {
    for (const Peak& peak : m_peaks) {
        const double value = static_cast<double>(peak.value);
        if (value < middle && peak.count > best_low) {
            m_base = peak.value;
            best_low = peak.count;
        } else if (value >= middle && peak.count >= best_high) {
            m_top = peak.value;
            best_high = peak.count;
        }
    }
}

template <class T>
void CLevelStatistics<T>::SplitRuns(const std::vector<Bin>& bins, uint32_t threshold) {
    if (bins.size() <= static_cast<std::size_t>(m_maxGap) + 1) {
        MakePeak(bins);
        return;
    }
    int32_t best = static_cast<int32_t>(bins.front().count);
    for (;;) {
        int32_t low = 0x7fffffff;
        for (std::size_t i = 1; i < bins.size(); ++i) {
            const auto count = static_cast<int32_t>(bins[i].count);
            if (bins[i].count >= threshold && count < low) low = count;
            best = std::max(best, count);
        }
        if (best < 2 * static_cast<int64_t>(low) || low >= best) {
            MakePeak(bins);  // no contrast left: a single peak
            return;
        }
        threshold = static_cast<uint32_t>(low);

        std::vector<Bin> run;
        uint32_t passed = 0;
        bool previous_above = false;
        for (const Bin& bin : bins) {
            const bool above = bin.count > threshold;
            if (above) {
                if (!previous_above && !run.empty() && passed >= m_maxGap) {
                    SplitRuns(run, threshold);
                    run.clear();
                }
                run.push_back(bin);
                passed = 0;
            } else {
                ++passed;
            }
            previous_above = above;
        }
        if (!run.empty()) {
            SplitRuns(run, threshold);
            return;
        }
    }
}

template <class T>
void CLevelStatistics<T>::MakePeak(std::vector<Bin> bins) {
    std::stable_sort(bins.begin(), bins.end(), [](const Bin& a, const Bin& b) { return a.count > b.count; });
    uint64_t total = 0;
    for (const Bin& bin : bins) total += bin.count;
    const auto limit = static_cast<uint64_t>(static_cast<double>(total) * 0.85 + 0.99);
    uint64_t sum = 0, weighted = 0, taken = 0;
    for (const Bin& bin : bins) {
        if (sum >= limit && taken >= 3) break;
        sum += bin.count;
        weighted += static_cast<uint64_t>(bin.count) * bin.index;
        ++taken;
    }
    // A run of empty bins has no centre.
    if (sum == 0) return;
    const uint64_t index = weighted / sum;
    const double value = static_cast<double>(index) * m_binWidth + static_cast<double>(m_min);
    m_peaks.push_back(Peak{CBasicWaveReader<T>::Double2T(value), static_cast<uint32_t>(sum)});
}

template class CLevelStatistics<int8_t>;
template class CLevelStatistics<uint8_t>;
template class CLevelStatistics<int16_t>;
template class CLevelStatistics<uint16_t>;
template class CLevelStatistics<int32_t>;
template class CLevelStatistics<uint32_t>;
template class CLevelStatistics<int64_t>;
template class CLevelStatistics<uint64_t>;
template class CLevelStatistics<float>;
template class CLevelStatistics<double>;
template class CLevelStatistics<LongDouble>;
