#pragma once
// CEdgeFinder<T>: finds the next or the previous edge of a wave around a level with a
// hysteresis, through the crossing search of a CBasicWaveReader<T>.
//
// An edge is a passage of both levels: rising (type 1) passes the lower level, then the
// upper; falling (type 2) the upper, then the lower. The filter of a search is 1
// (rising only), 2 (falling only) or 3 (both). The edge's time is the first sample
// between the two crossings that has reached the level passed last.
//
// Kept as they stand, because callers rely on them:
//  - a search with filter 1 or 2 does not set the answer's type: it repeats the type of
//    the search before (0 before any), and the edge time is decided with that type too;
//  - with filter 1 or 2 only a forward search sharpens the time of its first crossing
//    (LastCrossing): a backward one hands it the later time first, which comes back as
//    it is;
//  - a jump across both levels within one sample is typed by comparing with the value 10
//    sample times before (at least: falling) forward, 2 sample times before (greater:
//    falling) backward; only forward, a jump at the search's own start looks for the
//    other level beyond it.
// All comparisons called near mean |a - b| < 1e-12.

#include "dataset/dataset_tool.h"
#include "reader/basic_wave_reader.h"

#include <cstdint>

// The answer of a search: the edge's type and time (seconds).
struct EdgeAnswer {
    uint8_t type = 0;
    double time = 0.0;
};

template <class T>
class CEdgeFinder {
public:
    CEdgeFinder(CBasicWaveReader<T>* wave_reader, __internal::DataSetTool* tools);

    // The two levels that a wave must pass: upper = level + hysteresis and lower = level -
    // hysteresis, in T.
    void SetLevels(T level, T hysteresis);

    // The next edge after t, or the previous one before t, of the filter's kind; false
    // if there is none. The result is Answer().
    bool NextEdge(double t, unsigned int filter);
    bool PrevEdge(double t, unsigned int filter);

    // Sharpens the time at which the wave left value on its way from first to second:
    // the last crossing of value at or before second, at most as many as the samples
    // between them allow. first is returned as it is when it lies behind second.
    double LastCrossing(double first, double second, T value);
    // The time of the edge between the crossings a and b: the first sample from the
    // earlier to the later one that reached the upper level (type 1) or the lower level
    // (any other type).
    double EdgeTimeBetween(double a, double b, uint8_t type);

    const EdgeAnswer& Answer() const { return m_answer; }
    T Upper() const { return m_upper; }
    T Lower() const { return m_lower; }
    T Level() const { return m_level; }
    T Hysteresis() const { return m_hysteresis; }

private:
    double SampleTime() const;
    bool Find(T value, double from, double& result, bool forward);
    double ValueAt(double t);
    // The edge of filter 1 or 2 from t in the given direction.
    bool FilteredEdge(double t, unsigned int filter, bool forward);
    // The edge between the upper level's crossing u and the lower level's l.
    bool EdgeBetween(double u, double l);

    T m_upper{};
    T m_lower{};
    T m_level{};
    T m_hysteresis{};
    CBasicWaveReader<T>* m_waveReader;  // not owned
    EdgeAnswer m_answer;
    __internal::DataSetTool* m_tools;  // the wave reader's
};

extern template class CEdgeFinder<int8_t>;
extern template class CEdgeFinder<uint8_t>;
extern template class CEdgeFinder<int16_t>;
extern template class CEdgeFinder<uint16_t>;
extern template class CEdgeFinder<int32_t>;
extern template class CEdgeFinder<uint32_t>;
extern template class CEdgeFinder<int64_t>;
extern template class CEdgeFinder<uint64_t>;
extern template class CEdgeFinder<float>;
extern template class CEdgeFinder<double>;
extern template class CEdgeFinder<LongDouble>;
