#include "wave/basic_wave_checker.h"

#include "host/base_ctr.h"
#include "reader/basic_wave_reader.h"
#include "storage/storage_base.h"
#include "wave/cycle_setting.h"

#include <atomic>

struct BasicWaveChecker::Record {
    IBaseCtr* item = nullptr;
    std::shared_ptr<StorageBase> storage;
    Ctr<IBasicWaveReader> reader;  // empty until a time check needs it
    // Written by Config on the script thread, read by the check on the pushing thread.
    std::atomic<int> type{kNone};
    std::atomic<double> limit{0.0};
};

BasicWaveChecker::BasicWaveChecker(IBaseCtr* item, std::shared_ptr<StorageBase> storage)
    : record_(std::make_unique<Record>()) {
    record_->item = item;
    record_->storage = std::move(storage);
}

BasicWaveChecker::~BasicWaveChecker() = default;

void BasicWaveChecker::Config(CheckType type, double limit) {
    record_->type.store(type, std::memory_order_relaxed);
    record_->limit.store(limit, std::memory_order_relaxed);
}

BasicWaveChecker::CheckType BasicWaveChecker::Type() const {
    return static_cast<CheckType>(record_->type.load(std::memory_order_relaxed));
}

double BasicWaveChecker::Limit() const { return record_->limit.load(std::memory_order_relaxed); }

void BasicWaveChecker::PerformCheck() {
    Record& r = *record_;
    const int type = r.type.load(std::memory_order_relaxed);
    const double limit = r.limit.load(std::memory_order_relaxed);
    if (type == kSize) {
        if (!r.storage) return;
        const uint64_t bytes = r.storage->UnitSize() * r.storage->Count();
        if (bytes <= TruncateToCount(limit)) return;
    } else if (type == kTime) {
        if (!r.reader) r.reader = QueryInterface<IBasicWaveReader>(r.item);
        double begin = 0, end = 0;
        // Without a reader, or without data, there is no span to compare.
        if (!r.reader || !r.reader->GetMaxValidRange(begin, end, false)) return;
        if (end - begin < limit) return;
    } else {
        return;
    }
    EventPublishHelper::FireObjectEvent(r.item, type == kSize ? "OutLimit:Size" : "OutLimit:Time");
}
