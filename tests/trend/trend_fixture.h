#pragma once
// A basic trend item of a registered type with a size axis of 1 ms samples (so buckets of
// 50 ms), "duration" and "post_ratio" items, and helpers to push and read its storages.

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/value_item.h"
#include "reader/basic_wave_reader.h"
#include "support/test_wave.h"
#include "trend/basic_trend_dataset.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace trend_test {

inline constexpr uint64_t kMs = 1'000'000;   // ns
inline constexpr uint64_t kStep = 50 * kMs;  // one bucket

template <class T>
struct Trend {
    std::unique_ptr<IBaseCtr> item;
    BasicTrendDataSet<T>* dataset = nullptr;
    IDatasetAxis* size_axis = nullptr;
    IBaseCtr* duration = nullptr;
    IBaseCtr* post_ratio = nullptr;

    Trend(const char* type, uint64_t duration_ns = 0, double ratio = 0.0, bool with_axis = true) {
        item.reset(CreateItemByType(&testing_support::ModuleScope(), type, "trend"));
        if (with_axis) {
            IBaseCtr* axis_item = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "sizeAxis");
            item->AddChildItem(axis_item, "sizeAxis", true);
            size_axis = QueryInterface<IDatasetAxis>(axis_item).get();
            size_axis->SetRatioOffset(0.0, 1e-3);
        }
        duration = new CValueItem("duration", SysVarType::UINT64);
        duration->SetValue(Vellum::Var(static_cast<unsigned long long>(duration_ns)));
        item->AddChildItem(duration, "duration", true);
        post_ratio = new CValueItem("post_ratio", SysVarType::FLOAT);
        post_ratio->SetValue(Vellum::Var(ratio));
        item->AddChildItem(post_ratio, "post_ratio", true);
        dataset = QueryInterface<BasicTrendDataSet<T>>(item.get()).get();
    }

    unsigned long long Push(uint64_t time, T value) { return dataset->Push(time, &value); }

    Ctr<IBasicWaveReader> Reader() { return QueryInterface<IBasicWaveReader>(item.get()); }

    template <class R>
    std::vector<R> Records(const char* id) {
        auto storage = dataset->GetStorage(id);
        std::vector<R> records(storage->Count());
        if (!records.empty()) storage->Read(0, records.data(), records.size());
        return records;
    }
    std::vector<TrendIndexEntry<T>> Index() { return Records<TrendIndexEntry<T>>("__Index__"); }
    std::vector<TrendArea> Areas() { return Records<TrendArea>("__Area__"); }
    std::vector<TrendPoint<T>> Points() { return Records<TrendPoint<T>>("__Trend__"); }
};

}  // namespace trend_test
