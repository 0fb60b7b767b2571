#include "common/common_wave_reader.h"

#include "common/common_wave_dataset.h"
#include "common/common_wave_indexer.h"
#include "common/wave_result_data.h"
#include "common/wave_type_ops.h"
#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "storage/storage_base.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr uint64_t kChunk = 65536;

bool Holds(const ValidDataArea& area, int64_t n) { return area.start_time <= n && area.end_time >= n; }

// Records are copied by the storage's unit: a storage of another width than the record
// would be read past the record's end.
bool HasUnit(const std::shared_ptr<StorageBase>& storage, std::size_t unit) {
    return storage && storage->UnitSize() == unit;
}

}  // namespace

CommonWaveReader::CommonWaveReader(IBaseCtr* owner, IWaveDataset* dataset)
    : owner_(owner ? owner : (dataset ? dataset->Item() : nullptr)), dataset_(dataset) {
    IDataSetBase* group = dataset_ ? dataset_->StorageGroup() : nullptr;
    if (group == nullptr) return;
    wave_ = group->GetStorage("Wave");
    area_ = group->GetStorage("Area");
    index_ = group->GetStorage("Index");
}

CommonWaveReader::~CommonWaveReader() = default;

const WaveTypeOps* CommonWaveReader::Ops() const { return dataset_ ? dataset_->TypeOperations() : nullptr; }

IRatio* CommonWaveReader::DataAxis() const {
    IBaseCtr* axis = owner_ ? owner_->GetChildItem("dataAxis") : nullptr;
    return QueryInterface<IRatio>(axis).get();
}

std::unique_ptr<IAnalogMinMaxData> CommonWaveReader::MinMaxData(uint32_t count) {
    return std::make_unique<WaveMinMaxData>(count, DataAxis(), Ops());
}

std::unique_ptr<IAnalogDataArray> CommonWaveReader::DataArray(uint32_t count) {
    return std::make_unique<WaveDataArray>(count, DataAxis(), Ops());
}

std::unique_ptr<IAnalogData> CommonWaveReader::Data() { return std::make_unique<WaveData>(DataAxis(), Ops()); }

std::unique_ptr<IAnalogDataArray> CommonWaveReader::TimeArray(uint32_t) { return nullptr; }

bool CommonWaveReader::ReadTimes(VellumTime, IAnalogDataArray*) { return false; }

bool CommonWaveReader::ReadBefore(VellumTime, IAnalogDataArray*) { return false; }

bool CommonWaveReader::FindValue(VellumTime, VellumTime, double, VellumTime&) { return false; }

bool CommonWaveReader::FindEdge(VellumTime, VellumTime, double, bool, VellumTime&) { return false; }

bool CommonWaveReader::NextRange(VellumTime, VellumTime&, VellumTime&) { return false; }

bool CommonWaveReader::ValidRange(VellumTime& begin, VellumTime& end) {
    if (dataset_ == nullptr || !wave_ || wave_->Count() == 0) return false;
    const VellumLevelTime period = dataset_->SamplePeriod();
    const ValidDataArea last = dataset_->LastArea();
    int64_t start = last.start_time;
    ValidDataArea first{};
    if (HasUnit(area_, sizeof(ValidDataArea)) && area_->Count() > 0 && area_->Read(0, &first, 1) == 1)
        start = first.start_time;
    begin = period * start;
    end = period * last.end_time;
    return true;
}

uint64_t CommonWaveReader::Count(VellumTime begin, VellumTime end) {
    if (dataset_ == nullptr) return 0;
    const VellumLevelTime period = dataset_->SamplePeriod();
    VellumTime valid_begin, valid_end;
    if (!ValidRange(valid_begin, valid_end)) return 0;
    begin = std::max(begin, valid_begin);
    end = std::min(end, valid_end);
    const double samples = (end - begin) / period;
    // A range outside the data cuts to nothing.
    if (!(samples > 0.0)) return 0;
    return static_cast<uint64_t>(samples);
}

