#pragma once
// CBasicLevelInformation<T>: the levels of a wave over a time range (top, base,
// minimum, maximum, mean, amplitude), read through its own CBasicWaveReader<T> and
// worked out by CLevelStatistics<T>.
//
// A range is accumulated (AddRange: every sample of every area in it; AddSegments: only
// the given time pairs; CalcPulseLevels: a pulse train whose edges are known), then
// analysed, then read out with GetResult.

#include "reader/basic_wave_reader.h"
#include "reader/level_statistics.h"
#include "reader/piece_reader.h"

#include <cstdint>
#include <memory>
#include <vector>

// The result of a level analysis; values as doubles (NaN for an invalid value), times
// in seconds.
struct LevelResult {
    double amplitude = 0;  // top - base
    double mean = 0;
    double minimum = 0;
    double maximum = 0;
    double reserved = 0;  // stays 0
    double top = 0;
    double base = 0;
    double peak_to_peak = 0;  // maximum - minimum
    double start_time = 0;
    double end_time = 0;
};

struct LevelPeak {
    double value = 0;
    uint32_t count = 0;
};

class IBasicLevelInformation : public IPieceReader {
public:
    // 100 x the processed share of a range; 0 here, where nothing measures progress.
    virtual double GetPercent() = 0;
    virtual void SetFlag(bool flag) = 0;
    virtual void GetResult(LevelResult& out) = 0;
    // Appends one entry per peak of the last analysis.
    virtual void GetPeaks(std::vector<LevelPeak>& out) = 0;
    virtual void AddRange(double start, double end) = 0;
    virtual void AddSegments(double start, double end, std::vector<double> times) = 0;
    virtual void CalcPulseLevels(double start, double end, std::vector<double> times) = 0;
    virtual bool Analyse() = 0;
    virtual void Reset() = 0;
    // Reset, AddRange, Analyse and GetResult in one.
    virtual void Calc(double start, double end, LevelResult& out) = 0;
};

template <class T>
class CBasicLevelInformation : public IBasicLevelInformation {
public:
    // Takes ownership of wave_reader.
    explicit CBasicLevelInformation(CBasicWaveReader<T>* wave_reader);
    ~CBasicLevelInformation() override;
    CBasicLevelInformation(const CBasicLevelInformation&) = delete;
    CBasicLevelInformation& operator=(const CBasicLevelInformation&) = delete;

    void SetBaseRange(double begin, double end) override { m_waveReader->SetBaseRange(begin, end); }
    void SetZeroPosition(double position, TimeMode mode) override { m_waveReader->SetZeroPosition(position, mode); }
    void SetAxis(IDatasetAxis* axis) override { m_waveReader->SetAxis(axis); }

    double GetPercent() override;
    void SetFlag(bool flag) override { m_flag = flag ? 1 : 0; }
    void GetResult(LevelResult& out) override;
    void GetPeaks(std::vector<LevelPeak>& out) override;
    // Accumulates every sample of [start, end], read run by run across gaps.
    void AddRange(double start, double end) override;
    // Accumulates the samples of the time pairs (times[0], times[1]), (times[2],
    // times[3]), ... of one read of [start, end]; a pair outside the read adds zeros.
    void AddSegments(double start, double end, std::vector<double> times) override;
    // top = mean of the runs (times[0], times[1]), (times[4], times[5]), ...; base =
    // mean of (times[2], times[3]), (times[6], times[7]), ...; the rest of the result
    // from an analysis of the whole range.
    void CalcPulseLevels(double start, double end, std::vector<double> times) override;
    bool Analyse() override { return m_stats->Analyse(); }
    void Reset() override;
    void Calc(double start, double end, LevelResult& out) override;

    CLevelStatistics<T>& Statistics() { return *m_stats; }
    CBasicWaveReader<T>* WaveReader() const { return m_waveReader.get(); }
    double Start() const { return m_start; }
    double End() const { return m_end; }

private:
    // One read of [start, end] into m_data when end > start; the start as served, or
    // start itself when nothing came.
    double ReadWhole(double start, double end);
    // Accumulates the pairs (times[i], times[i + 1]) for i = first, first + stride, ...
    // of the samples in m_data, whose first sample lies at origin.
    void AccumulatePairs(const std::vector<double>& times, double origin, std::size_t first, std::size_t stride);

    uint8_t m_flag = 0;
    double m_start = 0;
    double m_end = 0;
    double m_percentBase = 0;
    double m_percentPart = 0;
    std::vector<T> m_data;
    std::unique_ptr<CBasicWaveReader<T>> m_waveReader;
    std::unique_ptr<CLevelStatistics<T>> m_stats;
    LevelResult m_result;
};

VELLUM_BASES(IBasicLevelInformation, IPieceReader);

template <class T>
struct VellumBases<CBasicLevelInformation<T>> {
    static void* Visit(CBasicLevelInformation<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<CBasicLevelInformation<T>, IBasicLevelInformation>(object, to);
    }
};

extern template class CBasicLevelInformation<int8_t>;
extern template class CBasicLevelInformation<uint8_t>;
extern template class CBasicLevelInformation<int16_t>;
extern template class CBasicLevelInformation<uint16_t>;
extern template class CBasicLevelInformation<int32_t>;
extern template class CBasicLevelInformation<uint32_t>;
extern template class CBasicLevelInformation<int64_t>;
extern template class CBasicLevelInformation<uint64_t>;
extern template class CBasicLevelInformation<float>;
extern template class CBasicLevelInformation<double>;
extern template class CBasicLevelInformation<LongDouble>;
