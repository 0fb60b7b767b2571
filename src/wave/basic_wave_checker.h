#pragma once
// BasicWaveChecker: sits in the sample push path of a wave dataset and raises
// "OutLimit:Size" or "OutLimit:Time" on the dataset's item, synchronously, after each
// push that leaves the wave beyond its limit. A size limit fires only above it, a time
// limit already when the span equals it. There is no hysteresis: each push beyond the
// limit fires again. The cutting is the BasicWaveCycler's, a subscriber of those events.

#include <memory>

class IBaseCtr;
class StorageBase;

class BasicWaveChecker {
public:
    enum CheckType : int { kNone = 0, kSize = 1, kTime = 2 };

    // item: the dataset's item; storage: its "Wave".
    BasicWaveChecker(IBaseCtr* item, std::shared_ptr<StorageBase> storage);
    ~BasicWaveChecker();
    BasicWaveChecker(const BasicWaveChecker&) = delete;
    BasicWaveChecker& operator=(const BasicWaveChecker&) = delete;

    // limit: bytes for kSize, seconds for kTime. Safe beside a running check: that check
    // may see the new type with the old limit.
    void Config(CheckType type, double limit);
    CheckType Type() const;
    double Limit() const;

    // On the pushing thread, after a sample push that appended something.
    void PerformCheck();

private:
    struct Record;
    std::unique_ptr<Record> record_;
};
