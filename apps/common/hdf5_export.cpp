#include "common/hdf5_export.h"

#include "dataset/dataset_tool.h"
#include "dataset/element_types.h"
#include "dataset/records.h"
#include "dataset/time_rules.h"
#include "host/base_ctr.h"
#include "wave/basic_wave_dataset.h"
#include "wave/struct_reader.h"

#include <hdf5.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;

// An HDF5 identifier closed by its own close function when it goes.
class Hid {
public:
    Hid() = default;
    Hid(hid_t id, herr_t (*close)(hid_t)) : id_(id), close_(close) {}
    Hid(Hid&& other) noexcept : id_(other.id_), close_(other.close_) { other.id_ = H5I_INVALID_HID; }
    Hid& operator=(Hid&& other) noexcept {
        std::swap(id_, other.id_);
        std::swap(close_, other.close_);
        return *this;
    }
    Hid(const Hid&) = delete;
    Hid& operator=(const Hid&) = delete;
    ~Hid() { Close(); }
    hid_t get() const { return id_; }
    bool ok() const { return id_ >= 0; }
    // Closes now; false when the close failed (for a file: its data may not be written).
    bool Close() {
        if (id_ < 0) return true;
        const bool closed = close_(id_) >= 0;
        id_ = H5I_INVALID_HID;
        return closed;
    }

private:
    hid_t id_ = H5I_INVALID_HID;
    herr_t (*close_)(hid_t) = nullptr;
};

template <class T>
hid_t NativeType() {
    if constexpr (std::is_same_v<T, int8_t>) return H5T_NATIVE_INT8;
    else if constexpr (std::is_same_v<T, uint8_t>) return H5T_NATIVE_UINT8;
    else if constexpr (std::is_same_v<T, int16_t>) return H5T_NATIVE_INT16;
    else if constexpr (std::is_same_v<T, uint16_t>) return H5T_NATIVE_UINT16;
    else if constexpr (std::is_same_v<T, int32_t>) return H5T_NATIVE_INT32;
    else if constexpr (std::is_same_v<T, uint32_t>) return H5T_NATIVE_UINT32;
    else if constexpr (std::is_same_v<T, int64_t>) return H5T_NATIVE_INT64;
    else if constexpr (std::is_same_v<T, uint64_t>) return H5T_NATIVE_UINT64;
    else if constexpr (std::is_same_v<T, float>) return H5T_NATIVE_FLOAT;
    else return H5T_NATIVE_DOUBLE;  // double, and LongDouble, which holds a binary64
}

Hid AreaType() {
    Hid type(H5Tcreate(H5T_COMPOUND, sizeof(ValidDataArea)), H5Tclose);
    H5Tinsert(type.get(), "start_time", offsetof(ValidDataArea, start_time), H5T_NATIVE_INT64);
    H5Tinsert(type.get(), "end_time", offsetof(ValidDataArea, end_time), H5T_NATIVE_INT64);
    H5Tinsert(type.get(), "index_id", offsetof(ValidDataArea, index_id), H5T_NATIVE_UINT64);
    H5Tinsert(type.get(), "first_count", offsetof(ValidDataArea, first_count), H5T_NATIVE_UINT64);
    H5Tinsert(type.get(), "wave_beg_pos", offsetof(ValidDataArea, wave_beg_pos), H5T_NATIVE_UINT64);
    H5Tinsert(type.get(), "wave_end_pos", offsetof(ValidDataArea, wave_end_pos), H5T_NATIVE_UINT64);
    return type;
}

template <class T>
Hid ColumnType() {
    Hid type(H5Tcreate(H5T_COMPOUND, sizeof(MinMaxData<T>)), H5Tclose);
    H5Tinsert(type.get(), "min", offsetof(MinMaxData<T>, min), NativeType<T>());
    H5Tinsert(type.get(), "max", offsetof(MinMaxData<T>, max), NativeType<T>());
    return type;
}

