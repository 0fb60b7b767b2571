#pragma once
// Source waves and math datasets for the math tests. Times are multiples of 1/512 s, a
// sample period whose seconds and nanoseconds are both exact in double arithmetic, so
// that the time walks of the calculation land on sample times exactly.

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "math/math_dataset.h"
#include "storage/storage_base.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace math_test {

inline constexpr double kPeriod = 1.0 / 512;  // 1953125 ns

// An item of class C, its type registered under the class' own name if needed.
template <class C>
IBaseCtr* MakeItem(const std::string& name) {
    testing_support::ModuleScope();
    RegisterClassType<C>(VellumTypeOf<C>().Name(), &testing_support::ModuleScope());
    return CreateItemByTypeID(VellumTypeOf<C>(), name);
}

// Gives item a size axis of period seconds with index_step samples per index entry.
inline IDatasetAxis* AddSizeAxis(IBaseCtr* item, double period, uint64_t index_step) {
    IBaseCtr* axis_item = CreateItemByTypeID(VellumTypeOf<CDatasetAxis>(), "sizeAxis");
    item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, period);
    axis->SetIndexStep(index_step);
    return axis;
}

// A wave dataset of T filled through the producer, one run per Run call.
template <class T>
struct Source {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<T>* dataset = nullptr;
    double period;
    uint64_t index_step;

    explicit Source(double period_seconds = kPeriod, uint64_t index_step_samples = 10)
        : item(MakeItem<BasicWaveDataSet<T>>("source")), period(period_seconds), index_step(index_step_samples) {
        AddSizeAxis(item.get(), period, index_step);
        dataset = QueryInterface<BasicWaveDataSet<T>>(item.get()).get();
    }
    Source& Run(double start, const std::vector<T>& values) {
        WaveProducer<T> producer(*dataset, period, period * static_cast<double>(index_step));
        producer.Append(start, values.data(), values.size());
        return *this;
    }
    Source& Constant(double start, double end, T value) {
        const auto count = static_cast<std::size_t>((end - start) / period + 0.5) + 1;
        return Run(start, std::vector<T>(count, value));
    }
};

// A math dataset item with a size axis like its sources'.
template <class T, int Op>
struct Math {
    std::unique_ptr<IBaseCtr> item;
    MathDataSet<T, Op>* math = nullptr;

    explicit Math(double period = kPeriod, uint64_t index_step = 10) : item(MakeItem<MathDataSet<T, Op>>("math")) {
        AddSizeAxis(item.get(), period, index_step);
        math = QueryInterface<MathDataSet<T, Op>>(item.get()).get();
    }
    Math& Link(IBaseCtr* left, IBaseCtr* right) {
        item->SetLinkItem(left, "left");
        item->SetLinkItem(right, "right");
        return *this;
    }
    uint64_t Count(const char* id) const { return math->GetStorage(id)->Count(); }
};

template <class R>
std::vector<R> ReadAll(const std::shared_ptr<StorageBase>& storage) {
    std::vector<R> records(storage->Count());
    records.resize(storage->Read(0, records.data(), records.size()));
    return records;
}

inline uint64_t Ns(double seconds) { return static_cast<uint64_t>(seconds * 1e9); }

}  // namespace math_test
