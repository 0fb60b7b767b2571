// The wave store against HDF5 (C API) on the same float capture, each figure a ratio
// measured in the same run (HDF5 time / our time, above 1 means we are faster):
//   append   ratio_append_vs_hdf5  WaveProducer pushes samples, index columns and areas
//                                   in 1 MiB batches, then Flush; vs a chunked, extendible
//                                   1-D HDF5 dataset written in the same batches, then closed
//   view     ratio_view_vs_hdf5    a 1000-column min/max of the whole capture from the
//                                   index; vs reading the HDF5 dataset in 1 MiB hyperslabs
//                                   and reducing it to 1000 columns
// Our Flush ends with the data on the device (fdatasync); HDF5's close only hands it to
// the OS. ratio_append_vs_hdf5 takes the peer to its close, ratio_append_vs_hdf5_durable
// to the end of an fsync of its file, the same end as ours. Each timed append starts
// after a sync(), so neither inherits the other's dirty pages, and the rounds alternate
// which side goes first. ours_push_s / ours_flush_s split our time
// into the producer's calls and the final Flush; hdf5_read_ms / hdf5_reduce_ms split the
// peer's view. Both views run on warm page caches, one after the other in each round,
// and must give the same overall extremes.
//
// WAVESTORE_PEER_GIB sets the capture size (default 2, through a 256 MiB pool, so most of
// it lives in the cache files). WAVESTORE_PEER_NO_THROTTLE=1 turns the writer throttle off,
// WAVESTORE_BENCH_NO_EARLY_WRITEBACK=1 our files' early writeback.

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "dataset/axis.h"
#include "module/type_registration.h"
#include "reader/basic_wave_reader.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>
#include <hdf5.h>
#include <fcntl.h>
#include <unistd.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::ProjectFolder;
using bench::Scope;

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr unsigned kColumns = 1000;
constexpr uint64_t kMiB = 1048576;
constexpr uint64_t kBatch = kMiB / sizeof(float);  // samples per 1 MiB batch and per HDF5 chunk

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

std::string Hdf5Path() { return ProjectFolder() + "/peer.h5"; }

uint64_t CaptureSamples() {
    const char* text = std::getenv("WAVESTORE_PEER_GIB");
    const double gib = text ? std::strtod(text, nullptr) : 2.0;
    const auto samples = static_cast<uint64_t>(gib * 1024.0 * static_cast<double>(kMiB) / sizeof(float));
    return std::max<uint64_t>(kBatch, samples / kBatch * kBatch);
}

bool ThrottleOff() {
    const char* text = std::getenv("WAVESTORE_PEER_NO_THROTTLE");
    return text && text[0] == '1';
}

// A deterministic noisy pulse train: a pulse of 400 samples every 10 000, whose height
// drifts slowly, on a baseline, with noise from a per-sample hash (any block can be made
// alone). Made once, before any timing, so that neither side pays for it.
const std::vector<float>& Samples() {
    static const std::vector<float> samples = [] {
        std::vector<float> values(CaptureSamples());
        for (uint64_t i = 0; i < values.size(); ++i) {
            uint32_t h = static_cast<uint32_t>(i) * 2654435761u ^ static_cast<uint32_t>(i >> 32) * 40503u;
            h ^= h >> 15;
            h *= 2246822519u;
            h ^= h >> 13;
            const float noise = (static_cast<float>(h >> 8) / 16777216.0f - 0.5f) * 0.1f;
            const uint64_t phase = i % 10000;
            const float height = 1.0f + 0.25f * static_cast<float>((i / 10000) % 977) / 977.0f;
            values[i] = (phase < 400 ? height : 0.0f) + noise;
        }
        return values;
    }();
    return samples;
}

// ---------------------------------------------------------------------------------------
// Our side

struct Capture {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<float>* dataset = nullptr;
    double push_seconds = 0;  // of the last append: the producer's calls, then the flush
    double flush_seconds = 0;
};

Capture& OurCapture() {
    static Capture capture;
    return capture;
}

