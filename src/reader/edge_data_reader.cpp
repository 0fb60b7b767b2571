#include "reader/edge_data_reader.h"

#include <cmath>

template <class T>
CEdgeDataReader<T>::CEdgeDataReader(CBasicLevelInformation<T>* level_info, CBasicWaveReader<T>* wave_reader)
    : m_levelInfo(level_info), m_waveReader(wave_reader) {
    m_finder = std::make_unique<CEdgeFinder<T>>(m_waveReader.get(), m_waveReader ? m_waveReader->GetTools() : nullptr);
}

template <class T>
CEdgeDataReader<T>::~CEdgeDataReader() = default;

template <class T>
void CEdgeDataReader<T>::SetupParame(void* parameter) {
    if (parameter == nullptr) return;
    const auto& param = *static_cast<const EdgeSearchParam*>(parameter);
    m_finder->SetLevels(CBasicWaveReader<T>::Double2T(param.level), CBasicWaveReader<T>::Double2T(param.hysteresis));
    if (param.edgeType >= 1 && param.edgeType <= 3) m_edgeType = param.edgeType;
}

template <class T>
bool CEdgeDataReader<T>::Take(bool found) {
    if (!found) return false;
    m_found = m_finder->Answer();
    m_curType = m_found.type;
    m_curTime = m_found.time;
    return true;
}

template <class T>
bool CEdgeDataReader<T>::GetNextData() {
    return Take(m_finder->NextEdge(m_curTime, m_edgeType));
}

template <class T>
bool CEdgeDataReader<T>::GetPrevData() {
    return Take(m_finder->PrevEdge(m_curTime, m_edgeType));
}

template <class T>
bool CEdgeDataReader<T>::GetBeginData() {
    if (m_waveReader && m_waveReader->GetTools()) m_curTime = m_waveReader->GetTools()->GetTimeRange().first;
    return GetNextData();
}

template <class T>
bool CEdgeDataReader<T>::GetEndData() {
    if (m_waveReader && m_waveReader->GetTools()) m_curTime = m_waveReader->GetTools()->GetTimeRange().second;
    return GetPrevData();
}

template <class T>
bool CEdgeDataReader<T>::GetAppointTimeData(double time) {
    m_curTime = time;
    const bool next_found = GetNextData();
    const double next_time = m_curTime;
    const unsigned int next_type = m_curType;
    // The previous edge is sought from the next one, not from time.
    const bool prev_found = GetPrevData();
    const double prev_time = m_curTime;
    const unsigned int prev_type = m_curType;
    bool take_prev = prev_found && !next_found;
    if (prev_found && next_found) take_prev = std::fabs(next_time - time) > std::fabs(prev_time - time);
    if (!prev_found && !next_found) return false;
    m_curTime = take_prev ? prev_time : next_time;
    m_curType = take_prev ? prev_type : next_type;
    return true;
}

template <class T>
void CEdgeDataReader<T>::GetResult(void* record) {
    if (record == nullptr) return;
    auto* result = static_cast<FindEdgeResult*>(record);
    result->dEdgeTime = m_curTime;
    result->u32EdgeType = m_curType;
}

template <class T>
void CEdgeDataReader<T>::SetPosition(double nanoseconds, unsigned int type) {
    m_curTime = nanoseconds * 1e-9;
    m_curType = type;
}

template class CEdgeDataReader<int8_t>;
template class CEdgeDataReader<uint8_t>;
template class CEdgeDataReader<int16_t>;
template class CEdgeDataReader<uint16_t>;
template class CEdgeDataReader<int32_t>;
template class CEdgeDataReader<uint32_t>;
template class CEdgeDataReader<int64_t>;
template class CEdgeDataReader<uint64_t>;
template class CEdgeDataReader<float>;
template class CEdgeDataReader<double>;
template class CEdgeDataReader<LongDouble>;
