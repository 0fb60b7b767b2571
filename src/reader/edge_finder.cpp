#include "reader/edge_finder.h"

#include "dataset/time_rules.h"
#include "reader/element_arithmetic.h"

#include <cmath>
#include <vector>

namespace {

bool Near(double a, double b) { return std::fabs(a - b) < 1e-12; }

}  // namespace

template <class T>
CEdgeFinder<T>::CEdgeFinder(CBasicWaveReader<T>* wave_reader, __internal::DataSetTool* tools)
    : m_waveReader(wave_reader), m_tools(tools) {}

template <class T>
void CEdgeFinder<T>::SetLevels(T level, T hysteresis) {
    m_level = level;
    m_hysteresis = hysteresis;
    m_upper = ElementAdd(level, hysteresis);
    m_lower = ElementSub(level, hysteresis);
}

template <class T>
double CEdgeFinder<T>::SampleTime() const {
    return m_tools ? m_tools->GetSampleTime() : 0.0;
}

template <class T>
bool CEdgeFinder<T>::Find(T value, double from, double& result, bool forward) {
    return m_waveReader != nullptr && m_waveReader->FindT(value, from, result, forward);
}

template <class T>
double CEdgeFinder<T>::ValueAt(double t) {
    T value = InvalidValue<T>();
    if (m_waveReader) m_waveReader->AtT(t, &value);
    return static_cast<double>(value);
}

template <class T>
double CEdgeFinder<T>::LastCrossing(double first, double second, T value) {
    const int64_t sample_ns = SecondsToNs(SampleTime());
    // Without a sample period of at least one nanosecond there is nothing to count by.
    if (sample_ns == 0) return first;
    int64_t count = 2 - SecondsToNs(first - second) / sample_ns;
    if (count == 0) return first;
    double c = first;
    double last = first;
    for (;;) {
        if (c > second || Near(c, second)) break;
        last = c;
        if (!Find(value, c, c, true)) break;
        if (--count == 0) break;
    }
    return last;
}

template <class T>
double CEdgeFinder<T>::EdgeTimeBetween(double a, double b, uint8_t type) {
    if (a == b) return b;
    double lo = a < b ? a : b;
    double hi = a < b ? b : a;
    std::vector<T> values;
    if (m_waveReader) m_waveReader->GetDataT(lo, hi, values, false);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double v = static_cast<double>(values[i]);
        const bool reached = type == 1 ? (v > static_cast<double>(m_upper) || Near(v, static_cast<double>(m_upper)))
                                       : (v < static_cast<double>(m_lower) || Near(v, static_cast<double>(m_lower)));
        if (reached) return SampleTime() * static_cast<double>(i) + lo;
    }
    if (values.size() == 0x40000) return b;
    return hi;
}

template <class T>
bool CEdgeFinder<T>::FilteredEdge(double t, unsigned int filter, bool forward) {
    // Filter 1 (rising): the lower level, then the upper one beyond it; filter 2 the reverse.
    const T first = filter == 1 ? m_lower : m_upper;
    const T second = filter == 1 ? m_upper : m_lower;
    double x = 0, y = 0;
    if (!Find(first, t, x, forward) || !Find(second, x, y, forward)) return false;
    x = LastCrossing(x, y, first);
    m_answer.time = filter == 1 ? EdgeTimeBetween(x, y, m_answer.type) : EdgeTimeBetween(y, x, m_answer.type);
    return true;
}

template <class T>
bool CEdgeFinder<T>::EdgeBetween(double u, double l) {
    // The later of the two crossings ends the edge; it starts at the other level's last crossing.
    if (u > l) {
        l = LastCrossing(l, u, m_lower);
        m_answer.type = 1;
    } else {
        u = LastCrossing(u, l, m_upper);
        m_answer.type = 2;
    }
    m_answer.time = EdgeTimeBetween(l, u, m_answer.type);
    return true;
}

template <class T>
bool CEdgeFinder<T>::NextEdge(double t, unsigned int filter) {
    if (filter == 1 || filter == 2) return FilteredEdge(t, filter, true);
    double u = 0, l = 0;
    if (!Find(m_upper, t, u, true) || !Find(m_lower, t, l, true)) return false;
    if (Near(u, l)) {
        // Both levels within one sample.
        if (u - t <= 3 * SampleTime()) {
            // The crossing at the search's own position: the other level beyond it.
            double time = 0;
            if (m_answer.type == 2) {
                if (!Find(m_lower, u, time, true)) return false;
                m_answer.type = 1;
            } else {
                if (!Find(m_upper, u, time, true)) return false;
                m_answer.type = 2;
            }
            m_answer.time = time;
            return true;
        }
        const double later = ValueAt(u);
        const double earlier = ValueAt(u - 10 * SampleTime());
        m_answer.type = earlier >= later ? 2 : 1;
        m_answer.time = l;
        return true;
    }
    return EdgeBetween(u, l);
}

template <class T>
bool CEdgeFinder<T>::PrevEdge(double t, unsigned int filter) {
    if (filter == 1 || filter == 2) return FilteredEdge(t, filter, false);
    double u = 0, l = 0;
    if (!Find(m_upper, t, u, false) || !Find(m_lower, t, l, false)) return false;
    if (Near(u, l)) {
        const double later = ValueAt(u);
        const double earlier = ValueAt(u - 2 * SampleTime());
        m_answer.type = earlier > later ? 2 : 1;
        m_answer.time = l;
        return true;
    }
    return EdgeBetween(u, l);
}

template class CEdgeFinder<int8_t>;
template class CEdgeFinder<uint8_t>;
template class CEdgeFinder<int16_t>;
template class CEdgeFinder<uint16_t>;
template class CEdgeFinder<int32_t>;
template class CEdgeFinder<uint32_t>;
template class CEdgeFinder<int64_t>;
template class CEdgeFinder<uint64_t>;
template class CEdgeFinder<float>;
template class CEdgeFinder<double>;
template class CEdgeFinder<LongDouble>;
