#pragma once
// Wave datasets for reader tests: an item of a registered wave type with a size axis,
// and readers on its storages.

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "reader/basic_wave_reader.h"
#include "wave/basic_wave_dataset.h"

#include <cstdint>
#include <memory>

namespace testing_support {

// The scope that knows the module's types, shared by all tests of a program: a class is
// registered once per process, in the scope of its first registration.
CLocalSource& ModuleScope();

template <class T>
struct TestWave {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<T>* dataset = nullptr;
    IDatasetAxis* axis = nullptr;

    // type: a registered wave type name, "WAVEDATASET[FLOAT]" and the like.
    TestWave(const char* type, double period, uint64_t index_step) {
        item.reset(CreateItemByType(&ModuleScope(), type, "wave"));
        IBaseCtr* size_axis = CreateItemByType(&ModuleScope(), "AXIS", "sizeAxis");
        item->AddChildItem(size_axis, "sizeAxis", true);
        axis = QueryInterface<IDatasetAxis>(size_axis).get();
        axis->SetRatioOffset(0.0, period);
        axis->SetIndexStep(index_step);
        dataset = QueryInterface<BasicWaveDataSet<T>>(item.get()).get();
    }

    // A reader of class Reader (the wave reader or a test subclass of it) on the three
    // storages; with_index false leaves it without an index.
    template <class Reader = CBasicWaveReader<T>>
    std::unique_ptr<Reader> MakeReader(bool with_index = true) {
        auto open = [&](const char* id, auto unit) -> std::shared_ptr<IReader> {
            return std::make_shared<BaseStructReader<decltype(unit)>>(dataset->GetStorage(id));
        };
        return std::make_unique<Reader>(item.get(), open("Wave", T{}),
                                        with_index ? open("Index", MinMaxData<T>{}) : nullptr,
                                        open("Area", ValidDataArea{}));
    }
};

}  // namespace testing_support