bool CommonWaveReader::FindArea(int64_t n, ValidDataArea& area) const {
    const uint64_t total = HasUnit(area_, sizeof(ValidDataArea)) ? area_->Count() : 0;
    for (uint64_t pos = 0; pos < total;) {
        RawData view = area_->Request(pos, total - pos);
        if (view.IsNull() || view.Count() == 0) break;
        const auto* records = static_cast<const unsigned char*>(view.Ptr());
        for (uint64_t i = 0; i < view.Count(); ++i) {
            ValidDataArea record;
            std::memcpy(&record, records + i * sizeof(ValidDataArea), sizeof(ValidDataArea));
            if (Holds(record, n)) {
                area = record;
                return true;
            }
        }
        pos += view.Count();
    }
    if (dataset_ == nullptr) return false;
    const ValidDataArea last = dataset_->LastArea();
    if (!Holds(last, n)) return false;
    area = last;
    return true;
}

bool CommonWaveReader::At(VellumTime time, IAnalogData* data) {
    auto* element = dynamic_cast<WaveData*>(data);
    const WaveTypeOps* ops = Ops();
    if (element == nullptr || ops == nullptr || element->Ops() != ops || !HasUnit(wave_, ops->size)) return false;
    const double position = std::floor(time / dataset_->SamplePeriod());
    if (!(position >= -9.2e18 && position <= 9.2e18)) return false;
    const auto n = static_cast<int64_t>(position);
    ValidDataArea area;
    if (!FindArea(n, area)) return false;
    const uint64_t at = static_cast<uint64_t>(n - area.start_time) + area.wave_beg_pos;
    return wave_->Read(at, element->Element(), 1) == 1;
}

uint32_t CommonWaveReader::ReadData(VellumTime begin, IAnalogDataArray* out) {
    auto* array = dynamic_cast<WaveDataArray*>(out);
    const WaveTypeOps* ops = Ops();
    if (array == nullptr || ops == nullptr || array->Ops() != ops || !HasUnit(wave_, ops->size)) return 0;
    array->SetCount(0);
    const double position = std::floor(begin / dataset_->SamplePeriod());
    if (!(position >= -9.2e18 && position <= 9.2e18)) return 0;
    const auto n = static_cast<int64_t>(position);
    ValidDataArea area;
    if (!FindArea(n, area)) return 0;
    const uint64_t first = static_cast<uint64_t>(n - area.start_time) + area.wave_beg_pos;
    const uint64_t available = area.wave_end_pos - first + 1;
    const uint64_t want = std::min<uint64_t>(available, array->Capacity());
    const auto got = static_cast<uint32_t>(wave_->Read(first, array->Buffer(), want));
    array->SetCount(got);
    return got;
}

bool CommonWaveReader::ScanSamples(uint64_t first, uint64_t last, unsigned char* pair, bool& started) const {
    const WaveTypeOps* ops = Ops();
    const std::size_t size = ops->size;
    std::vector<unsigned char> buffer(size * std::min<uint64_t>(kChunk, last - first + 1));
    bool any = false;
    for (uint64_t pos = first; pos <= last;) {
        const uint64_t want = std::min<uint64_t>(kChunk, last - pos + 1);
        const uint64_t got = wave_->Read(pos, buffer.data(), want);
        if (got == 0) break;
        for (uint64_t i = 0; i < got; ++i) {
            const unsigned char* element = buffer.data() + i * size;
            if (!started) {
                std::memcpy(pair, element, size);
                std::memcpy(pair + size, element, size);
                started = true;
            }
            if (ops->compare(pair, element) > 0) std::memcpy(pair, element, size);
            if (ops->compare(pair + size, element) < 0) std::memcpy(pair + size, element, size);
        }
        any = true;
        pos += got;
    }
    return any;
}

