#pragma once
// The min/max index of a math dataset, built while the result samples stream past.
//
// One accumulator lives for one span of the calculation: it keeps the open entry, the
// count of samples in it, and a buffer of 1 MiB of finished entries that goes to the
// "Index" storage when it is full and at the end. An entry closes after points samples.
//
// After a flush of a full buffer, the buffer is refilled with a full load of zeroed
// entries; the later entries go behind them, the flush does not fire again, and Finish
// writes the zero entries together with the rest. A span of more than one buffer of
// entries thus puts one buffer of zero entries into the index. That is how the stored
// index of a long math wave looks, and it is kept so.

#include "dataset/records.h"
#include "storage/storage_base.h"

#include <cstddef>
#include <cstdint>
#include <vector>

template <class T>
class MathIndexAccumulator {
public:
    static constexpr std::size_t kCapacity = 0x100000 / sizeof(MinMaxData<T>);

    MathIndexAccumulator(StorageBase& index, uint32_t points) : index_(index), points_(points) {
        buffer_.reserve(kCapacity);
    }

    // Folds v into the open entry (the first value of an entry sets both ends).
    void Take(T v) {
        if (count_ == 0) open_.min = open_.max = v;
        if (open_.min > v)
            open_.min = v;
        else if (v > open_.max)
            open_.max = v;
        ++count_;
    }

    // Closes the open entry when it holds its points, and flushes a full buffer.
    void CloseIfFull() {
        if (count_ != points_) return;
        buffer_.push_back(open_);
        count_ = 0;
        if (buffer_.size() == kCapacity) {
            index_.Write(buffer_.data(), buffer_.size());
            buffer_.clear();
            buffer_.resize(kCapacity, MinMaxData<T>{});
        }
    }

    // The open entry, if it holds a sample, then whatever the buffer holds.
    void Finish() {
        if (count_ != 0) buffer_.push_back(open_);
        count_ = 0;
        if (!buffer_.empty()) index_.Write(buffer_.data(), buffer_.size());
        buffer_.clear();
    }

    std::size_t Buffered() const { return buffer_.size(); }

private:
    StorageBase& index_;
    const uint64_t points_;
    MinMaxData<T> open_{};
    uint64_t count_ = 0;
    std::vector<MinMaxData<T>> buffer_;
};
