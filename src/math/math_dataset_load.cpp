#include "math/math_dataset.h"

#include "dataset/time_rules.h"
#include "host/base_ctr.h"
#include "host/logger.h"

#include <algorithm>
#include <cmath>

template <class T, int Op>
void MathDataSet<T, Op>::Load() {
    if (m_pLeft == nullptr || m_pRight == nullptr) return;
    m_leftWave = QueryInterface<IReader>(m_pLeft, "Wave");
    m_rightWave = QueryInterface<IReader>(m_pRight, "Wave");
    if (!m_leftWave || !m_rightWave) return;
    // A source of another element type has no reader of T: its sample time stays as it
    // was, and the calculation finds nothing to read from it.
    m_leftReader = QueryInterface<CBasicWaveReader<T>>(m_pLeft);
    if (m_leftReader) m_leftSampleTime = m_leftReader->GetTools()->GetSampleTime();
    m_rightReader = QueryInterface<CBasicWaveReader<T>>(m_pRight);
    if (m_rightReader) m_rightSampleTime = m_rightReader->GetTools()->GetSampleTime();
    m_leftAreas = QueryInterface<IInforIteratorReader>(m_pLeft, "ValidReader");
    m_rightAreas = QueryInterface<IInforIteratorReader>(m_pRight, "ValidReader");
    if (1e-9 > std::fabs(m_rightSampleTime) || 1e-9 > std::fabs(m_leftSampleTime)) {
        CLogger::DefaultLogger().Error("mathdataset load error : RightSizeRatio: {},LeftSizeRatio:{}", m_rightSampleTime,
                                       m_leftSampleTime);
        return;
    }
    m_sampleTime = std::min(m_leftSampleTime, m_rightSampleTime);
    const double left_step = m_leftReader ? m_leftReader->GetTools()->GetIndexStepTime() : m_indexStepTime;
    const double right_step = m_rightReader ? m_rightReader->GetTools()->GetIndexStepTime() : m_indexStepTime;
    m_indexStepTime = std::max(left_step, right_step);
    m_indexPointCount = static_cast<uint32_t>(SecondsToNs(m_indexStepTime) / SecondsToNs(m_sampleTime));
}

#define WAVESTORE_MATH_LOAD(T, O) template void MathDataSet<T, O>::Load();
WAVESTORE_MATH_INSTANCES(WAVESTORE_MATH_LOAD)
