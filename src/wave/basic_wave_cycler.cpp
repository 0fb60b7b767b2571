#include "wave/basic_wave_cycler.h"

#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "dataset/records.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "reader/basic_wave_reader.h"
#include "storage/storage_base.h"
#include "wave/cycle_setting.h"

#include <cmath>

namespace {

// trunc(index period / sample period), the samples of a full column; 0 where the periods
// give no whole count (a zero sample period, or an index period below one sample).
uint64_t SamplesPerColumn(double sample, double index) {
    const double ratio = index / sample;
    if (!(sample > 0) || !std::isfinite(ratio) || ratio < 1) return 0;
    return TruncateToCount(ratio);
}

// Moves the size axis' offset by shift seconds, keeping its ratio.
void ShiftAxis(__internal::DataSetTool* tools, double shift) {
    IDatasetAxis* axis = tools->SizeAxis();
    if (axis == nullptr) return;
    double offset = 0, ratio = 0;
    axis->GetRatioOffset(&offset, &ratio);
    axis->SetRatioOffset(offset + shift, ratio);
}

}  // namespace

struct BasicWaveCycler::Record {
    IBaseCtr* item = nullptr;
    CycleType type = kSize;
    double step = 0;
    std::shared_ptr<StorageBase> wave, index, area;
    Ctr<IBasicWaveReader> reader;
    EventHandlerPtr on_size, on_time;

    __internal::DataSetTool* Tools() const { return reader ? reader->GetTools() : nullptr; }
    bool Ready() const { return wave && index && area && Tools() != nullptr; }
    // Reads area k; false past the end.
    bool ReadArea(uint64_t k, ValidDataArea& out) const { return area->Read(k, &out, 1) == 1; }
    void Cut(uint64_t samples, uint64_t columns, uint64_t areas) const {
        wave->CutHead(samples);
        index->CutHead(columns);
        area->CutHead(areas);
    }

    void Normalise();
    void OnSizeLimit();
    void OnTimeLimit();
};

void BasicWaveCycler::Record::Normalise() {
    __internal::DataSetTool* tools = Tools();
    // Without the periods the step can't be put on column boundaries: cut nothing.
    if (tools == nullptr || !wave) {
        step = 0;
        return;
    }
    const double i = tools->GetIndexStepTime();
    if (type == kTime) {
        step = i > 0 ? std::floor(step / i) * i : 0.0;
    } else if (type == kSize) {
        const double s = tools->GetSampleTime();
        const double p = std::round(i / s);
        const double u = static_cast<double>(wave->UnitSize());
        if (!(s > 0) || !std::isfinite(p) || !(p > 0) || !(u > 0)) {
            step = 0;
            return;
        }
        step = u * (std::floor(step / u / p) * p);
    }
}

void BasicWaveCycler::Record::OnSizeLimit() {
    if (!Ready()) return;
    __internal::DataSetTool* tools = Tools();
    const double s = tools->GetSampleTime();
    const uint64_t per_column = SamplesPerColumn(s, tools->GetIndexStepTime());
    const uint64_t u = wave->UnitSize();
    if (u == 0) return;
    const uint64_t n = TruncateToCount(step) / u;

    if (area->Count() == 0) {
        if (per_column == 0) return;  // no whole count of samples per column to divide by
        wave->CutHead(n);
        index->CutHead(n / per_column);
        ShiftAxis(tools, static_cast<double>(n) * s);
        return;
    }

    WaveDatasetParameters* parameters = tools->GetDataParameters();
    if (parameters == nullptr) return;
    const uint64_t base = parameters->raw_point_offset;
    uint64_t k = 0;
    bool stopped = false;
    for (ValidDataArea a{}; ReadArea(k, a); ++k) {
        if (n < a.wave_end_pos - base) {
            stopped = true;
            break;
        }
    }
    uint64_t columns = 0, areas = 0;
    if (stopped && k != 0) {
        if (per_column == 0) return;
        columns = n / per_column;
        areas = k;
    }
    Cut(n, columns, areas);
}

