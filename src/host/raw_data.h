#pragma once
// RawData: a movable view of elements that a storage lends without copying. While the
// view lives, the memory behind it stays put; destroying the view gives it back.
// Count() is in elements of the storage, not in bytes. The null view has no pointer
// and no elements.

#include <cstdint>
#include <memory>

class RawData {
public:
    class MyData {
    public:
        virtual ~MyData() = default;
        virtual const void* Ptr() const = 0;
        virtual uint64_t Count() const = 0;
    };

    RawData() = default;
    explicit RawData(std::unique_ptr<MyData> data) : data_(std::move(data)) {}
    RawData(RawData&&) noexcept = default;
    RawData& operator=(RawData&&) noexcept = default;
    RawData(const RawData&) = delete;
    RawData& operator=(const RawData&) = delete;

    static RawData NullData() { return RawData(); }

    const void* Ptr() const { return data_ ? data_->Ptr() : nullptr; }
    uint64_t Count() const { return data_ ? data_->Count() : 0; }
    bool IsNull() const { return Ptr() == nullptr; }

private:
    std::unique_ptr<MyData> data_;
};