bool CommonWaveReader::ScanIndex(uint64_t first, uint64_t last, unsigned char* pair, bool& started) const {
    const WaveTypeOps* ops = Ops();
    const std::size_t size = ops->size;
    std::vector<unsigned char> buffer(2 * size * std::min<uint64_t>(kChunk, last - first + 1));
    bool any = false;
    for (uint64_t pos = first; pos <= last;) {
        const uint64_t got = index_->Read(pos, buffer.data(), std::min<uint64_t>(kChunk, last - pos + 1));
        if (got == 0) break;
        for (uint64_t i = 0; i < got; ++i) {
            const unsigned char* min = buffer.data() + 2 * i * size;
            const unsigned char* max = min + size;
            if (!started) {
                std::memcpy(pair, min, size);
                std::memcpy(pair + size, max, size);
                started = true;
            }
            if (ops->compare(pair, min) > 0) std::memcpy(pair, min, size);
            if (ops->compare(pair + size, max) < 0) std::memcpy(pair + size, max, size);
        }
        any = true;
        pos += got;
    }
    return any;
}

uint32_t CommonWaveReader::ReadMinMax(VellumTime begin, VellumTime end, IAnalogMinMaxData* out) {
    const WaveTypeOps* ops = Ops();
    if (out == nullptr || ops == nullptr || !HasUnit(wave_, ops->size) || out->Capacity() == 0) return 0;
    out->SetCount(0);
    const VellumLevelTime period = dataset_->SamplePeriod();
    const double first_sample = begin / period;
    const double last_sample = end / period;
    if (!(last_sample > first_sample) || !(first_sample >= -9.2e18) || !(last_sample <= 9.2e18)) return 0;
    const auto n0 = static_cast<int64_t>(std::floor(first_sample));
    ValidDataArea area;
    if (!FindArea(n0, area)) return 0;
    const int64_t n_last = std::min<int64_t>(static_cast<int64_t>(std::floor(last_sample)), area.end_time);

    uint32_t step = 0;
    if (auto* common = dynamic_cast<CommonWaveDataSet*>(dataset_); common && common->MainIndexer())
        step = common->MainIndexer()->Step();
    const uint64_t entries = HasUnit(index_, 2 * ops->size) ? index_->Count() : 0;
    const uint32_t columns = out->Capacity();
    const double per_column = (last_sample - first_sample) / columns;
    auto position = [&](int64_t n) { return static_cast<uint64_t>(n - area.start_time) + area.wave_beg_pos; };

    auto* pairs = static_cast<unsigned char*>(out->Buffer());
    uint32_t given = 0;
    for (uint32_t c = 0; c < columns; ++c) {
        const int64_t a = n0 + static_cast<int64_t>(std::floor(c * per_column));
        int64_t b = n0 + static_cast<int64_t>(std::floor((c + 1) * per_column)) - 1;
        if (a > n_last) break;
        b = std::clamp(b, a, n_last);
        unsigned char* pair = pairs + 2 * static_cast<std::size_t>(c) * ops->size;
        bool started = false;
        // Index entry i holds sample numbers i x step up to (i + 1) x step - 1.
        const uint64_t i0 = step ? (static_cast<uint64_t>(a) + step - 1) / step : 0;
        const uint64_t i1 = step ? (static_cast<uint64_t>(b) + 1) / step : 0;  // one past the last whole entry
        if (step != 0 && per_column >= step && a >= 0 && i0 < i1 && i1 <= entries) {
            if (static_cast<int64_t>(i0 * step) > a) ScanSamples(position(a), position(i0 * step - 1), pair, started);
            ScanIndex(i0, i1 - 1, pair, started);
            if (static_cast<int64_t>(i1 * step) <= b) ScanSamples(position(i1 * step), position(b), pair, started);
        } else {
            ScanSamples(position(a), position(b), pair, started);
        }
        if (!started) break;
        given = c + 1;
    }
    out->SetCount(given);
    return given;
}
