#pragma once
// The partial export of a wave dataset: what BasicWaveDataSet<T> keeps while it writes
// time ranges of itself into an export package.
//
// The exported data is a wave dataset of its own: a target dataset whose "Wave",
// "Index" and "Area" storages lie on the package's streams (or, without files, on
// staging cache files that FinalizeExport copies into streams). Each range is fed to a
// WaveProducer on the target area by area, so every exported area is one run with its
// own columns on the index grid, and an area cut by the range keeps only its samples
// inside the range.

#include "host/export_data_pack.h"
#include "reader/basic_wave_reader.h"
#include "wave/basic_wave_dataset.h"
#include "wave/wave_producer.h"

#include <memory>

namespace __internal {

// The dataset that receives an export; its storages are bound by the export.
template <class T>
class WaveExportTarget final : public BasicWaveDataSet<T> {
public:
    WaveExportTarget() : BasicWaveDataSet<T>(nullptr) {}
    using DataSetBase::BindCustomStorage;
};

template <class T>
struct WaveExportState {
    bool with_files = false;
    bool running = false;
    std::unique_ptr<CBasicWaveReader<T>> source;
    std::unique_ptr<ExportDataPack> pack;
    std::unique_ptr<WaveExportTarget<T>> target;
    // Made by the first range, with the periods of the source at that time.
    std::unique_ptr<WaveProducer<T>> producer;

    // Back to no export; the package, if any, is dropped uncommitted.
    void Reset();
};

}  // namespace __internal
