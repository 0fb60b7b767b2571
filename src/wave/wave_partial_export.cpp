#include "wave/wave_partial_export.h"

#include "dataset/partial_exportable.h"
#include "dataset/time_rules.h"
#include "host/logger.h"
#include "storage/device_channels.h"
#include "storage/storage_base.h"
#include "storage/stream_channel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr const char* kStreams[] = {"Wave", "Index", "Area"};
constexpr uint64_t kCopyBytes = 0x100000;

// Seconds that give back exactly ns when truncated to nanoseconds.
double NsToExactSeconds(int64_t ns) {
    const double half = ns < 0 ? -0.5 : 0.5;
    return (static_cast<double>(ns) + half) * 1e-9;
}

// ns - shift, held within the 64-bit range.
int64_t ShiftedNs(int64_t ns, int64_t shift) {
    int64_t shifted = 0;
    if (!__builtin_sub_overflow(ns, shift, &shifted)) return shifted;
    return shift > 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

// to - from for from <= to, without overflow.
uint64_t Distance(int64_t from, int64_t to) { return static_cast<uint64_t>(to) - static_cast<uint64_t>(from); }

// Appends the whole content of storage to file; false on a short write.
bool CopyStorage(StorageBase& storage, Tessel::CFile& file) {
    const uint64_t unit = storage.UnitSize();
    if (unit == 0) return false;
    const uint64_t per_piece = std::max<uint64_t>(kCopyBytes / unit, 1);
    std::vector<unsigned char> buffer(per_piece * unit);
    const uint64_t count = storage.Count();
    for (uint64_t pos = 0; pos < count;) {
        const uint64_t got = storage.Read(pos, buffer.data(), std::min(per_piece, count - pos));
        if (got == 0) return false;
        const auto bytes = static_cast<int64_t>(got * unit);
        if (file.Write(buffer.data(), static_cast<uint64_t>(bytes)) != bytes) return false;
        pos += got;
    }
    return true;
}

}  // namespace

namespace __internal {

template <class T>
void WaveExportState<T>::Reset() {
    producer.reset();
    target.reset();
    source.reset();
    pack.reset();
    running = false;
}

template <class T>
std::shared_ptr<WaveExportState<T>> MakeWaveExportState() {
    return std::make_shared<WaveExportState<T>>();
}

}  // namespace __internal