void BasicWaveCycler::Record::OnTimeLimit() {
    if (!Ready()) return;
    __internal::DataSetTool* tools = Tools();
    const double s = tools->GetSampleTime();
    const double i = tools->GetIndexStepTime();

    if (area->Count() == 0) {
        if (!(s > 0) || !(i > 0)) return;  // no period to divide by
        wave->CutHead(TruncateToCount(step / s));
        index->CutHead(TruncateToCount(step / i));
        ShiftAxis(tools, step);
        return;
    }

    WaveDatasetParameters* parameters = tools->GetDataParameters();
    if (parameters == nullptr) return;
    const uint64_t t0 = parameters->time_offset;
    const double step_ns = std::trunc(step * 1e9);
    if (!(step_ns >= -9.2e18 && step_ns <= 9.2e18)) return;  // no nanosecond count of this step
    const int64_t d = static_cast<int64_t>(step_ns);
    uint64_t k = 0;
    bool stopped = false;
    ValidDataArea a{};
    for (; ReadArea(k, a); ++k) {
        // end_time - t0 with the wrap of unsigned arithmetic, compared as a signed count.
        if (d < static_cast<int64_t>(static_cast<uint64_t>(a.end_time) - t0)) {
            stopped = true;
            break;
        }
    }
    uint64_t samples = 0, columns = 0, areas = 0;
    if (stopped && k != 0) {
        const double sample_ns_d = std::trunc(s * 1e9);
        const uint64_t per_column = SamplesPerColumn(s, i);
        // A period below one nanosecond, or below one sample per column, divides by zero.
        if (!(sample_ns_d >= 1) || !(sample_ns_d < 9.2e18) || per_column == 0) return;
        const uint64_t sample_ns = static_cast<uint64_t>(sample_ns_d);
        samples = (t0 - static_cast<uint64_t>(a.start_time)) / sample_ns + a.wave_beg_pos -
                  parameters->raw_point_offset;
        columns = (samples - a.first_count) / per_column + 1;
        areas = k;
    }
    Cut(samples, columns, areas);
}

BasicWaveCycler::BasicWaveCycler() : record_(std::make_unique<Record>()) {}

BasicWaveCycler::~BasicWaveCycler() {
    Record& r = *record_;
    if (r.item == nullptr) return;
    r.item->RemoveSubscribeEvent("OutLimit:Size", r.on_size);
    r.item->RemoveSubscribeEvent("OutLimit:Time", r.on_time);
}

void BasicWaveCycler::Config(CycleType type, double step) {
    record_->type = type;
    record_->step = step;
}

void BasicWaveCycler::ConfigStorages(std::shared_ptr<StorageBase> wave, std::shared_ptr<StorageBase> index,
                                     std::shared_ptr<StorageBase> area) {
    record_->wave = std::move(wave);
    record_->index = std::move(index);
    record_->area = std::move(area);
}

void BasicWaveCycler::InitEvents(IBaseCtr* item) {
    Record& r = *record_;
    if (r.item != nullptr) {
        r.item->RemoveSubscribeEvent("OutLimit:Size", r.on_size);
        r.item->RemoveSubscribeEvent("OutLimit:Time", r.on_time);
    }
    r.item = item;
    if (item == nullptr) return;
    Record* record = record_.get();
    r.on_size = MakeEventHandler([record](IBaseCtr*) { record->OnSizeLimit(); });
    r.on_time = MakeEventHandler([record](IBaseCtr*) { record->OnTimeLimit(); });
    item->SubscribeEvent("OutLimit:Size", r.on_size);
    item->SubscribeEvent("OutLimit:Time", r.on_time);
    r.reader = QueryInterface<IBasicWaveReader>(item);
    r.Normalise();
}

BasicWaveCycler::CycleType BasicWaveCycler::Type() const { return record_->type; }

double BasicWaveCycler::Step() const { return record_->step; }

IItemType* RegisterWaveCyclerType() { return RegisterClassType<BasicWaveCycler>("BasicWaveCycler", nullptr); }
