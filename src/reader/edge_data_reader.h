#pragma once
// CEdgeDataReader<T>: walks the edges of a wave around a level with a hysteresis, as an
// IDataReader of FindEdgeResult records.
//
// The reader has a position (a time) and no index: GetNextData and GetPrevData find the
// next or previous edge from the position and move it there; GetBeginData and
// GetEndData start from the ends of the size axis' range; GetAppointTimeData goes to
// the edge nearest a time (the next one on a tie). A failed step leaves the position
// and the current edge as they were. The edge search is CEdgeFinder<T>.

#include "dataset/records.h"
#include "reader/basic_wave_reader.h"
#include "reader/data_reader.h"
#include "reader/edge_finder.h"
#include "reader/level_information.h"

#include <cstdint>
#include <memory>

// The parameters of SetupParame: the level and the hysteresis in physical values, and
// the filter (1 rising, 2 falling, 3 both; any other value keeps the filter).
struct EdgeSearchParam {
    double level = 0;
    double hysteresis = 0;
    unsigned int edgeType = 3;
};

template <class T>
class CEdgeDataReader : public IDataReader {
public:
    // Takes ownership of both readers; the finder searches through wave_reader.
    CEdgeDataReader(CBasicLevelInformation<T>* level_info, CBasicWaveReader<T>* wave_reader);
    ~CEdgeDataReader() override;
    CEdgeDataReader(const CEdgeDataReader&) = delete;
    CEdgeDataReader& operator=(const CEdgeDataReader&) = delete;

    unsigned long long GetCount() override { return 0; }
    unsigned long long GetCurIndex() override { return 0; }
    bool GetNextData() override;
    bool GetPrevData() override;
    bool GetEndData() override;
    bool GetBeginData() override;
    bool GetAppointTimeData(double time) override;
    // parameter: an EdgeSearchParam.
    void SetupParame(void* parameter) override;
    // record: a FindEdgeResult.
    void GetResult(void* record) override;

    // Places the reader on a known edge without searching.
    void SetPosition(double nanoseconds, unsigned int type);

    unsigned int EdgeType() const { return m_edgeType; }
    double CurTime() const { return m_curTime; }
    unsigned int CurType() const { return m_curType; }
    CEdgeFinder<T>& Finder() { return *m_finder; }
    CBasicWaveReader<T>* WaveReader() const { return m_waveReader.get(); }

private:
    bool Take(bool found);

    unsigned int m_edgeType = 3;
    std::unique_ptr<CEdgeFinder<T>> m_finder;
    double m_curTime = 0;
    unsigned int m_curType = 0;
    EdgeAnswer m_found;
    std::unique_ptr<CBasicLevelInformation<T>> m_levelInfo;  // not used by the search
    std::unique_ptr<CBasicWaveReader<T>> m_waveReader;
};

template <class T>
struct VellumBases<CEdgeDataReader<T>> {
    static void* Visit(CEdgeDataReader<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<CEdgeDataReader<T>, IDataReader>(object, to);
    }
};

extern template class CEdgeDataReader<int8_t>;
extern template class CEdgeDataReader<uint8_t>;
extern template class CEdgeDataReader<int16_t>;
extern template class CEdgeDataReader<uint16_t>;
extern template class CEdgeDataReader<int32_t>;
extern template class CEdgeDataReader<uint32_t>;
extern template class CEdgeDataReader<int64_t>;
extern template class CEdgeDataReader<uint64_t>;
extern template class CEdgeDataReader<float>;
extern template class CEdgeDataReader<double>;
extern template class CEdgeDataReader<LongDouble>;
