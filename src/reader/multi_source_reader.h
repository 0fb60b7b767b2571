#pragma once
// CMultiSourceReader: several record sequences seen as one, merged by a sort key, with
// no merged copy kept. Each source is an item that answers IReader (the records),
// IStructDataSetReader (sort key and source id of a record, SingleDataReader) and
// ITimeIndexOperator (the position of a time in the records).
//
// Merge order: ascending by (sort key, (position in source << 8) | source index). At
// equal keys the record with the lower position in its source comes first, then the
// source added first. The source index takes 8 bits: at most 256 sources are told apart.
//
// The cursor: positions[i] is the position of source i's next record (all ones: not
// positioned); the current record is the last one consumed. A target less than 250
// records from the cursor is reached by stepping (one record read per source and step),
// any other by bisection on time over the sources' time indexes.
//
// Use: AddSource for each source, ResetPositions, then Seek, IndexAtTime, IndexOfRecord.
// One caller at a time; nothing is locked.

#include "host/ctr_var.h"
#include "wave/struct_reader.h"

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

class IBaseCtr;
class IStructDataSetReader;
class ITimeIndexOperator;

class IMultiSourceReader : public IReader {
public:
    // False for an item already added (by its "__base" child); true otherwise, also
    // when the item lacks one of the three interfaces and so adds no source.
    virtual bool AddSource(IBaseCtr* item) = 0;
    // Back to no source.
    virtual void Clear() = 0;
    // Every source unpositioned; needed once after the sources are added.
    virtual void ResetPositions() = 0;
    // Records of source id (counted from 1); 0 for an id above the number of sources.
    virtual uint64_t SourceSize(unsigned char id) = 0;
    // Goes to the record at global position index: its source (counted from 0) and its
    // position there. False past the end, without sources, or before ResetPositions.
    virtual bool Seek(uint64_t index, unsigned int* source, uint64_t* position) = 0;
    // Global position of the last record at or before time (seconds; negative acts as 0).
    virtual uint64_t IndexAtTime(double time) = 0;
    // Global position of the record at position of the source whose records carry
    // source_id; all ones if there is none.
    virtual uint64_t IndexOfRecord(unsigned int source_id, uint64_t position) = 0;
};

VELLUM_BASES(IMultiSourceReader, IReader);

class CMultiSourceReader final : public IMultiSourceReader {
public:
    static constexpr uint64_t kNone = ~uint64_t{0};
    // A target at least this far from the cursor is reached by bisection.
    static constexpr uint64_t kStepLimit = 250;

    CMultiSourceReader();
    ~CMultiSourceReader() override;

    // The sum of the sources' record counts, read fresh.
    uint64_t Count() override;
    // A merge is walked, not read: always 0.
    uint64_t Read(uint64_t, void*, uint64_t) override { return 0; }

    bool AddSource(IBaseCtr* item) override;
    void Clear() override;
    void ResetPositions() override;
    uint64_t SourceSize(unsigned char id) override;
    bool Seek(uint64_t index, unsigned int* source, uint64_t* position) override;
    uint64_t IndexAtTime(double time) override;
    uint64_t IndexOfRecord(unsigned int source_id, uint64_t position) override;

    int CurrentSource() const { return current_source; }
    uint64_t CurrentIndex() const { return current_index; }
    const std::vector<uint64_t>& Positions() const { return positions; }
    std::size_t SourceCount() const { return sources.size(); }

private:
    struct Source;

    // Source of the next record of the merge (the smallest record at positions[i]), -1
    // if none; MaxIndexOf: of the last consumed one (the largest at positions[i] - 1).
    int MinIndexOf(const std::set<int>& excluded = {});
    int MaxIndexOf(const std::set<int>& excluded = {});
    bool Next(int64_t count);
    bool Prev(int64_t count);
    bool Rewind();
    bool GotoPosition(uint64_t index);
    bool FarJump(uint64_t index);
    // Records of source i at or before time t (nanoseconds), by its time index.
    uint64_t CountAt(std::size_t i, uint64_t t);
    // Sets every position from the time indexes at t; gives their sum.
    uint64_t PositionAll(uint64_t t);
    // Reads record position of source i into its buffer; false if nothing came.
    bool ReadRecord(std::size_t i, uint64_t position);
    uint64_t Total();
    // Positions are sized to the sources (ResetPositions was called since the last add).
    bool Positioned() const { return !sources.empty() && positions.size() == sources.size(); }

    std::set<IBaseCtr*> known_items;
    std::vector<std::unique_ptr<Source>> sources;
    std::vector<uint64_t> positions;
    int current_source = -1;
    uint64_t current_index = kNone;
};

// A new merge with no source, owned by the caller.
IMultiSourceReader* CreateMultiSourceReader();
