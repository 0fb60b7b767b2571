#pragma once
// CBasicEdgeInformation<T>: measures one edge in detail. Given a time near an edge it
// reads a small neighbourhood of samples and finds the start and the end of the
// transition and the crossings of its high and low thresholds (the points that rise and
// fall times are measured between). The work is done by CInformationRead<T>.
//
// The thresholds are shares (0.9 and 0.1 by default) of the amplitude between top and
// base, which SetLevels gives or CalcLevels measures with the level information. When a
// walk fails on the caller's levels, the levels of the neighbourhood itself are measured
// and the walk runs once more on a wider neighbourhood.
//
// The ten points of GetEdgeInfo, by slot: 2 end of a rise, 3 end of a fall, 4 start of a
// fall, 5 start of a rise, 6 crossing of the high threshold, 7 crossing of the low
// threshold; 0, 1, 8 and 9 stay 0. The points of the last successful walk stay until a
// later walk overwrites them: a failed walk leaves the slots that it didn't reach.

#include "host/logger.h"
#include "reader/basic_wave_reader.h"
#include "reader/level_information.h"
#include "reader/piece_reader.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

// One point of an edge: a value (NaN for no data) and its time, given twice.
struct EdgePoint {
    double value = 0;
    double time = 0;
    double time2 = 0;
};

class IBasicEdgeInformation : public IPieceReader {
public:
    virtual void SetLevels(double highRatio, double lowRatio, double top, double base, double width) = 0;
    virtual bool CalcLevels(double start, double end) = 0;
    // edgeType 1: a rising edge, 2: a falling edge; any other value only reads the
    // neighbourhood. False when no sample lies there or the walk fails.
    virtual bool Analyse(double time, int edgeType) = 0;
    // The ten points, in slot order.
    virtual void GetEdgeInfo(std::vector<EdgePoint>& out) = 0;
};

// The working state of one edge measurement.
template <class T>
class CInformationRead {
public:
    enum Level { kHigh = 0, kLow = 1, kTop = 2, kBase = 3 };
    struct Point {
        T value{};
        double time = 0;
        double time2 = 0;
    };

    // Neither reader is owned; level_info may be null.
    CInformationRead(CBasicWaveReader<T>* wave_reader, CBasicLevelInformation<T>* level_info);

    void SetLevels(double highRatio, double lowRatio, double top, double base, double width);
    // Top and base of [start, end] from the level information into levels, and the
    // thresholds from them.
    void CalcLevels(double start, double end, std::array<T, 4>& levels);
    bool Analyse(double time, int edgeType);

    const std::array<T, 4>& Levels() const { return m_levels; }
    // The level calculation on the caller's levels.
    void CalcLevels(double start, double end) { CalcLevels(start, end, m_levels); }
    const std::array<Point, 10>& Points() const { return m_points; }
    double SampleTime() const { return m_sampleTime; }
    double DataTime() const { return m_dataTime; }
    uint64_t Anchor() const { return m_anchor; }
    const std::vector<T>& Data() const { return m_data; }

private:
    // Reads [time - half, time + half]; false when no sample came or the anchor has no
    // place. One element after the samples repeats the last one, for a walk that starts
    // one behind the end.
    bool ReadNeighbourhood(double time, double half);
    bool RisingWalk();
    bool FallingWalk();
    void StorePoint(int slot, int64_t position);

    std::vector<T> m_data;
    uint16_t m_searchWidth = 5;
    double m_highRatio = 0.9;
    double m_lowRatio = 0.1;
    double m_halfWindow = 0;
    double m_halfWindow2 = 0;
    double m_sampleTime = 0;
    double m_dataTime = 0;
    uint64_t m_anchor = 0;
    // Reserved for timing traces of the measurement; nothing writes to it yet.
    CLogger m_logger{"CInformationRead"};
    std::array<T, 4> m_levels{};
    std::array<T, 4> m_workLevels{};
    std::array<Point, 10> m_points{};
    double m_width = 0;
    std::size_t m_samples = 0;  // samples in m_data, without the element after them
    CBasicWaveReader<T>* m_waveReader;
    CBasicLevelInformation<T>* m_levelInfo;
};

template <class T>
class CBasicEdgeInformation : public IBasicEdgeInformation {
public:
    // Takes ownership of both readers.
    CBasicEdgeInformation(CBasicWaveReader<T>* wave_reader, CBasicLevelInformation<T>* level_info);
    ~CBasicEdgeInformation() override;
    CBasicEdgeInformation(const CBasicEdgeInformation&) = delete;
    CBasicEdgeInformation& operator=(const CBasicEdgeInformation&) = delete;

    // Both the wave reader and the level information keep the same view.
    void SetBaseRange(double begin, double end) override;
    void SetZeroPosition(double position, TimeMode mode) override;
    void SetAxis(IDatasetAxis* axis) override;

    void SetLevels(double highRatio, double lowRatio, double top, double base, double width) override;
    bool CalcLevels(double start, double end) override;
    bool Analyse(double time, int edgeType) override;
    void GetEdgeInfo(std::vector<EdgePoint>& out) override;

    CInformationRead<T>* Info() const { return m_info.get(); }

private:
    std::unique_ptr<CBasicWaveReader<T>> m_waveReader;
    std::unique_ptr<CBasicLevelInformation<T>> m_levelInfo;
    std::unique_ptr<CInformationRead<T>> m_info;
};

VELLUM_BASES(IBasicEdgeInformation, IPieceReader);

template <class T>
struct VellumBases<CBasicEdgeInformation<T>> {
    static void* Visit(CBasicEdgeInformation<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<CBasicEdgeInformation<T>, IBasicEdgeInformation>(object, to);
    }
};

#define WAVESTORE_EDGE_INFORMATION_EXTERN(T) \
    extern template class CInformationRead<T>; \
    extern template class CBasicEdgeInformation<T>
WAVESTORE_EDGE_INFORMATION_EXTERN(int8_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(uint8_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(int16_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(uint16_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(int32_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(uint32_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(int64_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(uint64_t);
WAVESTORE_EDGE_INFORMATION_EXTERN(float);
WAVESTORE_EDGE_INFORMATION_EXTERN(double);
WAVESTORE_EDGE_INFORMATION_EXTERN(LongDouble);
#undef WAVESTORE_EDGE_INFORMATION_EXTERN