// A 1-D dataset that grows by appended rows.
class Rows {
public:
    Rows(hid_t file, const char* name, hid_t type, hsize_t chunk, int compression) : type_(type) {
        const hsize_t initial = 0, unlimited = H5S_UNLIMITED;
        Hid space(H5Screate_simple(1, &initial, &unlimited), H5Sclose);
        Hid properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
        H5Pset_chunk(properties.get(), 1, &chunk);
        if (compression > 0) {
            H5Pset_shuffle(properties.get());
            H5Pset_deflate(properties.get(), static_cast<unsigned>(compression));
        }
        dataset_ = Hid(H5Dcreate2(file, name, type, space.get(), H5P_DEFAULT, properties.get(), H5P_DEFAULT), H5Dclose);
    }
    bool ok() const { return dataset_.ok(); }
    hid_t get() const { return dataset_.get(); }
    uint64_t size() const { return size_; }

    bool Append(const void* rows, hsize_t count) {
        if (count == 0) return true;
        const hsize_t grown = size_ + count;
        if (H5Dset_extent(dataset_.get(), &grown) < 0) return false;
        Hid file_space(H5Dget_space(dataset_.get()), H5Sclose);
        const hsize_t start = size_;
        if (H5Sselect_hyperslab(file_space.get(), H5S_SELECT_SET, &start, nullptr, &count, nullptr) < 0) return false;
        Hid memory_space(H5Screate_simple(1, &count, nullptr), H5Sclose);
        if (H5Dwrite(dataset_.get(), type_, memory_space.get(), file_space.get(), H5P_DEFAULT, rows) < 0) return false;
        size_ = grown;
        return true;
    }

private:
    hid_t type_;
    Hid dataset_;
    uint64_t size_ = 0;
};

