#pragma once
// The plain records that pass between datasets, storages, readers and the host.
//
// MinMaxData<T>, ValidDataArea and TrendData<T> are units of storages: they go byte for
// byte into blocks, cache files and saved projects, so their layout is a file format
// and is checked at compile time below. LogicResult and FindEdgeResult are exposed to
// the host by field name and offset and are packed to single bytes.

#include "dataset/element_types.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

// One column of a min/max index: the smallest and the largest sample of a run.
template <class T>
struct MinMaxData {
    T min;
    T max;
};

// One unbroken run of samples. Times in nanoseconds on the dataset's time axis;
// positions in units of the "Wave" and "Index" storages; wave_end_pos is inclusive.
// The 48 bytes are copied whole; Raw() gives them.
struct ValidDataArea {
    int64_t start_time;
    int64_t end_time;
    uint64_t index_id;      // first "Index" column of the area
    uint64_t first_count;   // samples of the area that the column at index_id covers
    uint64_t wave_beg_pos;  // first sample
    uint64_t wave_end_pos;  // last sample, inclusive

    unsigned char* Raw() { return reinterpret_cast<unsigned char*>(this); }
    const unsigned char* Raw() const { return reinterpret_cast<const unsigned char*>(this); }
};

// The piece of a requested span that falls into one area, or into the gap between two.
struct _ValidAreaIndex {
    double begin_time;
    double end_time;
    double head_offset;
    uint64_t wave_beg_pos;
    uint64_t wave_end_pos;
    double ratio;
    bool has_data;
};

// One point of a trend; the bytes after value up to 16 are filler.
template <class T>
struct alignas(8) TrendData {
    uint64_t time;
    T value;
};

#pragma pack(push, 1)
// One run of constant logic level.
struct LogicResult {
    int8_t m_bValue;
    double dBeginTime;
    double dEndTime;
    double curValue;
};

// One edge.
struct FindEdgeResult {
    double dEdgeTime;
    uint32_t u32EdgeType;
};
#pragma pack(pop)

// The element that IBlockDrawReader::GetData fills; it carries nothing this module uses.
struct BlockDrawStruct {};

// How a min/max query fills a span where pixel columns outnumber the samples (0 to 4).
struct GetDataParam {
    uint32_t mode = 0;
};

// A closed interval.
template <class T>
struct Range {
    T begin;
    T end;
};

// The writing side of a storage of records or samples: Push gives the units taken.
template <class R>
class StructFiller {
public:
    virtual ~StructFiller() = default;
    virtual unsigned long long Push(const R* data, unsigned long long count) = 0;
};

// The persisted sizes are a file format.
static_assert(sizeof(ValidDataArea) == 48);
static_assert(offsetof(ValidDataArea, end_time) == 8 && offsetof(ValidDataArea, index_id) == 16 &&
              offsetof(ValidDataArea, first_count) == 24 && offsetof(ValidDataArea, wave_beg_pos) == 32 &&
              offsetof(ValidDataArea, wave_end_pos) == 40);
static_assert(sizeof(MinMaxData<double>) == 16 && sizeof(MinMaxData<uint8_t>) == 2 &&
              sizeof(MinMaxData<LongDouble>) == 16 && sizeof(MinMaxData<float>) == 8);
static_assert(sizeof(TrendData<uint8_t>) == 16 && sizeof(TrendData<double>) == 16 &&
              sizeof(TrendData<LongDouble>) == 16 && offsetof(TrendData<uint8_t>, value) == 8);
static_assert(sizeof(LogicResult) == 25 && offsetof(LogicResult, dBeginTime) == 1 &&
              offsetof(LogicResult, dEndTime) == 9 && offsetof(LogicResult, curValue) == 17);
static_assert(sizeof(FindEdgeResult) == 12 && offsetof(FindEdgeResult, u32EdgeType) == 8);
static_assert(std::is_trivially_copyable_v<ValidDataArea> && std::is_trivially_copyable_v<LogicResult> &&
              std::is_trivially_copyable_v<FindEdgeResult> && std::is_trivially_copyable_v<MinMaxData<LongDouble>>);
