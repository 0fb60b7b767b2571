#pragma once
// MathDataSet<T, Op>: a wave dataset whose samples nobody pushes. It computes them from
// two other wave datasets of element type T, linked as "left" and "right", for one time
// range at a time, on request (CalcRange), and stores them in its own "Wave", "Index"
// and "Area" storages in the layout of a pushed wave, so that every reader of a wave
// reads it alike. Op picks the value rule (math_operator.h): 0 sum, 1 difference,
// 2 mean.
//
// Sources are neither resampled nor interpolated: both are read by time, chunk by
// chunk, each on its own grid, and the k-th samples of the two chunks are combined. A
// chunk in which the two deliver different counts ends the walk over that span, so
// sources of different sample times give areas but (almost) no samples.
//
// Item face: that of a wave dataset, plus the links "left" and "right" and the command
// "Clear", which empties the result (the storages, through the wave dataset's own
// clear, and the areas and positions of the calculation). OnCMD answers false even for
// a "Clear" it handled. The interface query for IMathDataSet gives this object, not
// owned. Calculations hold a mutex of their own for their whole length and fire
// "Update" on the item at the end, with the mutex held.
//
// Files: math_dataset.cpp (item face, CalcRange), math_dataset_load.cpp (the sources),
// math_area_calc.cpp (areas), math_wave_calc.cpp (samples and index).

#include "dataset/math_dataset_interface.h"
#include "dataset/records.h"
#include "host/ctr_var.h"
#include "reader/basic_wave_reader.h"
#include "reader/infor_iterator_reader.h"
#include "wave/basic_wave_dataset.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class IBaseCtr;
class IItemType;

template <class T, int Op>
class MathDataSet : public BasicWaveDataSet<T>, public IMathDataSet {
public:
    MathDataSet();
    ~MathDataSet() override;

    static bool InitType(IItemType* type, const std::string& name);
    bool InitItem(IBaseCtr* item);
    // "left" and "right" (exact case) set the sources; the wave dataset's links follow.
    bool SetLinkItem(IBaseCtr* item, const std::string& name);
    // The wave dataset's commands, then "Clear". Always false.
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    void CalcRange(double start, double end) override;
    void GetLastRange(double& start, double& end) override;

    static bool isEqual(double a, double b);
    bool LessOrEqual(double a, double b);

    // The steps of a calculation, each run by CalcRange under the mutex.
    // Resolves the two sources into readers and the constants of the calculation.
    void Load();
    // The result areas of [start, end]: the intersections of the two sources' areas.
    void CalcArea(double start, double end);
    // Intersects two listed pieces; code tells which list to advance (0xF0 left,
    // 0x0F right, 0xFF both).
    bool CalcArea(const _ValidAreaIndex& left, const _ValidAreaIndex& right, ValidDataArea& area, int& code);
    // One source's pieces of [start, end]: data pieces and the gaps between them.
    void SearchValidArea(Ctr<CBasicWaveReader<T>> reader, Ctr<IInforIteratorReader> areas, double start, double end,
                         std::vector<_ValidAreaIndex>& out);
    // The area that the iterator shows; false when it shows none.
    bool GetAreaData(Ctr<IInforIteratorReader> areas, ValidDataArea& area);
    // Appends the result areas to "Area".
    void SaveArea();
    // The samples and index entries of each result area.
    void CalcWave();
    // Samples and index entries of [start, end], in chunks of both sources.
    void SaveIndexByTime(double start, double end);

    // State of the calculation, for observers.
    const std::vector<ValidDataArea>& Areas() const { return m_areas; }
    uint64_t NextWavePos() const { return m_nextWavePos; }
    uint64_t AreaOrigin() const { return m_areaOrigin; }
    double SampleTime() const { return m_sampleTime; }
    double IndexStepTime() const { return m_indexStepTime; }
    uint32_t IndexPointCount() const { return m_indexPointCount; }

private:
    IBaseCtr* m_pRight = nullptr;
    IBaseCtr* m_pLeft = nullptr;
    Ctr<CBasicWaveReader<T>> m_leftReader;
    Ctr<CBasicWaveReader<T>> m_rightReader;
    Ctr<IReader> m_leftWave;
    Ctr<IReader> m_rightWave;
    Ctr<IInforIteratorReader> m_leftAreas;
    Ctr<IInforIteratorReader> m_rightAreas;
    uint64_t m_nextWavePos = 0;
    double m_lastRangeStart = 0;
    double m_lastRangeEnd = 0;
    double m_rightSampleTime = 1.0;
    double m_leftSampleTime = 1.0;
    double m_sampleTime = 1.0;
    std::mutex m_lock;
    double m_indexStepTime = 1e-06;
    uint32_t m_indexPointCount = 250;
    uint64_t m_areaOrigin = 0;
    std::vector<T> m_leftValues;
    std::vector<T> m_rightValues;
    std::vector<ValidDataArea> m_areas;
};

// The 33 instances: eleven element types, operators 0, 1 and 2.
#define WAVESTORE_MATH_INSTANCES_OF(X, T) X(T, 0) X(T, 1) X(T, 2)
#define WAVESTORE_MATH_INSTANCES(X)              \
    WAVESTORE_MATH_INSTANCES_OF(X, int8_t)       \
    WAVESTORE_MATH_INSTANCES_OF(X, uint8_t)      \
    WAVESTORE_MATH_INSTANCES_OF(X, int16_t)      \
    WAVESTORE_MATH_INSTANCES_OF(X, uint16_t)     \
    WAVESTORE_MATH_INSTANCES_OF(X, int32_t)      \
    WAVESTORE_MATH_INSTANCES_OF(X, uint32_t)     \
    WAVESTORE_MATH_INSTANCES_OF(X, int64_t)      \
    WAVESTORE_MATH_INSTANCES_OF(X, uint64_t)     \
    WAVESTORE_MATH_INSTANCES_OF(X, float)        \
    WAVESTORE_MATH_INSTANCES_OF(X, double)       \
    WAVESTORE_MATH_INSTANCES_OF(X, LongDouble)

#define WAVESTORE_MATH_EXTERN(T, O) extern template class MathDataSet<T, O>;
WAVESTORE_MATH_INSTANCES(WAVESTORE_MATH_EXTERN)
#undef WAVESTORE_MATH_EXTERN
