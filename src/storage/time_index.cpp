#include "storage/time_index.h"

CTimeIndexOperator::CTimeIndexOperator(uint64_t period, std::shared_ptr<StorageBase> storage)
    : period_(period), storage_(std::move(storage)) {}

uint32_t CTimeIndexOperator::Element(uint64_t index, uint32_t missing) const {
    uint32_t value = 0;
    return storage_ && storage_->Read(index, &value, 1) == 1 ? value : missing;
}

uint64_t CTimeIndexOperator::Push(uint64_t time, uint32_t position) {
    if (!storage_ || period_ == 0) return 0;
    const uint64_t r = time % period_;
    uint64_t appended = 0;
    if (storage_->Count() == 0) {
        uint64_t first = (time - r) / period_;
        if (r == 0 && first != 0) --first;
        const auto base32 = static_cast<uint32_t>(first);
        appended += storage_->Write(&base32, 1);
    }
    const uint64_t base = Element(0, 0);
    const uint64_t n = storage_->Count();
    // Steps between the last stored one and this time.
    const auto k = static_cast<int64_t>(time - r - period_ * (base - 1 + n)) / static_cast<int64_t>(period_);
    if (k < 1) return appended;
    uint32_t value = position - 1;
    for (int64_t i = 1; i < k; ++i) appended += storage_->Write(&value, 1);
    if (r == 0) value = position;
    appended += storage_->Write(&value, 1);
    return appended;
}

uint32_t CTimeIndexOperator::Find(uint64_t time, bool* clamped) {
    if (!storage_ || period_ == 0 || storage_->Count() == 0) return 0;
    const uint64_t base = Element(0, 0);
    const uint64_t step = time / period_;
    if (step <= base) return 0;
    uint64_t index = step - base;
    const uint64_t count = storage_->Count();
    if (index >= count) {
        if (clamped) *clamped = true;
        index = count - 1;
    } else if (clamped) {
        *clamped = false;
    }
    return Element(index, 0xFFFFFFFFu);
}

void CTimeIndexOperator::Range(uint64_t* begin, uint64_t* end) {
    const uint64_t count = storage_ ? storage_->Count() : 0;
    if (count < 2) {
        if (begin) *begin = 0;
        if (end) *end = 0;
        return;
    }
    const uint64_t base = Element(0, 0);
    if (begin) *begin = period_ * base;
    if (end) *end = period_ * (base - 1 + count);
}

uint32_t CTimeIndexOperator::Last() {
    const uint64_t count = storage_ ? storage_->Count() : 0;
    return count < 2 ? 0 : Element(count, 0xFFFFFFFFu);
}

void CTimeIndexOperator::Clear() {
    if (storage_) storage_->Clear();
}

void CTimeIndexOperator::SetPeriod(uint64_t period) {
    period_ = period;
    Clear();
}

ITimeIndexOperator* CreateTimeIndexOperator(uint64_t period, std::shared_ptr<StorageBase> storage) {
    return new CTimeIndexOperator(period, std::move(storage));
}

std::unique_ptr<ITimeIndexOperator> CreateTimeIndexOperatorUnique(uint64_t period, std::shared_ptr<StorageBase> storage) {
    return std::make_unique<CTimeIndexOperator>(period, std::move(storage));
}
