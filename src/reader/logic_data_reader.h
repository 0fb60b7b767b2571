#pragma once
// CLogicDataReader<T>: reads a wave as a logic signal. It walks the runs of constant
// level between the edges that its CEdgeDataReader<T> finds (at the level and hysteresis
// of SetupParame, in both directions), inside the validity areas that its
// CValidAreaDataReader lists, and gives one LogicResult per run. A run before a falling
// edge and after a rising edge is high (1).
//
// After SetupParame the reader stands nowhere: GetNextData and GetPrevData are false
// until GetBeginData, GetEndData or GetAppointTimeData has placed it. An area without a
// known edge is one run, whose level comes from the value read at the area's duration
// taken as a time. Edges found behind the run (forward) or before it (backward) are
// skipped with an info message, five at most, after which the step fails. A step back
// leaves the run's end equal to its begin, so the next step forward starts from there.

#include "dataset/records.h"
#include "reader/basic_wave_reader.h"
#include "reader/data_reader.h"
#include "reader/edge_data_reader.h"
#include "reader/valid_area_reader.h"

#include <cstdint>
#include <memory>

// The parameters of SetupParame.
struct LogicSearchParam {
    double level = 0;
    double hysteresis = 0;
    uint8_t flag = 0;
};

template <class T>
class CLogicDataReader : public IDataReader {
public:
    // Takes ownership of the three readers.
    CLogicDataReader(CEdgeDataReader<T>* edge_reader, CValidAreaDataReader* area_reader,
                     CBasicWaveReader<T>* wave_reader);
    ~CLogicDataReader() override;
    CLogicDataReader(const CLogicDataReader&) = delete;
    CLogicDataReader& operator=(const CLogicDataReader&) = delete;

    unsigned long long GetCount() override { return 0; }
    unsigned long long GetCurIndex() override { return 0; }
    bool GetNextData() override;
    bool GetPrevData() override;
    bool GetEndData() override;
    bool GetBeginData() override;
    bool GetAppointTimeData(double time) override;
    // parameter: a LogicSearchParam.
    void SetupParame(void* parameter) override;
    // record: a LogicResult.
    void GetResult(void* record) override;

    uint64_t BeginNs() const { return m_beginNs; }
    uint64_t EndNs() const { return m_endNs; }
    uint64_t EdgeNs() const { return m_edgeNs; }
    const ValidDataArea& Area() const { return m_area; }
    CEdgeDataReader<T>* EdgeReader() const { return m_edgeReader.get(); }

private:
    void Publish(uint8_t level, uint64_t begin_ns, uint64_t end_ns);
    void ReadEdge();
    void ReadArea();
    void WholeArea();
    bool InArea(uint64_t ns) const;
    uint64_t AreaStart() const { return static_cast<uint64_t>(m_area.start_time); }
    uint64_t AreaEnd() const { return static_cast<uint64_t>(m_area.end_time); }

    uint8_t m_flag = 0;
    uint8_t m_level = 0;
    uint64_t m_beginNs = 0;
    uint64_t m_endNs = 0;
    uint64_t m_edgeNs = 0;
    uint32_t m_edgeType = 0;
    ValidDataArea m_area{};
    LogicResult m_result{};
    double m_zeroLevel = 0;
    std::unique_ptr<CEdgeDataReader<T>> m_edgeReader;
    std::unique_ptr<CValidAreaDataReader> m_areaReader;
    std::unique_ptr<CBasicWaveReader<T>> m_waveReader;
};

template <class T>
struct VellumBases<CLogicDataReader<T>> {
    static void* Visit(CLogicDataReader<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<CLogicDataReader<T>, IDataReader>(object, to);
    }
};

extern template class CLogicDataReader<int8_t>;
extern template class CLogicDataReader<uint8_t>;
extern template class CLogicDataReader<int16_t>;
extern template class CLogicDataReader<uint16_t>;
extern template class CLogicDataReader<int32_t>;
extern template class CLogicDataReader<uint32_t>;
extern template class CLogicDataReader<int64_t>;
extern template class CLogicDataReader<uint64_t>;
extern template class CLogicDataReader<float>;
extern template class CLogicDataReader<double>;
extern template class CLogicDataReader<LongDouble>;
