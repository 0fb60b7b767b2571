#include "reader/edge_information.h"

#include <cmath>

namespace {

bool Near(double a, double b) { return std::fabs(a - b) < 1e-12; }

}  // namespace

template <class T>
CInformationRead<T>::CInformationRead(CBasicWaveReader<T>* wave_reader, CBasicLevelInformation<T>* level_info)
    : m_waveReader(wave_reader), m_levelInfo(level_info) {}

template <class T>
void CInformationRead<T>::SetLevels(double highRatio, double lowRatio, double top, double base, double width) {
    using R = CBasicWaveReader<T>;
    m_levels[kTop] = R::Double2T(top);
    m_levels[kBase] = R::Double2T(base);
    m_highRatio = highRatio;
    m_lowRatio = lowRatio;
    m_width = width;
    const double t = static_cast<double>(m_levels[kTop]), b = static_cast<double>(m_levels[kBase]);
    m_levels[kHigh] = R::Double2T((t - b) * highRatio + b);
    m_levels[kLow] = R::Double2T((t - b) * lowRatio + b);
}

template <class T>
void CInformationRead<T>::CalcLevels(double start, double end, std::array<T, 4>& levels) {
    using R = CBasicWaveReader<T>;
    if (m_levelInfo) {
        m_levelInfo->Reset();
        m_levelInfo->AddRange(start, end);
        m_levelInfo->Analyse();
        levels[kTop] = m_levelInfo->Statistics().Top();
        levels[kBase] = m_levelInfo->Statistics().Base();
    }
    const double t = static_cast<double>(levels[kTop]), b = static_cast<double>(levels[kBase]);
    levels[kHigh] = R::Double2T((t - b) * m_highRatio + b);
    levels[kLow] = R::Double2T((t - b) * m_lowRatio + b);
}

template <class T>
bool CInformationRead<T>::ReadNeighbourhood(double time, double half) {
    m_data.clear();
    m_samples = 0;
    double begin = time - half, end = time + half;
    if (m_waveReader) m_waveReader->GetDataT(begin, end, m_data, false);
    m_dataTime = begin;
    if (m_data.empty()) return false;
    // A requested time before the samples served, or no sample period, gives the
    // anchor no place in the data.
    const double anchor = std::trunc((time - m_dataTime) / m_sampleTime);
    if (!(anchor >= 0.0 && anchor < 4611686018427387904.0)) {
        m_data.clear();
        return false;
    }
    m_anchor = static_cast<uint64_t>(anchor);
    m_samples = m_data.size();
    m_data.push_back(m_data.back());
    return true;
}

template <class T>
void CInformationRead<T>::StorePoint(int slot, int64_t position) {
    Point& point = m_points[static_cast<std::size_t>(slot)];
    const bool inside = position >= 0 && static_cast<uint64_t>(position) < m_data.size();
    point.value = inside ? m_data[static_cast<std::size_t>(position)] : InvalidValue<T>();
    point.time = static_cast<double>(position) * m_sampleTime + m_dataTime;
    point.time2 = point.time;
}

template <class T>
bool CInformationRead<T>::RisingWalk() {
    const auto n = static_cast<int64_t>(m_samples);
    const auto a = static_cast<int64_t>(m_anchor);
    const int64_t w = m_searchWidth;
    const double high = static_cast<double>(m_workLevels[kHigh]);
    const double low = static_cast<double>(m_workLevels[kLow]);
    const double top = static_cast<double>(m_workLevels[kTop]);
    const double base = static_cast<double>(m_workLevels[kBase]);
    auto at = [&](int64_t i) { return static_cast<double>(m_data[static_cast<std::size_t>(i)]); };

    const int64_t s = std::max<int64_t>(a - w, 0);
    // An anchor beyond the samples leaves the walk nothing to start from.
    if (s >= n) return false;
    int64_t high_crossing = -1, end_of_rise = 0;
    double p = at(s);
    for (int64_t i = s; i < n; ++i) {
        const double c = at(i);
        if (high_crossing < 0 && high > p && (c > high || Near(c, high))) high_crossing = i;
        if ((p > top || Near(p, top)) && (p > c || Near(c, p))) {
            end_of_rise = i - 1;
            break;
        }
        p = c;
    }
    const bool first_half = high_crossing >= 0;
    if (first_half) {
        StorePoint(2, end_of_rise);
        StorePoint(6, high_crossing);
    }

    // From a + w, brought back only when it lies beyond n: at n the walk starts on the
    // element after the samples.
    int64_t e = a + w;
    if (e > n) e = n - 1;
    int64_t low_crossing = -1, start_of_rise = 0;
    p = at(e);
    for (int64_t i = e; i >= 0; --i) {
        const double c = at(i);
        if (low_crossing < 0 && p > low && (low > c || Near(c, low))) low_crossing = i;
        if (c > p && (base > p || Near(p, base))) {
            start_of_rise = i + 1;
            break;
        }
        p = c;
    }
    const bool second_half = low_crossing >= 0;
    if (second_half) {
        StorePoint(5, start_of_rise);
        StorePoint(7, low_crossing);
    }
    return first_half && second_half;
}

