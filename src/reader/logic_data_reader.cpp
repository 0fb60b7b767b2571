#include "reader/logic_data_reader.h"

#include "dataset/time_rules.h"
#include "host/logger.h"

#include <algorithm>

namespace {

constexpr int kStaleEdges = 5;

}  // namespace

template <class T>
CLogicDataReader<T>::CLogicDataReader(CEdgeDataReader<T>* edge_reader, CValidAreaDataReader* area_reader,
                                      CBasicWaveReader<T>* wave_reader)
    : m_edgeReader(edge_reader), m_areaReader(area_reader), m_waveReader(wave_reader) {}

template <class T>
CLogicDataReader<T>::~CLogicDataReader() = default;

template <class T>
void CLogicDataReader<T>::SetupParame(void* parameter) {
    m_level = 0;
    m_beginNs = m_endNs = m_edgeNs = 0;
    m_edgeType = 3;
    if (parameter == nullptr) return;
    const auto& param = *static_cast<const LogicSearchParam*>(parameter);
    m_flag = param.flag;
    EdgeSearchParam edges{param.level, param.hysteresis, 3};
    if (m_edgeReader) m_edgeReader->SetupParame(&edges);
}

template <class T>
void CLogicDataReader<T>::GetResult(void* record) {
    if (record == nullptr) return;
    auto* out = static_cast<LogicResult*>(record);
    out->m_bValue = m_result.m_bValue;
    out->dBeginTime = m_result.dBeginTime;
    out->dEndTime = m_result.dEndTime;
    out->curValue = m_result.curValue;
}

template <class T>
void CLogicDataReader<T>::Publish(uint8_t level, uint64_t begin_ns, uint64_t end_ns) {
    m_level = level;
    m_result.m_bValue = static_cast<int8_t>(level);
    m_beginNs = begin_ns;
    m_endNs = end_ns;
    m_result.dBeginTime = static_cast<double>(begin_ns) * 1e-9;
    m_result.dEndTime = static_cast<double>(end_ns) * 1e-9;
}

template <class T>
void CLogicDataReader<T>::ReadEdge() {
    FindEdgeResult edge{};
    m_edgeReader->GetResult(&edge);
    m_edgeNs = SecondsToUnsignedNs(edge.dEdgeTime);
    m_edgeType = edge.u32EdgeType;
}

template <class T>
void CLogicDataReader<T>::ReadArea() {
    m_areaReader->GetResult(&m_area);
}

template <class T>
bool CLogicDataReader<T>::InArea(uint64_t ns) const {
    return ns >= AreaStart() && ns <= AreaEnd();
}

template <class T>
void CLogicDataReader<T>::WholeArea() {
    // The value is read at the area's duration taken as a time.
    T value = InvalidValue<T>();
    if (m_waveReader) m_waveReader->AtT(static_cast<double>(m_area.end_time - m_area.start_time) * 1e-9, &value);
    const uint8_t level = m_zeroLevel >= static_cast<double>(value) ? 1 : 0;
    Publish(level, AreaStart(), AreaEnd());
}

template <class T>
bool CLogicDataReader<T>::GetBeginData() {
    if (!m_areaReader || !m_edgeReader || !m_areaReader->GetBeginData()) return false;
    ReadArea();
    if (m_edgeReader->GetBeginData()) {
        ReadEdge();
        if (InArea(m_edgeNs)) {
            Publish(m_edgeType == 2 ? 1 : 0, AreaStart(), m_edgeNs);
            return true;
        }
    }
    WholeArea();
    return true;
}

template <class T>
bool CLogicDataReader<T>::GetEndData() {
    if (!m_areaReader || !m_edgeReader || !m_areaReader->GetEndData()) return false;
    ReadArea();
    if (m_edgeReader->GetEndData()) {
        ReadEdge();
        if (InArea(m_edgeNs)) {
            Publish(m_edgeType != 2 ? 1 : 0, m_edgeNs, AreaEnd());
            return true;
        }
    }
    WholeArea();
    return true;
}

