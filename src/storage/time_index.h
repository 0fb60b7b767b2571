#pragma once
// A time index: one data position per fixed time step, kept in a storage of 32-bit
// elements, so that the position of a time is one division and one read away.
//
// Element 0 holds the number of the first step, base; element i >= 1 holds the
// position for step base + i - 1. A period of 0 has no steps: such an index stores
// nothing and finds position 0.

#include "storage/storage_base.h"

#include <cstdint>
#include <memory>

class ITimeIndexOperator {
public:
    virtual ~ITimeIndexOperator() = default;
    // Records that position belongs to time; gives the elements appended.
    virtual uint64_t Push(uint64_t time, uint32_t position) = 0;
    // Position of time; 0 before the first step; the last position (clamped = true)
    // beyond the last step.
    virtual uint32_t Find(uint64_t time, bool* clamped) = 0;
    // The times covered; either pointer may be null.
    virtual void Range(uint64_t* begin, uint64_t* end) = 0;
    // Reads one past the last element, which holds nothing: 0 with fewer than two
    // elements, else 0xFFFFFFFF. Kept for its place in the interface.
    virtual uint32_t Last() = 0;
    virtual uint64_t Period() = 0;
    virtual void Clear() = 0;
    // Stores the period and empties the index.
    virtual void SetPeriod(uint64_t period) = 0;
};

class CTimeIndexOperator final : public ITimeIndexOperator {
public:
    CTimeIndexOperator(uint64_t period, std::shared_ptr<StorageBase> storage);

    uint64_t Push(uint64_t time, uint32_t position) override;
    uint32_t Find(uint64_t time, bool* clamped) override;
    void Range(uint64_t* begin, uint64_t* end) override;
    uint32_t Last() override;
    uint64_t Period() override { return period_; }
    void Clear() override;
    void SetPeriod(uint64_t period) override;

private:
    uint32_t Element(uint64_t index, uint32_t missing) const;

    uint64_t period_;
    std::shared_ptr<StorageBase> storage_;
};

// An index on storage, which must have 4-byte units; the caller owns the result.
ITimeIndexOperator* CreateTimeIndexOperator(uint64_t period, std::shared_ptr<StorageBase> storage);
std::unique_ptr<ITimeIndexOperator> CreateTimeIndexOperatorUnique(uint64_t period, std::shared_ptr<StorageBase> storage);