template <class T>
bool BasicWaveDataSet<T>::InitializeExport(bool with_files) {
    __internal::WaveExportState<T>& state = *export_state_;
    state.Reset();
    ExportParameters parameters;
    if (!ReadExportParameters(item_, parameters, false)) return false;
    state.with_files = with_files;
    state.running = true;
    state.source.reset(CreateBasicWaveReader());
    state.pack = std::make_unique<ExportDataPack>(parameters.folder);
    state.target = std::make_unique<__internal::WaveExportTarget<T>>();
    const uint64_t units[] = {sizeof(T), sizeof(MinMaxData<T>), sizeof(ValidDataArea)};
    for (int i = 0; i < 3; ++i) {
        std::shared_ptr<IDeviceChannel> channel;
        if (with_files) {
            std::shared_ptr<Tessel::CFile> file = state.pack->RequestExportFile(kStreams[i]);
            if (!file) {
                state.Reset();
                return false;
            }
            channel = std::make_shared<StreamChannel>(std::move(file), kStreams[i]);
        } else {
            channel = CreateLocalFileCache(0);
        }
        state.target->BindCustomStorage(kStreams[i], std::move(channel), units[i]);
    }
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::AddRange(const Vellum::Var& begin_var, const Vellum::Var& end_var,
                                   const Vellum::Var& shift_var) {
    __internal::WaveExportState<T>& state = *export_state_;
    if (!state.running) return false;
    bool bad_begin = false, bad_end = false, bad_shift = false;
    double begin = begin_var.ToDouble(&bad_begin);
    double end = end_var.ToDouble(&bad_end);
    const double shift = shift_var.IsEmpty() ? 0.0 : shift_var.ToDouble(&bad_shift);
    if (bad_begin || bad_end || bad_shift || !(begin <= end) || !std::isfinite(shift)) return false;

    CBasicWaveReader<T>& reader = *state.source;
    reader.Load();
    reader.GetTools()->ApplyDataOffset(&begin, &end);
    const double sample = reader.SampleStep();
    if (!state.producer)
        state.producer = std::make_unique<WaveProducer<T>>(*state.target, sample, reader.IndexStep());
    WaveProducer<T>& producer = *state.producer;

    std::shared_ptr<StorageBase> wave = GetStorage("Wave");
    std::shared_ptr<StorageBase> areas = GetStorage("Area");
    if (!wave) return false;
    const int64_t sample_ns = SecondsToNs(sample);
    const int64_t begin_ns = SecondsToNs(begin), end_ns = SecondsToNs(end), shift_ns = SecondsToNs(shift);
    if (sample_ns < 1) return false;

    // A clear waits while the samples are copied.
    Lock();
    const uint64_t wave_count = wave->Count();
    const uint64_t area_count = areas ? areas->Count() : 0;
    const bool synthetic = area_count == 0;
    std::vector<T> buffer(std::max<std::size_t>(kCopyBytes / sizeof(T), 1));
    for (uint64_t i = 0; i < (synthetic ? 1 : area_count); ++i) {
        ValidDataArea area{};
        if (synthetic) {
            if (wave_count == 0) break;
            area = SyntheticArea(reader.GetTools()->GetTimeRange().first, wave_count, sample, reader.IndexStep());
            area.wave_end_pos = wave_count - 1;  // inclusive, as stored areas have it
        } else if (areas->Read(i, &area, 1) != 1) {
            break;
        }
        if (area.wave_end_pos < area.wave_beg_pos) continue;
        const uint64_t span = area.wave_end_pos - area.wave_beg_pos;
        // Samples k of the area lie at start_time + k x sample_ns; keep those in [begin, end].
        if (end_ns < area.start_time) continue;
        uint64_t first = 0;
        if (begin_ns > area.start_time) {
            const uint64_t distance = Distance(area.start_time, begin_ns);
            const auto step = static_cast<uint64_t>(sample_ns);
            first = distance / step + (distance % step != 0 ? 1 : 0);
        }
        const uint64_t last =
            std::min<uint64_t>(Distance(area.start_time, end_ns) / static_cast<uint64_t>(sample_ns), span);
        if (first > last) continue;
        const int64_t first_ns = area.start_time + static_cast<int64_t>(first) * sample_ns;
        bool started = false;
        for (uint64_t pos = area.wave_beg_pos + first; pos <= area.wave_beg_pos + last;) {
            const uint64_t want = std::min<uint64_t>(buffer.size(), area.wave_beg_pos + last - pos + 1);
            const uint64_t got = wave->Read(pos, buffer.data(), want);
            if (got == 0) break;
            if (started)
                producer.Append(buffer.data(), got);
            else
                producer.Append(NsToExactSeconds(ShiftedNs(first_ns, shift_ns)), buffer.data(), got);
            started = true;
            pos += got;
        }
        producer.CloseRun();
    }
    UnLock();
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::FinalizeExport() {
    __internal::WaveExportState<T>& state = *export_state_;
    if (!state.running) return false;
    state.producer.reset();  // closes an open run
    state.target->Flush();
    const std::string folder = state.pack->GetSaveParameter();
    bool whole = true;
    // Streams that were not requested at the start get the staged content now.
    const std::map<std::string, std::string> requested = state.pack->GetFileIdMap();
    for (const char* name : kStreams) {
        if (requested.count(name) != 0) continue;
        std::shared_ptr<Tessel::CFile> file = state.pack->RequestExportFile(name);
        std::shared_ptr<StorageBase> storage = state.target->GetStorage(name);
        whole = file && storage && CopyStorage(*storage, *file) && whole;
    }
    const std::map<std::string, std::string> ids = state.pack->GetFileIdMap();
    for (const char* name : kStreams) whole = ids.count(name) != 0 && whole;
    // The target's storages let go of the streams before the package closes them.
    state.target.reset();
    whole = state.pack->Commit() && whole;
    CLogger::DefaultLogger().Info("Dataset @{} exported to {}: Wave={} Index={} Area={}{}", fmt::ptr(this), folder,
                                  ids.count("Wave") ? ids.at("Wave") : "", ids.count("Index") ? ids.at("Index") : "",
                                  ids.count("Area") ? ids.at("Area") : "", whole ? "" : " (incomplete)");
    state.Reset();
    return whole;
}

#define WAVESTORE_WAVE_EXPORT(T)                                                                        \
    template struct __internal::WaveExportState<T>;                                                     \
    template std::shared_ptr<__internal::WaveExportState<T>> __internal::MakeWaveExportState<T>();      \
    template bool BasicWaveDataSet<T>::InitializeExport(bool);                                          \
    template bool BasicWaveDataSet<T>::AddRange(const Vellum::Var&, const Vellum::Var&, const Vellum::Var&); \
    template bool BasicWaveDataSet<T>::FinalizeExport();

WAVESTORE_WAVE_EXPORT(int8_t)
WAVESTORE_WAVE_EXPORT(uint8_t)
WAVESTORE_WAVE_EXPORT(int16_t)
WAVESTORE_WAVE_EXPORT(uint16_t)
WAVESTORE_WAVE_EXPORT(int32_t)
WAVESTORE_WAVE_EXPORT(uint32_t)
WAVESTORE_WAVE_EXPORT(int64_t)
WAVESTORE_WAVE_EXPORT(uint64_t)
WAVESTORE_WAVE_EXPORT(float)
WAVESTORE_WAVE_EXPORT(double)
WAVESTORE_WAVE_EXPORT(LongDouble)