template <class T>
bool CLogicDataReader<T>::GetNextData() {
    if (!m_areaReader || !m_edgeReader) return false;
    if (m_beginNs == 0 && m_endNs == 0) return false;  // no run yet
    if (m_edgeNs > AreaEnd() && m_areaReader->GetNextData()) {
        ReadArea();
        if (m_edgeNs > AreaEnd())
            WholeArea();
        else
            Publish(m_edgeType == 2 ? 1 : 0, AreaStart(), m_edgeNs);
        return true;
    }
    bool have_edge = m_edgeReader->GetNextData();
    for (int stale = 0; have_edge;) {
        ReadEdge();
        if (m_edgeNs > m_endNs) {
            Publish(m_edgeType != 1 ? 1 : 0, m_endNs, std::min(m_edgeNs, AreaEnd()));
            return true;
        }
        CLogger::DefaultLogger().Info("Find EdgeTime less Current LogicTime!!!{}", m_edgeNs);
        if (++stale == kStaleEdges) return false;
        have_edge = m_edgeReader->GetNextData();
    }
    // No more edges.
    if (m_endNs < AreaEnd()) {
        Publish(m_level ? 0 : 1, m_endNs, AreaEnd());
        return true;
    }
    if (!m_areaReader->GetNextData()) return false;
    ReadArea();
    WholeArea();
    return true;
}

template <class T>
bool CLogicDataReader<T>::GetPrevData() {
    if (!m_areaReader || !m_edgeReader) return false;
    if (m_beginNs == 0 && m_endNs == 0) return false;
    if (m_edgeNs < AreaStart() && m_areaReader->GetPrevData()) {
        ReadArea();
        if (m_edgeNs < AreaStart())
            WholeArea();
        else
            Publish(m_edgeType != 2 ? 1 : 0, m_edgeNs, AreaEnd());
        return true;
    }
    // The run before this one ends where this one begins; both internal times move to
    // its begin.
    auto publish_before = [&](uint64_t begin) {
        const uint64_t old_begin = m_beginNs;
        Publish(m_level ? 0 : 1, begin, begin);
        m_result.dEndTime = static_cast<double>(old_begin) * 1e-9;
    };
    bool have_edge = m_edgeReader->GetPrevData();
    for (int stale = 0; have_edge;) {
        ReadEdge();
        if (m_edgeNs < m_beginNs) {
            publish_before(std::max(m_edgeNs, AreaStart()));
            return true;
        }
        CLogger::DefaultLogger().Info("Find EdgeTime big Current LogicTime!!! {}", m_edgeNs);
        if (++stale == kStaleEdges) return false;
        have_edge = m_edgeReader->GetPrevData();
    }
    if (m_beginNs > AreaStart()) {
        publish_before(AreaStart());
        return true;
    }
    if (!m_areaReader->GetPrevData()) return false;
    ReadArea();
    WholeArea();
    return true;
}

template <class T>
bool CLogicDataReader<T>::GetAppointTimeData(double time) {
    const uint64_t tn = SecondsToUnsignedNs(time);
    const double t = static_cast<double>(tn) * 1e-9;
    if (!m_areaReader || !m_edgeReader || !m_areaReader->GetAppointTimeData(t)) return false;
    ReadArea();
    if (std::max(tn, AreaStart()) > AreaEnd()) {
        if (!m_areaReader->GetNextData()) return false;
        ReadArea();
    }
    if (!m_edgeReader->GetAppointTimeData(t)) return false;
    T value = InvalidValue<T>();
    if (m_waveReader) m_waveReader->AtT(t, &value);
    m_result.curValue = CBasicWaveReader<T>::T2Double(value);

    ReadEdge();
    const uint64_t e = m_edgeNs;
    const uint32_t y = m_edgeType;
    if (!InArea(e)) {
        WholeArea();
        return true;
    }
    if (e < tn) {
        // The edge lies before the time: the run from it to the next edge.
        if (m_edgeReader->GetNextData()) {
            ReadEdge();
            if (InArea(m_edgeNs)) {
                Publish(m_edgeType == 2 ? 1 : 0, e, m_edgeNs);
                return true;
            }
        }
        Publish(y != 2 ? 1 : 0, e, AreaEnd());
        return true;
    }
    // The edge lies at or behind the time: the run from the edge before it.
    if (m_edgeReader->GetPrevData()) {
        ReadEdge();
        if (InArea(m_edgeNs)) {
            Publish(m_edgeType != 2 ? 1 : 0, m_edgeNs, e);
            m_edgeReader->SetPosition(static_cast<double>(e), y);
            return true;
        }
    }
    Publish(y == 2 ? 1 : 0, tn, e);
    return true;
}

template class CLogicDataReader<int8_t>;
template class CLogicDataReader<uint8_t>;
template class CLogicDataReader<int16_t>;
template class CLogicDataReader<uint16_t>;
template class CLogicDataReader<int32_t>;
template class CLogicDataReader<uint32_t>;
template class CLogicDataReader<int64_t>;
template class CLogicDataReader<uint64_t>;
template class CLogicDataReader<float>;
template class CLogicDataReader<double>;
template class CLogicDataReader<LongDouble>;
