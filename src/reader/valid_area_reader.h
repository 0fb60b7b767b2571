#pragma once
// CValidAreaDataReader: the validity areas of a wave dataset as an IDataReader.
//
// It walks the "Area" storage record by record. A dataset that stores no area is seen
// through one synthetic area built from the size axis and the sample count, which only
// GotoIndex (and so GetBeginData) and the time search serve: GetCount is 0 there.
// Kept as they stand, because walkers rely on them:
//  - a step past either end resets the index to 0 and keeps the former record;
//  - GetEndData needs two areas or more: one area has a begin record but no end record;
//  - the synthetic area takes its start from the axis window's width and its length
//    from count x the window's offset;
//  - a time outside all areas goes to area 0.
// The copy of a reader shares its two storage readers.

#include "dataset/dataset_tool.h"
#include "dataset/records.h"
#include "host/ctr_var.h"
#include "reader/data_reader.h"
#include "wave/struct_reader.h"

#include <cstdint>
#include <memory>

class IBaseCtr;

class CValidAreaDataReader : public IDataReader {
public:
    CValidAreaDataReader(IBaseCtr* owner, std::shared_ptr<IReader> area, std::shared_ptr<IReader> wave);
    CValidAreaDataReader(const CValidAreaDataReader& other);
    CValidAreaDataReader& operator=(const CValidAreaDataReader& other);
    ~CValidAreaDataReader() override;

    unsigned long long GetCount() override;
    unsigned long long GetCurIndex() override { return current_index; }
    bool GetNextData() override { return Move(1); }
    bool GetPrevData() override { return Move(-1); }
    bool GetEndData() override;
    bool GetBeginData() override { return GotoIndex(0); }
    bool GetAppointTimeData(double time) override;
    void SetupParame(void*) override {}
    // Copies the current area, 48 bytes.
    void GetResult(void* record) override;

    bool GotoIndex(unsigned long long index);
    // Moves the cursor by step areas; past either end the index becomes 0 and false.
    bool Move(int step);
    // The area of time t (seconds) and its index; a time before, after or between the
    // areas is handled as told above.
    bool SearchInAreaStartTime(double t, ValidDataArea& area, unsigned long long& index);
    // The synthetic area of a dataset without stored areas; false for an empty wave.
    bool GetSourceInfor(ValidDataArea& area);

    const ValidDataArea& Current() const { return current; }

    static bool IsEqual(double a, double b);
    static bool BigOrEqual(double a, double b);
    static bool LessOrEqual(double a, double b);

private:
    bool ReadArea(uint64_t index, ValidDataArea& area) const;

    std::shared_ptr<IReader> area_reader;
    std::shared_ptr<IReader> wave_reader;
    ValidDataArea current{};
    unsigned long long current_index = 0;
    std::unique_ptr<__internal::DataSetTool> tools;
};

VELLUM_BASES(CValidAreaDataReader, IDataReader);