// Builds the capture through the producer and flushes it; the time from the first push
// to the end of the flush. The capture of a previous round goes first, untimed.
double OurAppend(const std::vector<float>& samples) {
    Capture& capture = OurCapture();
    capture.item.reset();
    capture.dataset = nullptr;
    capture.item.reset(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "capture"));
    IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
    capture.item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, kPeriod);
    axis->SetIndexStep(100);
    capture.dataset = QueryInterface<BasicWaveDataSet<float>>(capture.item.get()).get();
    if (ThrottleOff()) capture.dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
    const double index_period = __internal::DataSetTool(capture.item.get()).GetIndexStepTime();

    const auto start = Clock::now();
    {
        WaveProducer<float> producer(*capture.dataset, kPeriod, index_period);
        for (uint64_t done = 0; done < samples.size(); done += kBatch)
            producer.Append(samples.data() + done, std::min<uint64_t>(kBatch, samples.size() - done));
    }  // the producer closes its run: last column and area
    capture.push_seconds = Seconds(start);
    capture.dataset->Flush();
    const double elapsed = Seconds(start);
    capture.flush_seconds = elapsed - capture.push_seconds;
    return elapsed;
}

// ---------------------------------------------------------------------------------------
// HDF5 side

// Writes the samples to a chunked (1 MiB chunks), extendible 1-D float dataset, one
// extent growth and one hyperslab write per batch; the time from create to close, and in
// durable_seconds to the end of an fsync of the file. The file of a previous round goes
// first, untimed, so that no truncation is timed.
double Hdf5Append(const std::vector<float>& samples, double& durable_seconds) {
    std::error_code error;
    std::filesystem::remove(Hdf5Path(), error);
    const auto start = Clock::now();
    const hid_t file = H5Fcreate(Hdf5Path().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    const hsize_t initial = 0, unlimited = H5S_UNLIMITED, chunk = kBatch;
    const hid_t dcpl = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(dcpl, 1, &chunk);
    const hid_t space = H5Screate_simple(1, &initial, &unlimited);
    const hid_t dataset = H5Dcreate2(file, "wave", H5T_NATIVE_FLOAT, space, H5P_DEFAULT, dcpl, H5P_DEFAULT);
    bool ok = file >= 0 && dataset >= 0;
    for (hsize_t done = 0; ok && done < samples.size(); done += kBatch) {
        const hsize_t count = std::min<hsize_t>(kBatch, samples.size() - done);
        const hsize_t extent = done + count;
        ok = H5Dset_extent(dataset, &extent) >= 0;
        const hid_t file_space = H5Dget_space(dataset);
        const hid_t memory_space = H5Screate_simple(1, &count, nullptr);
        ok = ok && H5Sselect_hyperslab(file_space, H5S_SELECT_SET, &done, nullptr, &count, nullptr) >= 0;
        ok = ok && H5Dwrite(dataset, H5T_NATIVE_FLOAT, memory_space, file_space, H5P_DEFAULT,
                            samples.data() + done) >= 0;
        H5Sclose(memory_space);
        H5Sclose(file_space);
    }
    H5Dclose(dataset);
    H5Sclose(space);
    H5Pclose(dcpl);
    ok = H5Fclose(file) >= 0 && ok;
    const double elapsed = Seconds(start);
    // The same file made durable, as our flush makes ours.
    const int fd = ::open(Hdf5Path().c_str(), O_RDONLY);
    ok = fd >= 0 && ::fsync(fd) == 0 && ok;
    if (fd >= 0) ::close(fd);
    durable_seconds = Seconds(start);
    return ok ? elapsed : -1.0;
}

// Extremes of count floats into column, SSE lanes where available: the peer's reduction
// should cost no more than our own scans do, so that its time is its read.
void Reduce(const float* data, uint64_t count, MinMaxData<float>& column) {
    uint64_t i = 0;
    float low = column.min, high = column.max;
#if defined(__SSE2__)
    if (count >= 8) {
        __m128 low0 = _mm_set1_ps(low), low1 = low0, high0 = _mm_set1_ps(high), high1 = high0;
        for (; i + 8 <= count; i += 8) {
            const __m128 a = _mm_loadu_ps(data + i), b = _mm_loadu_ps(data + i + 4);
            low0 = _mm_min_ps(low0, a);
            low1 = _mm_min_ps(low1, b);
            high0 = _mm_max_ps(high0, a);
            high1 = _mm_max_ps(high1, b);
        }
        alignas(16) float lanes[8];
        _mm_store_ps(lanes, _mm_min_ps(low0, low1));
        _mm_store_ps(lanes + 4, _mm_max_ps(high0, high1));
        low = std::min({lanes[0], lanes[1], lanes[2], lanes[3]});
        high = std::max({lanes[4], lanes[5], lanes[6], lanes[7]});
    }
#endif
    for (; i < count; ++i) {
        low = std::min(low, data[i]);
        high = std::max(high, data[i]);
    }
    column.min = low;
    column.max = high;
}

struct Hdf5View {
    std::vector<MinMaxData<float>> columns;
    double read_seconds = 0;
    double reduce_seconds = 0;
    bool ok = false;
};

// The whole dataset in 1 MiB hyperslabs, reduced to columns of equal sample counts.
Hdf5View Hdf5WholeView(unsigned columns) {
    Hdf5View view;
    const hid_t file = H5Fopen(Hdf5Path().c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    const hid_t dataset = file >= 0 ? H5Dopen2(file, "wave", H5P_DEFAULT) : -1;
    const hid_t file_space = dataset >= 0 ? H5Dget_space(dataset) : -1;
    hsize_t total = 0;
    if (file_space >= 0) H5Sget_simple_extent_dims(file_space, &total, nullptr);
    view.ok = total > 0;
    view.columns.assign(columns, {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()});
    std::vector<float> buffer(kBatch);
    for (hsize_t done = 0; view.ok && done < total; done += kBatch) {
        const hsize_t count = std::min<hsize_t>(kBatch, total - done);
        auto start = Clock::now();
        const hid_t memory_space = H5Screate_simple(1, &count, nullptr);
        view.ok = H5Sselect_hyperslab(file_space, H5S_SELECT_SET, &done, nullptr, &count, nullptr) >= 0 &&
                  H5Dread(dataset, H5T_NATIVE_FLOAT, memory_space, file_space, H5P_DEFAULT, buffer.data()) >= 0;
        H5Sclose(memory_space);
        view.read_seconds += Seconds(start);
        start = Clock::now();
        // Column c holds the samples s with s * columns / total == c.
        for (hsize_t at = done; at < done + count;) {
            const uint64_t column = at * columns / total;
            const hsize_t column_end = std::min<hsize_t>(done + count, ((column + 1) * total + columns - 1) / columns);
            Reduce(buffer.data() + (at - done), column_end - at, view.columns[column]);
            at = column_end;
        }
        view.reduce_seconds += Seconds(start);
    }
    if (file_space >= 0) H5Sclose(file_space);
    if (dataset >= 0) H5Dclose(dataset);
    if (file >= 0) H5Fclose(file);
    return view;
}

// ---------------------------------------------------------------------------------------
// Benchmarks

void BM_AppendVsHdf5(benchmark::State& state) {
    const std::vector<float>& samples = Samples();
    double ours = 0, hdf5 = 0, hdf5_durable = 0, push = 0, flush = 0;
    bool hdf5_first = true;
    for (auto _ : state) {
        double elapsed = 0;
        // Rounds alternate which side goes first.
        for (int side = 0; side < 2; ++side) {
            ::sync();
            if ((side == 0) == hdf5_first) {
                double durable_seconds = 0;
                const double hdf5_seconds = Hdf5Append(samples, durable_seconds);
                if (hdf5_seconds < 0) {
                    state.SkipWithError("HDF5 write failed");
                    return;
                }
                hdf5 += hdf5_seconds;
                hdf5_durable += durable_seconds;
            } else {
                elapsed = OurAppend(samples);
                push += OurCapture().push_seconds;
                flush += OurCapture().flush_seconds;
            }
        }
        hdf5_first = !hdf5_first;
        ours += elapsed;
        state.SetIterationTime(elapsed);
    }
    const uint64_t bytes = samples.size() * sizeof(float);
    if (OurCapture().dataset->GetStorage("Wave")->Count() != samples.size()) {
        state.SkipWithError("the capture lost samples");
        return;
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes * state.iterations()));
    state.counters["GiB"] = static_cast<double>(bytes) / (1024.0 * kMiB);
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["hdf5_s"] = hdf5 / iterations;
    state.counters["hdf5_durable_s"] = hdf5_durable / iterations;
    state.counters["ours_s"] = ours / iterations;
    state.counters["ours_push_s"] = push / iterations;
    state.counters["ours_flush_s"] = flush / iterations;
    state.counters["hdf5_file_MiB"] = static_cast<double>(std::filesystem::file_size(Hdf5Path())) / kMiB;
    uint64_t our_bytes = 0;  // our cache files: samples, index and areas
    for (const auto& entry : std::filesystem::directory_iterator(ProjectFolder()))
        if (entry.is_regular_file() && entry.path() != Hdf5Path()) our_bytes += entry.file_size();
    state.counters["ours_files_MiB"] = static_cast<double>(our_bytes) / kMiB;
    state.counters["index_entries"] = static_cast<double>(OurCapture().dataset->GetStorage("Index")->Count());
    state.counters["throttle"] = ThrottleOff() ? 0 : 1;
    state.counters["ratio_append_vs_hdf5"] = hdf5 / ours;
    // Ours ends with its data on the disk; so does the peer here.
    state.counters["ratio_append_vs_hdf5_durable"] = hdf5_durable / ours;
}
BENCHMARK(BM_AppendVsHdf5)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_WholeViewVsHdf5(benchmark::State& state) {
    const std::vector<float>& samples = Samples();
    if (!OurCapture().dataset) {  // run alone (by filter): build both files first, untimed
        OurAppend(samples);
        double durable_seconds = 0;
        if (Hdf5Append(samples, durable_seconds) < 0) {
            state.SkipWithError("HDF5 write failed");
            return;
        }
    }
    auto reader = std::unique_ptr<CBasicWaveReader<float>>(OurCapture().dataset->CreateBasicWaveReader());
    std::vector<MinMaxData<double>> out;
    Hdf5View view;
    double ours = 0, hdf5 = 0, read = 0, reduce = 0;
    for (auto _ : state) {
        double begin = 0, end = static_cast<double>(samples.size() - 1) * kPeriod;
        auto start = Clock::now();
        reader->GetMinMaxData(begin, end, out, kColumns, GetDataParam{}, 0);
        const double elapsed = Seconds(start);
        start = Clock::now();
        view = Hdf5WholeView(kColumns);
        hdf5 += Seconds(start);
        read += view.read_seconds;
        reduce += view.reduce_seconds;
        ours += elapsed;
        state.SetIterationTime(elapsed);
    }
    if (!view.ok) {
        state.SkipWithError("HDF5 read failed");
        return;
    }
    // The same extremes overall, or the comparison means nothing.
    double our_min = std::numeric_limits<double>::infinity(), our_max = -our_min;
    for (const auto& column : out) {
        if (std::isnan(column.min) || std::isnan(column.max)) continue;
        our_min = std::min(our_min, column.min);
        our_max = std::max(our_max, column.max);
    }
    double peer_min = std::numeric_limits<double>::infinity(), peer_max = -peer_min;
    for (const auto& column : view.columns) {
        peer_min = std::min<double>(peer_min, column.min);
        peer_max = std::max<double>(peer_max, column.max);
    }
    if (our_min != peer_min || our_max != peer_max) {
        state.SkipWithError("the two views give different extremes");
        return;
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["min"] = our_min;
    state.counters["max"] = our_max;
    state.counters["columns"] = static_cast<double>(out.size());
    state.counters["points_per_column"] = reader->PointsPerColumn();
    state.counters["hdf5_ms"] = 1e3 * hdf5 / iterations;
    state.counters["hdf5_read_ms"] = 1e3 * read / iterations;
    state.counters["hdf5_reduce_ms"] = 1e3 * reduce / iterations;
    state.counters["ours_ms"] = 1e3 * ours / iterations;
    state.counters["ratio_view_vs_hdf5"] = hdf5 / ours;
}
BENCHMARK(BM_WholeViewVsHdf5)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

int main(int argc, char** argv) {
    // WAVESTORE_PEER_ATOM sets the pool's atom, the block size, in units of 32 KiB (default 1).
    const char* atom = std::getenv("WAVESTORE_PEER_ATOM");
    bench::Start({.atom = atom ? static_cast<unsigned>(std::strtoul(atom, nullptr, 10)) : 1});
    return bench::RunAndCleanUp(argc, argv, [] { OurCapture().item.reset(); });  // its cache files go with it
}
