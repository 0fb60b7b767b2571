#include "reader/level_information.h"

#include "reader/element_arithmetic.h"

#include <algorithm>
#include <cmath>

template <class T>
CBasicLevelInformation<T>::CBasicLevelInformation(CBasicWaveReader<T>* wave_reader)
    : m_waveReader(wave_reader), m_stats(std::make_unique<CLevelStatistics<T>>()) {}

template <class T>
CBasicLevelInformation<T>::~CBasicLevelInformation() = default;

template <class T>
double CBasicLevelInformation<T>::GetPercent() {
    return m_percentBase > 0 ? 100.0 * m_percentPart / m_percentBase : 0.0;
}

template <class T>
void CBasicLevelInformation<T>::Reset() {
    m_stats->Reset();
    m_start = 0;
    m_end = 0;
}

template <class T>
void CBasicLevelInformation<T>::GetResult(LevelResult& out) {
    using R = CBasicWaveReader<T>;
    const CLevelStatistics<T>& s = *m_stats;
    m_result.amplitude = R::T2Double(ElementSub(s.Top(), s.Base()));
    m_result.mean = R::T2Double(s.Mean());
    m_result.minimum = R::T2Double(s.Min());
    m_result.maximum = R::T2Double(s.Max());
    m_result.reserved = 0;
    m_result.top = R::T2Double(s.Top());
    m_result.base = R::T2Double(s.Base());
    m_result.peak_to_peak = R::T2Double(ElementSub(s.Max(), s.Min()));
    m_result.start_time = m_start;
    m_result.end_time = m_end;
    out = m_result;
}

template <class T>
void CBasicLevelInformation<T>::GetPeaks(std::vector<LevelPeak>& out) {
    for (const auto& peak : m_stats->Peaks())
        out.push_back(LevelPeak{CBasicWaveReader<T>::T2Double(peak.value), peak.count});
}

template <class T>
void CBasicLevelInformation<T>::AddRange(double start, double end) {
    double t = start;
    while (end > t) {
        m_data.clear();
        double b = t, e = end;
        m_waveReader->GetDataT(b, e, m_data, false);
        const double next = e + m_waveReader->SampleStep();
        if (m_data.empty()) break;
        m_stats->Accumulate(m_data.data(), m_data.size());
        // A step too small to move a time this large would read the same run forever.
        if (!(next > t)) break;
        t = next;
    }
    m_start = start;
    m_end = end;
}

template <class T>
double CBasicLevelInformation<T>::ReadWhole(double start, double end) {
    double origin = start;
    if (end > start) {
        double b = start, e = end;
        m_waveReader->GetDataT(b, e, m_data, false);
        if (!m_data.empty()) origin = b;
    }
    return origin;
}

template <class T>
void CBasicLevelInformation<T>::AccumulatePairs(const std::vector<double>& times, double origin, std::size_t first,
                                                std::size_t stride) {
    if (times.size() == 1) return;
    m_waveReader->Load();
    const double step = m_waveReader->SampleStep();
    for (std::size_t i = first; i + 1 < times.size(); i += stride) {
        const double samples = std::trunc((times[i + 1] - times[i] + 1e-9) / step);
        // A pair that ends before it begins (or is beyond 32 bits of samples) has no
        // block to feed: the accumulation ends there.
        if (!(samples >= 0.0 && samples < 4294967296.0)) return;
        const auto n = static_cast<uint32_t>(samples);
        const double offset = std::trunc((times[i] - origin + 1e-9) / step);
        // The block comes from the read when it lies within it; otherwise it is zeros.
        if (offset >= 0.0 && offset + n < static_cast<double>(m_data.size())) {
            const auto o = static_cast<std::size_t>(offset);
            m_stats->Accumulate(m_data.data() + o, n);
        } else {
            m_stats->AccumulateRepeated(T{}, n);
        }
    }
}

template <class T>
void CBasicLevelInformation<T>::AddSegments(double start, double end, std::vector<double> times) {
    const double origin = ReadWhole(start, end);
    AccumulatePairs(times, origin, 0, 2);
    m_start = origin;
    m_end = end;
}

template <class T>
void CBasicLevelInformation<T>::CalcPulseLevels(double start, double end, std::vector<double> times) {
    const double origin = ReadWhole(start, end);
    CLevelStatistics<T>& s = *m_stats;
    s.Reset();
    AccumulatePairs(times, origin, 0, 4);
    const double top = s.Sum() / s.Count();
    s.Reset();
    AccumulatePairs(times, origin, 2, 4);
    const double base = s.Sum() / s.Count();
    s.Reset();
    AddRange(origin, end);
    s.Analyse();
    s.SetTop(CBasicWaveReader<T>::Double2T(top));
    s.SetBase(CBasicWaveReader<T>::Double2T(base));
    m_start = origin;
    m_end = end;
}

template <class T>
void CBasicLevelInformation<T>::Calc(double start, double end, LevelResult& out) {
    Reset();
    AddRange(start, end);
    Analyse();
    GetResult(out);
}

template class CBasicLevelInformation<int8_t>;
template class CBasicLevelInformation<uint8_t>;
template class CBasicLevelInformation<int16_t>;
template class CBasicLevelInformation<uint16_t>;
template class CBasicLevelInformation<int32_t>;
template class CBasicLevelInformation<uint32_t>;
template class CBasicLevelInformation<int64_t>;
template class CBasicLevelInformation<uint64_t>;
template class CBasicLevelInformation<float>;
template class CBasicLevelInformation<double>;
template class CBasicLevelInformation<LongDouble>;
