// The HDF5 export of a wave dataset against a plain H5Dwrite of the same samples from
// memory, into a dataset of the same layout (chunks of 1 MiB, shuffle + deflate at the
// same level): ratio_vs_plain_h5dwrite = plain time / our time, above 1 means we are
// faster. Our side reads the samples back through the store (most of them from its cache
// files, through a 256 MiB pool) and streams them in 1 Mi-element pieces; it also writes
// the areas and the index columns. The plain side holds all samples in one array.
//
// peak_rss_mib is the process's peak resident size at the end of our export, before the
// plain side allocates its array: the capture itself lives in the pool and the files, so
// it tells the export's memory on top of the pool (pool_mib).
//
// WAVESTORE_BENCH_EXPORT_GIB sets the capture size (default 2).
// WAVESTORE_BENCH_EXPORT_LEVEL sets the deflate level (default 1; 0 writes uncompressed).

#include <wavestore/wavestore.h>

#include "common/hdf5_export.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>
#include <hdf5.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint64_t kMiB = 1048576;
constexpr unsigned kPoolMiB = 256;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

double EnvNumber(const char* name, double fallback) {
    const char* text = std::getenv(name);
    return text ? std::strtod(text, nullptr) : fallback;
}

double PeakRssMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

float Sample(uint64_t i) {
    const uint64_t h = (i * 0x9E3779B97F4A7C15ull) >> 40;
    return ((i % 10000) < 400 ? 0.8f : 0.0f) + static_cast<float>(h % 1000) * 1e-4f;
}

// The plain side: one chunked, compressed dataset written by one H5Dwrite.
double PlainWrite(const std::string& path, const std::vector<float>& samples, int level) {
    const auto started = Clock::now();
    const hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    const hsize_t size = samples.size(), chunk = kMiB / sizeof(float);
    const hid_t space = H5Screate_simple(1, &size, nullptr);
    const hid_t properties = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(properties, 1, &chunk);
    if (level > 0) {
        H5Pset_shuffle(properties);
        H5Pset_deflate(properties, static_cast<unsigned>(level));
    }
    const hid_t dataset = H5Dcreate2(file, "samples", H5T_NATIVE_FLOAT, space, H5P_DEFAULT, properties, H5P_DEFAULT);
    H5Dwrite(dataset, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, samples.data());
    H5Dclose(dataset);
    H5Pclose(properties);
    H5Sclose(space);
    H5Fclose(file);
    return Seconds(started);
}

void BM_ExportVsPlainH5Dwrite(benchmark::State& state) {
    const auto samples = static_cast<uint64_t>(EnvNumber("WAVESTORE_BENCH_EXPORT_GIB", 2.0) * 1024 * kMiB / sizeof(float));
    const int level = static_cast<int>(EnvNumber("WAVESTORE_BENCH_EXPORT_LEVEL", 1));
    const std::string folder =
        (std::filesystem::temp_directory_path() / ("wavestore-export-bench-" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(folder);

    static auto* scope = new CLocalSource("export-bench", GetRootLocal());
    InitDataSetModule(scope, 16, kPoolMiB, 1, 2);
    std::unique_ptr<IBaseCtr> item(CreateItemByType(scope, "WAVEDATASET[FLOAT]", "wave"));
    IBaseCtr* axis_item = CreateItemByType(scope, "AXIS", "sizeAxis");
    item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, 1e-6);
    axis->SetIndexStep(100);
    auto dataset = QueryInterface<BasicWaveDataSet<float>>(item.get());
    {
        WaveProducer<float> producer(*dataset, 1e-6, 1e-4);
        std::vector<float> batch(kMiB / sizeof(float));
        for (uint64_t done = 0; done < samples; done += batch.size()) {
            for (std::size_t i = 0; i < batch.size(); ++i) batch[i] = Sample(done + i);
            producer.Append(static_cast<double>(done) * 1e-6, batch.data(), batch.size());
        }
    }
    dataset->Flush();

    double ours = 0, plain = 0, rss = 0;
    for (auto _ : state) {
        ExportOptions options;
        options.compression = level;
        ExportSummary summary;
        std::string error;
        const auto started = Clock::now();
        if (!ExportWaveToHdf5(item.get(), folder + "/ours.h5", options, summary, error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        ours = Seconds(started);
        rss = PeakRssMiB();
        std::vector<float> all(samples);
        for (uint64_t i = 0; i < samples; ++i) all[i] = Sample(i);
        plain = PlainWrite(folder + "/plain.h5", all, level);
        state.SetIterationTime(ours);
    }
    state.counters["ours_s"] = ours;
    state.counters["plain_s"] = plain;
    state.counters["ratio_vs_plain_h5dwrite"] = ours > 0 ? plain / ours : 0;
    state.counters["peak_rss_mib"] = rss;
    state.counters["pool_mib"] = kPoolMiB;
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_ExportVsPlainH5Dwrite)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
