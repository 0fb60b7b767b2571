#pragma once
// IReader: a sized sequence of fixed-size records, the unit of reading everywhere;
// BaseStructReader<R>: an IReader over one storage of R records.

#include "storage/storage_base.h"

#include <cstdint>
#include <memory>

class IReader {
public:
    virtual ~IReader() = default;
    // Records in the sequence.
    virtual uint64_t Count() = 0;
    // Copies up to count records from position pos into out; gives the number copied,
    // 0 past the end.
    virtual uint64_t Read(uint64_t pos, void* out, uint64_t count) = 0;
};

template <class R>
class BaseStructReader final : public IReader {
public:
    explicit BaseStructReader(std::shared_ptr<StorageBase> storage) : storage_(std::move(storage)) {}
    uint64_t Count() override { return storage_ ? storage_->Count() : 0; }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override {
        return storage_ ? storage_->Read(pos, out, count) : 0;
    }

private:
    std::shared_ptr<StorageBase> storage_;
};
