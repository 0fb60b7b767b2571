// The samples and the index of a math result, streamed area by area from both sources.

#include "math/math_dataset.h"

#include "math/math_index_accumulator.h"
#include "math/math_operator.h"
#include "storage/storage_base.h"

#include <cmath>
#include <memory>

namespace {

// A double kept to 32 bits as the processor converts it: truncated to 64 bits (the
// pattern 0x8000000000000000 for NaN and values beyond that range), low half kept.
uint32_t TruncToU32(double value) {
    constexpr double kTwo63 = 9223372036854775808.0;
    if (std::isnan(value) || value >= kTwo63 || value < -kTwo63) return 0;
    return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(value)));
}

}  // namespace

template <class T, int Op>
void MathDataSet<T, Op>::CalcWave() {
    if (m_areas.empty()) return;
    const std::shared_ptr<StorageBase> index = this->GetStorage("Index");
    const double n = static_cast<double>(m_indexPointCount);
    for (ValidDataArea& area : m_areas) {
        double s = static_cast<double>(area.start_time) * 1e-9;
        const double e = static_cast<double>(area.end_time) * 1e-9;
        const auto start_ns = static_cast<uint64_t>(area.start_time);
        if (start_ns < m_areaOrigin) continue;
        // The area's phase on the index grid that starts at the first area.
        double phase = static_cast<double>(start_ns - m_areaOrigin) * 1e-9 / m_indexStepTime;
        phase -= static_cast<double>(TruncToU32(phase));
        // Samples missing to the next grid point: the first, possibly short, entry.
        const uint32_t first_count = TruncToU32(n - n * phase);
        area.first_count = first_count;
        area.index_id = static_cast<uint32_t>(index ? index->Count() : 0);
        if (first_count != 0) {
            const double m = static_cast<double>(first_count - 1) * m_sampleTime + s;
            SaveIndexByTime(s, m);
            s = m + m_sampleTime;
        }
        SaveIndexByTime(s, e);
    }
}

template <class T, int Op>
void MathDataSet<T, Op>::SaveIndexByTime(double start, double end) {
    const std::shared_ptr<StorageBase> wave = this->GetStorage("Wave");
    const std::shared_ptr<StorageBase> index = this->GetStorage("Index");
    if (!wave || !index) return;
    constexpr std::size_t kWaveCapacity = 0x100000 / sizeof(T);
    const std::unique_ptr<T[]> results(new T[kWaveCapacity]);
    std::size_t buffered = 0;
    MathIndexAccumulator<T> accumulator(*index, m_indexPointCount);
    m_leftValues.clear();
    m_rightValues.clear();

    double t = start;
    while (end > t || 1e-12 > std::fabs(t - end)) {
        // A source without a reader of T delivers nothing.
        if (!m_leftReader || !m_rightReader) break;
        double e = end;
        m_leftReader->GetDataT(t, e, m_leftValues, false);
        e = end;  // the right source is asked from where the left one starts, to the whole end
        m_rightReader->GetDataT(t, e, m_rightValues, false);
        const std::size_t count = m_leftValues.size();
        if (count == 0 || m_rightValues.empty() || m_rightValues.size() != count) break;
        const T* left = m_leftValues.data();
        const T* right = m_rightValues.data();
        for (std::size_t i = 0; i < count; ++i) {
            const T v = MathValue<T, Op>(left[i], right[i]);
            accumulator.Take(v);
            results[buffered++] = v;
            if (buffered == kWaveCapacity) {
                wave->Write(results.get(), buffered);
                buffered = 0;
            }
            accumulator.CloseIfFull();
        }
        const double next = e + m_sampleTime;
        // A step that doesn't move forward (a step lost in the magnitude of the time, or
        // a negative sample time) would read the same chunk forever.
        if (!(next > t)) break;
        t = next;
    }
    if (buffered != 0) wave->Write(results.get(), buffered);
    accumulator.Finish();
}

#define WAVESTORE_MATH_WAVES(T, O)                    \
    template void MathDataSet<T, O>::CalcWave();      \
    template void MathDataSet<T, O>::SaveIndexByTime(double, double);
WAVESTORE_MATH_INSTANCES(WAVESTORE_MATH_WAVES)
