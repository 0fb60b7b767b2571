// Value search on a float wave of 1e8 samples at 1 MS/s, 100 samples per index entry,
// pushed by the producer helper (400 MB: it outgrows the 256 MiB pool and is read back
// from the cache files). The wave stays below the value until its only crossing, 0.5 %
// before its end. The figure: a forward Find through the index against the same search
// on the same samples by a reader without an index (a raw scan), in the same run:
//   ratio_raw_vs_index = raw scan time / index walk time.
//
// Run: build/release/bench/search_bench

#include <wavestore/wavestore.h>

#include "dataset/axis.h"
#include "reader/basic_wave_reader.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr uint64_t kSamples = 100000000ull;
constexpr uint64_t kCrossing = kSamples - kSamples / 200;  // the first sample above the value
constexpr double kValue = 5.0;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

CLocalSource& Scope() {
    static auto* scope = new CLocalSource("search-bench", GetRootLocal());
    return *scope;
}

const std::string& ProjectFolder() {
    static const std::string folder = [] {
        const auto path = std::filesystem::temp_directory_path() / ("wavestore-search-bench-" + std::to_string(getpid()));
        ProjectFileManager::instance().SetProjectFolder(path.string());
        return path.string();
    }();
    return folder;
}

// Noise in [0, 1) up to the crossing, in [10, 11) from there on.
void Generate(std::vector<float>& block, uint64_t from) {
    uint32_t state = static_cast<uint32_t>(from * 2654435761u) | 1u;
    for (std::size_t i = 0; i < block.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        block[i] = static_cast<float>(state >> 8) / 16777216.0f + (from + i >= kCrossing ? 10.0f : 0.0f);
    }
}

struct Capture {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<float>* dataset = nullptr;

    Capture() {
        item.reset(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "capture"));
        IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
        item->AddChildItem(axis_item, "sizeAxis", true);
        IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
        axis->SetRatioOffset(0.0, kPeriod);
        axis->SetIndexStep(100);
        dataset = QueryInterface<BasicWaveDataSet<float>>(item.get()).get();
        dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
        // The index period as the reader reckons it, so that both agree on the entries.
        const double index_period = __internal::DataSetTool(item.get()).GetIndexStepTime();
        WaveProducer<float> producer(*dataset, kPeriod, index_period);
        std::vector<float> block(1 << 20);
        for (uint64_t done = 0; done < kSamples; done += block.size()) {
            block.resize(std::min<uint64_t>(block.size(), kSamples - done));
            Generate(block, done);
            producer.Append(block.data(), block.size());
        }
    }
    template <class R>
    std::shared_ptr<IReader> Storage(const char* id) const {
        return std::make_shared<BaseStructReader<R>>(dataset->GetStorage(id));
    }
};

// Built on first use, released by main before the cache folder goes.
std::unique_ptr<Capture> the_capture;

void BM_FindForwardIndexVsRawScan(benchmark::State& state) {
    if (!the_capture) the_capture = std::make_unique<Capture>();
    const Capture& capture = *the_capture;
    auto indexed = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    CBasicWaveReader<float> raw(capture.item.get(), capture.Storage<float>("Wave"), nullptr,
                                capture.Storage<ValidDataArea>("Area"));
    // The sample before the crossing is nearer to the value than the one after it.
    const double expected = static_cast<double>(kCrossing - 1) * kPeriod;
    double index_seconds = 0, raw_seconds = 0;
    for (auto _ : state) {
        double by_index = -1, by_scan = -1;
        auto start = Clock::now();
        const bool found_by_index = indexed->Find(kValue, 0.0, by_index, true);
        const double elapsed = Seconds(start);
        start = Clock::now();
        const bool found_by_scan = raw.Find(kValue, 0.0, by_scan, true);
        raw_seconds += Seconds(start);
        index_seconds += elapsed;
        state.SetIterationTime(elapsed);
        if (!found_by_index || !found_by_scan || std::abs(by_index - expected) > 1e-9 ||
            std::abs(by_scan - expected) > 1e-9) {
            state.SkipWithError("the searches disagree with the crossing");
            return;
        }
    }
    state.counters["raw_scan_ms"] = 1e3 * raw_seconds / static_cast<double>(state.iterations());
    state.counters["ratio_raw_vs_index"] = raw_seconds / index_seconds;
}
BENCHMARK(BM_FindForwardIndexVsRawScan)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
    CLogger::DefaultLogger().SetLevel(LogLevel::Warning);
    InitDataSetModule(&Scope(), 16, 256, 1, 2);
    ProjectFolder();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    the_capture.reset();
    std::filesystem::remove_all(ProjectFolder());
    return 0;
}