bool WriteAttribute(hid_t object, const char* name, double value) {
    Hid space(H5Screate(H5S_SCALAR), H5Sclose);
    Hid attribute(H5Acreate2(object, name, H5T_NATIVE_DOUBLE, space.get(), H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return attribute.ok() && H5Awrite(attribute.get(), H5T_NATIVE_DOUBLE, &value) >= 0;
}

bool WriteAttribute(hid_t object, const char* name, uint64_t value) {
    Hid space(H5Screate(H5S_SCALAR), H5Sclose);
    Hid attribute(H5Acreate2(object, name, H5T_NATIVE_UINT64, space.get(), H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return attribute.ok() && H5Awrite(attribute.get(), H5T_NATIVE_UINT64, &value) >= 0;
}

// A variable-length UTF-8 string: Python reads it as str.
bool WriteAttribute(hid_t object, const char* name, const std::string& value) {
    Hid type(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(type.get(), H5T_VARIABLE);
    H5Tset_cset(type.get(), H5T_CSET_UTF8);
    Hid space(H5Screate(H5S_SCALAR), H5Sclose);
    Hid attribute(H5Acreate2(object, name, type.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    const char* text = value.c_str();
    return attribute.ok() && H5Awrite(attribute.get(), type.get(), &text) >= 0;
}

// One run of the export: the samples [first, last] of an area (positions in "Wave"), the
// columns [first_column, last_column] of "Index", and the area record as it stands in
// the file.
struct Run {
    uint64_t first, last;
    uint64_t first_column, last_column;
    ValidDataArea area;
};

// The runs of the export, in time order, with positions rebased to the file's datasets.
std::vector<Run> PlanRuns(IReader& areas, uint64_t wave_count, const ExportSpan& span,
                          const std::optional<ValidDataArea>& synthetic, uint64_t sample_ns, uint64_t per_index) {
    std::vector<Run> runs;
    uint64_t samples = 0, columns = 0;
    const uint64_t count = synthetic ? 1 : areas.Count();
    const int64_t b = SecondsToNs(span.begin), e = SecondsToNs(span.end);
    for (uint64_t i = 0; i < count; ++i) {
        ValidDataArea area{};
        if (synthetic) {
            area = *synthetic;
        } else if (areas.Read(i, &area, 1) != 1) {
            break;
        }
        if (area.wave_end_pos < area.wave_beg_pos || area.wave_beg_pos >= wave_count) continue;
        const uint64_t length = std::min(area.wave_end_pos, wave_count - 1) - area.wave_beg_pos;  // last, relative
        uint64_t k0 = 0, k1 = length;
        if (!span.whole) {
            if (area.end_time < b || area.start_time > e) continue;
            if (b > area.start_time) k0 = (static_cast<uint64_t>(b - area.start_time) + sample_ns - 1) / sample_ns;
            k1 = std::min(k1, static_cast<uint64_t>(e - area.start_time) / sample_ns);
            if (k0 > k1) continue;
        }
        Run run{area.wave_beg_pos + k0, area.wave_beg_pos + k1, 0, 0, {}};
        run.first_column = AreaPositionToColumn(area, run.first, per_index);
        run.last_column = AreaPositionToColumn(area, run.last, per_index);
        // The samples of the first exported column that lie in the export.
        const uint64_t column_end = run.first_column == area.index_id
                                        ? area.first_count - 1
                                        : area.first_count + (run.first_column - area.index_id) * per_index - 1;
        run.area.start_time = area.start_time + static_cast<int64_t>(k0 * sample_ns);
        run.area.end_time = area.start_time + static_cast<int64_t>(k1 * sample_ns);
        run.area.index_id = columns;
        run.area.first_count = std::min(column_end, k1) - k0 + 1;
        run.area.wave_beg_pos = samples;
        run.area.wave_end_pos = samples + (k1 - k0);
        samples += k1 - k0 + 1;
        columns += run.last_column - run.first_column + 1;
        runs.push_back(run);
    }
    return runs;
}

// Copies records [first, last] of a storage into rows, through buffer.
template <class R>
bool CopyRecords(IReader& from, uint64_t first, uint64_t last, Rows& rows, std::vector<R>& buffer,
                 const std::function<void(uint64_t)>& advanced) {
    for (uint64_t position = first; position <= last;) {
        const uint64_t want = std::min<uint64_t>(buffer.size(), last - position + 1);
        const uint64_t got = from.Read(position, buffer.data(), want);
        if (got == 0) return false;
        if (!rows.Append(buffer.data(), got)) return false;
        position += got;
        if (advanced) advanced(got);
    }
    return true;
}

template <class T>
bool ExportTyped(IBaseCtr* item, const std::string& temporary, const ExportOptions& options, ExportSummary& summary,
                 std::string& error) {
    const Ctr<IReader> wave = QueryInterface<IReader>(item, "Wave");
    const Ctr<IReader> index = QueryInterface<IReader>(item, "Index");
    const Ctr<IReader> areas = QueryInterface<IReader>(item, "Area");
    if (!wave || !areas) {
        error = "the dataset has no \"Wave\" or \"Area\" storage";
        return false;
    }
    __internal::DataSetTool tool(item);
    const double sample_period = tool.GetSampleTime();
    const double index_period = tool.GetIndexStepTime();
    const int64_t sample_ns = SecondsToNs(sample_period);
    if (sample_ns < 1) {
        error = "the dataset has no sample period of a nanosecond or more";
        return false;
    }
    const uint64_t per_index = IndexStepSamples(index_period, sample_period);
    const uint64_t wave_count = wave->Count();
    std::optional<ValidDataArea> synthetic;
    if (areas->Count() == 0 && wave_count > 0) {
        synthetic = SyntheticArea(tool.GetTimeRange().first, wave_count, sample_period, index_period);
        synthetic->wave_end_pos = wave_count - 1;
    }
    const std::vector<Run> runs =
        PlanRuns(*areas, wave_count, options.span, synthetic, static_cast<uint64_t>(sample_ns), per_index);
    if (runs.empty()) {
        error = options.span.whole ? "the dataset holds no samples" : "no sample lies in the span";
        return false;
    }
    uint64_t planned = 0;
    for (const Run& run : runs) planned += run.last - run.first + 1;

    Hid file(H5Fcreate(temporary.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose);
    if (!file.ok()) {
        error = "cannot create the file";
        return false;
    }
    constexpr uint64_t kBuffer = 1u << 20;  // samples per read and write
    Rows samples(file.get(), "samples", NativeType<T>(), std::min<uint64_t>(kBuffer, std::max<uint64_t>(planned, 1)),
                 options.compression);
    const Hid area_type = AreaType(), column_type = ColumnType<T>();
    Rows area_rows(file.get(), "areas", area_type.get(), 1024, options.compression);
    Rows index_rows(file.get(), "index", column_type.get(), 65536, options.compression);
    if (!samples.ok() || !area_rows.ok() || !index_rows.ok()) {
        error = "cannot create the datasets";
        return false;
    }

    std::vector<T> buffer(static_cast<std::size_t>(std::min(kBuffer, planned)));
    std::vector<MinMaxData<T>> column_buffer(65536);
    uint64_t done = 0;
    const auto advanced = [&](uint64_t count) {
        done += count;
        if (options.progress) options.progress(static_cast<double>(done) / static_cast<double>(planned));
    };
    for (const Run& run : runs) {
        if (!CopyRecords(*wave, run.first, run.last, samples, buffer, advanced)) {
            error = "the samples could not be read or written";
            return false;
        }
        if (index && index->Count() > run.first_column) {
            const uint64_t last = std::min(run.last_column, index->Count() - 1);
            if (!CopyRecords(*index, run.first_column, last, index_rows, column_buffer, {})) {
                error = "the index columns could not be read or written";
                return false;
            }
        }
        if (!area_rows.Append(&run.area, 1)) {
            error = "the areas could not be written";
            return false;
        }
    }

    const hid_t attributes = samples.get();
    const auto [data_scale, data_offset] = tool.GetDataAxisInfo();
    bool written = WriteAttribute(attributes, "sample_period", sample_period) &&
                   WriteAttribute(attributes, "start_time", static_cast<double>(runs.front().area.start_time) * 1e-9) &&
                   WriteAttribute(attributes, "index_period", index_period) &&
                   WriteAttribute(attributes, "samples_per_index", per_index) &&
                   WriteAttribute(attributes, "time_unit", std::string("s")) &&
                   WriteAttribute(attributes, "value_unit", std::string("raw")) &&
                   WriteAttribute(attributes, "element_type", std::string(ElementTraits<T>::kShortName)) &&
                   WriteAttribute(attributes, "dataset", item->GetName());
    if (tool.DataAxis() != nullptr) {
        written = written && WriteAttribute(attributes, "data_scale", data_scale) &&
                  WriteAttribute(attributes, "data_offset", data_offset);
    }
    if (!written) {
        error = "the attributes could not be written";
        return false;
    }
    summary = {samples.size(), area_rows.size(), index_rows.size()};
    if (!file.Close()) {
        error = "the file could not be completed";
        return false;
    }
    return true;
}

}  // namespace

bool ExportWaveToHdf5(IBaseCtr* item, const std::string& path, const ExportOptions& options, ExportSummary& summary,
                      std::string& error) {
    summary = {};
    if (item == nullptr) {
        error = "no dataset";
        return false;
    }
    if (options.compression < 0 || options.compression > 9) {
        error = "compression must lie between 0 and 9";
        return false;
    }
    if (!options.span.whole && !(options.span.end >= options.span.begin)) {
        error = "the span ends before it begins";
        return false;
    }
    // HDF5 prints its own error stack unless told not to; the reasons are ours to give.
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);

    const fs::path target(path);
    const fs::path temporary = target.parent_path() / (target.filename().string() + ".partial." + std::to_string(::getpid()));
    bool exported = false;
    bool known = false;
    ForEachElementType([&]<class T>() {
        if (known || !QueryInterface<BasicWaveDataSet<T>>(item)) return;
        known = true;
        exported = ExportTyped<T>(item, temporary.string(), options, summary, error);
    });
    std::error_code ignored;
    if (!known) {
        error = "the item is not a wave dataset";
        return false;
    }
    if (!exported) {
        fs::remove(temporary, ignored);
        summary = {};
        return false;
    }
    std::error_code renamed;
    fs::rename(temporary, target, renamed);
    if (renamed) {
        fs::remove(temporary, ignored);
        error = "cannot move the finished file into place: " + renamed.message();
        summary = {};
        return false;
    }
    return true;
}