template <class T>
bool CInformationRead<T>::FallingWalk() {
    const auto n = static_cast<int64_t>(m_samples);
    const auto a = static_cast<int64_t>(m_anchor);
    const int64_t w = m_searchWidth;
    const double high = static_cast<double>(m_workLevels[kHigh]);
    const double low = static_cast<double>(m_workLevels[kLow]);
    const double top = static_cast<double>(m_workLevels[kTop]);
    const double base = static_cast<double>(m_workLevels[kBase]);
    auto at = [&](int64_t i) { return static_cast<double>(m_data[static_cast<std::size_t>(i)]); };

    int64_t e = a + w;
    if (e >= n) e = n - 1;
    int64_t high_crossing = -1, start_of_fall = 0;
    double p = at(e);
    for (int64_t i = e; i >= 0; --i) {
        const double c = at(i);
        if (high_crossing < 0 && high > p && (c > high || Near(c, high))) high_crossing = i;
        if (p > c && (p > top || Near(p, top))) {
            start_of_fall = i + 1;
            break;
        }
        p = c;
    }
    const bool first_half = high_crossing >= 0;
    if (first_half) {
        StorePoint(4, start_of_fall);
        StorePoint(6, high_crossing);
    }

    const int64_t s = std::max<int64_t>(a - w, 0);
    if (s >= n) return false;
    int64_t low_crossing = -1, end_of_fall = 0;
    p = at(s);
    for (int64_t i = s; i < n; ++i) {
        const double c = at(i);
        if (low_crossing < 0 && p > low && (low > c || Near(c, low))) low_crossing = i;
        if ((base > p || Near(p, base)) && (c > p || Near(c, p))) {
            end_of_fall = i - 1;
            break;
        }
        p = c;
    }
    if (low_crossing < 0) return false;
    StorePoint(3, end_of_fall);
    StorePoint(7, low_crossing);
    return first_half;
}

template <class T>
bool CInformationRead<T>::Analyse(double time, int edgeType) {
    m_sampleTime = m_waveReader && m_waveReader->GetTools() ? m_waveReader->GetTools()->GetSampleTime() : 0.0;
    m_halfWindow = m_halfWindow2 = m_width * 1e-9 * 0.5;
    m_workLevels = m_levels;
    if (!ReadNeighbourhood(time, m_halfWindow)) return false;
    if (edgeType != 1 && edgeType != 2) return true;
    auto walk = [&] { return edgeType == 1 ? RisingWalk() : FallingWalk(); };
    if (walk()) return true;
    // Levels of the neighbourhood itself, and a wider look.
    CalcLevels(time - m_halfWindow, time + m_halfWindow, m_workLevels);
    if (!ReadNeighbourhood(time, m_halfWindow + m_halfWindow2)) return false;
    return walk();
}

// ---------------------------------------------------------------------------------------

template <class T>
CBasicEdgeInformation<T>::CBasicEdgeInformation(CBasicWaveReader<T>* wave_reader,
                                                CBasicLevelInformation<T>* level_info)
    : m_waveReader(wave_reader),
      m_levelInfo(level_info),
      m_info(std::make_unique<CInformationRead<T>>(m_waveReader.get(), m_levelInfo.get())) {}

template <class T>
CBasicEdgeInformation<T>::~CBasicEdgeInformation() = default;

template <class T>
void CBasicEdgeInformation<T>::SetBaseRange(double begin, double end) {
    if (m_waveReader) m_waveReader->SetBaseRange(begin, end);
    if (m_levelInfo) m_levelInfo->SetBaseRange(begin, end);
}

template <class T>
void CBasicEdgeInformation<T>::SetZeroPosition(double position, TimeMode mode) {
    if (m_waveReader) m_waveReader->SetZeroPosition(position, mode);
    if (m_levelInfo) m_levelInfo->SetZeroPosition(position, mode);
}

template <class T>
void CBasicEdgeInformation<T>::SetAxis(IDatasetAxis* axis) {
    if (m_waveReader) m_waveReader->SetAxis(axis);
    if (m_levelInfo) m_levelInfo->SetAxis(axis);
}

template <class T>
void CBasicEdgeInformation<T>::SetLevels(double highRatio, double lowRatio, double top, double base, double width) {
    if (m_info) m_info->SetLevels(highRatio, lowRatio, top, base, width);
}

template <class T>
bool CBasicEdgeInformation<T>::CalcLevels(double start, double end) {
    if (!m_info) return false;
    m_info->CalcLevels(start, end);
    return true;
}

template <class T>
bool CBasicEdgeInformation<T>::Analyse(double time, int edgeType) {
    return m_info && m_info->Analyse(time, edgeType);
}

template <class T>
void CBasicEdgeInformation<T>::GetEdgeInfo(std::vector<EdgePoint>& out) {
    out.clear();
    if (!m_info) return;
    for (const auto& point : m_info->Points())
        out.push_back(EdgePoint{CBasicWaveReader<T>::T2Double(point.value), point.time, point.time2});
}

#define WAVESTORE_EDGE_INFORMATION(T) \
    template class CInformationRead<T>; \
    template class CBasicEdgeInformation<T>
WAVESTORE_EDGE_INFORMATION(int8_t);
WAVESTORE_EDGE_INFORMATION(uint8_t);
WAVESTORE_EDGE_INFORMATION(int16_t);
WAVESTORE_EDGE_INFORMATION(uint16_t);
WAVESTORE_EDGE_INFORMATION(int32_t);
WAVESTORE_EDGE_INFORMATION(uint32_t);
WAVESTORE_EDGE_INFORMATION(int64_t);
WAVESTORE_EDGE_INFORMATION(uint64_t);
WAVESTORE_EDGE_INFORMATION(float);
WAVESTORE_EDGE_INFORMATION(double);
WAVESTORE_EDGE_INFORMATION(LongDouble);
