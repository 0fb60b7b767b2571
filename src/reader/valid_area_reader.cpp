#include "reader/valid_area_reader.h"

#include "dataset/time_rules.h"

#include <cmath>
#include <cstring>

CValidAreaDataReader::CValidAreaDataReader(IBaseCtr* owner, std::shared_ptr<IReader> area,
                                           std::shared_ptr<IReader> wave)
    : area_reader(std::move(area)),
      wave_reader(std::move(wave)),
      tools(std::make_unique<__internal::DataSetTool>(owner)) {}

CValidAreaDataReader::CValidAreaDataReader(const CValidAreaDataReader& other)
    : area_reader(other.area_reader),
      wave_reader(other.wave_reader),
      current(other.current),
      current_index(other.current_index),
      tools(std::make_unique<__internal::DataSetTool>(*other.tools)) {}

CValidAreaDataReader& CValidAreaDataReader::operator=(const CValidAreaDataReader& other) {
    if (this != &other) {
        area_reader = other.area_reader;
        wave_reader = other.wave_reader;
        current = other.current;
        current_index = other.current_index;
        tools = std::make_unique<__internal::DataSetTool>(*other.tools);
    }
    return *this;
}

CValidAreaDataReader::~CValidAreaDataReader() = default;

bool CValidAreaDataReader::IsEqual(double a, double b) { return std::fabs(a - b) < 1e-12; }
bool CValidAreaDataReader::BigOrEqual(double a, double b) { return std::fabs(a - b) < 1e-12 || a > b; }
bool CValidAreaDataReader::LessOrEqual(double a, double b) { return std::fabs(a - b) < 1e-12 || b > a; }

bool CValidAreaDataReader::ReadArea(uint64_t index, ValidDataArea& area) const {
    return area_reader && area_reader->Read(index, &area, 1) == 1;
}

bool CValidAreaDataReader::GetSourceInfor(ValidDataArea& area) {
    if (!wave_reader) return false;
    const uint64_t count = wave_reader->Count();
    if (count == 0) return false;
    // The window's offset gives the length per sample and its width the start.
    const auto [offset, width] = tools->GetSizeAxisInfo();
    area = SyntheticArea(width, count, offset, 0.0);
    area.first_count = SyntheticArea(0.0, 0, tools->GetSampleTime(), tools->GetIndexStepTime()).first_count;
    return true;
}

unsigned long long CValidAreaDataReader::GetCount() {
    if (!area_reader) {
        ValidDataArea scratch{};
        return GetSourceInfor(scratch) ? 1 : 0;
    }
    return area_reader->Count();
}

bool CValidAreaDataReader::GotoIndex(unsigned long long index) {
    if (area_reader && area_reader->Count() == 0) {
        const bool ok = GetSourceInfor(current);
        current_index = 0;
        return ok;
    }
    ValidDataArea area{};
    if (ReadArea(index, area)) {
        current = area;
        current_index = index;
        return true;
    }
    current_index = 0;
    return false;
}

bool CValidAreaDataReader::GetEndData() {
    if (!area_reader) return false;
    const unsigned long long count = GetCount();
    if (count < 2) return false;
    return GotoIndex(count - 1);
}

bool CValidAreaDataReader::Move(int step) {
    if (!area_reader || GetCount() < 1) return false;
    current_index += static_cast<unsigned long long>(static_cast<long long>(step));
    ValidDataArea area{};
    if (!ReadArea(current_index, area)) {
        current_index = 0;
        return false;
    }
    current = area;
    return true;
}

bool CValidAreaDataReader::GetAppointTimeData(double time) {
    if (!area_reader) return false;
    unsigned long long index = 0;
    if (!SearchInAreaStartTime(time, current, index)) return false;
    current_index = index;
    return true;
}

bool CValidAreaDataReader::SearchInAreaStartTime(double t, ValidDataArea& area, unsigned long long& index) {
    const uint64_t count = area_reader ? area_reader->Count() : 0;
    if (count == 0) {
        index = 0;
        return GetSourceInfor(area);
    }
    ValidDataArea first{}, last{};
    if (!ReadArea(0, first)) return false;
    last = first;
    if (count > 1 && !ReadArea(count - 1, last)) return false;
    const double first_start = static_cast<double>(first.start_time) * 1e-9;
    const double last_end = static_cast<double>(last.end_time) * 1e-9;
    if (t < first_start || t > last_end) {
        index = 0;
        return ReadArea(0, area);
    }
    // The area is the record read last; for a time in a gap that can be the neighbour
    // of the index found.
    const int64_t tn = SecondsToNs(t);
    uint64_t lo = 0, hi = count - 1;
    while (lo <= hi) {
        const uint64_t mid = (lo + hi) / 2;
        if (!ReadArea(mid, area)) return false;
        if (area.start_time > tn)
            hi = mid - 1;
        else if (area.end_time >= tn)
            break;
        else
            lo = mid + 1;
    }
    index = (lo + hi) / 2;
    return true;
}

void CValidAreaDataReader::GetResult(void* record) {
    if (record != nullptr) std::memcpy(record, &current, sizeof(current));
}
