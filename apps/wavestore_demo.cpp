// The demo host: loads the module the way a host application does, records a synthetic
// acquisition larger than the memory pool on a producer thread, then answers display
// and search queries at several zoom levels, writes pictures of the capture, and
// reports where its cache files lie.
//
//   wavestore_demo [--pool MiB] [--size 2G] [--type float|int16|double] [--output dir]
//                  [--definition file.xml] [--svg] [--export file.h5] [--save dir]
//                  [--load dir] [--write-columns] [--quiet]
//
// --save keeps the capture with a project in dir; a later run with --load dir answers the
// same views and searches from those files, without recording.
//
// Exit status: 0 done, 1 a failure at run time (a file that can't be written), 2 bad usage.

#include <wavestore/wavestore.h>

#include "common/hdf5_export.h"
#include "common/program.h"
#include "common/progress.h"
#include "common/saved_project.h"
#include "common/wave_plot.h"
#include "demo/capture_definition.h"
#include "demo/options.h"
#include "demo/pulse_train.h"

#include <fmt/format.h>
#include <fmt/os.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

// Everything the demo says goes to the report; unless quiet, to the terminal as well.
class Report {
public:
    explicit Report(bool quiet) : quiet_(quiet) {}
    template <class... Args>
    void Line(fmt::format_string<Args...> format, Args&&... args) {
        std::string text = fmt::format(format, std::forward<Args>(args)...);
        if (!quiet_) fmt::print("{}\n", text);
        text_ << text << "\n";
    }
    bool Save(const std::filesystem::path& path) const {
        std::ofstream file(path);
        file << text_.str();
        return static_cast<bool>(file);
    }
    bool Quiet() const { return quiet_; }

private:
    bool quiet_;
    std::ostringstream text_;
};

// Creates the capture's item from its definition and records the synthetic signal into
// it; null (with the message printed) when the definition doesn't make the dataset.
template <class T>
std::unique_ptr<IBaseCtr> Record(const DemoOptions& options, CLocalSource& scope, Report& report) {
    // The item definition: the given file, or the one built in.
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = options.definition.empty()
                                              ? document.load_string(kCaptureDefinition)
                                              : document.load_file(options.definition.c_str());
    pugi::xml_node node = document.document_element().child("item");
    if (!parsed || !node) {
        fmt::print(stderr, "wavestore_demo: {}: the item definition does not parse: {}\n",
                   options.definition.empty() ? "built-in definition" : options.definition, parsed.description());
        return nullptr;
    }
    const char* type_name = std::is_same_v<T, float> ? "WAVEDATASET[FLOAT]"
                            : std::is_same_v<T, int16_t> ? "WAVEDATASET[INT16]"
                                                         : "WAVEDATASET[DOUBLE]";
    node.attribute("type").set_value(type_name);
    std::unique_ptr<IBaseCtr> item(CreateItemByXmlNote(&scope, node));
    Ctr<BasicWaveDataSet<T>> dataset = QueryInterface<BasicWaveDataSet<T>>(item.get());
    if (!dataset) {
        fmt::print(stderr, "wavestore_demo: the definition made no {} dataset\n", type_name);
        return nullptr;
    }
    __internal::DataSetTool tool(item.get());
    const double sample_period = tool.GetSampleTime();
    const double index_period = tool.GetIndexStepTime();
    report.Line("capture: {} ({}), {:.0f} samples/s, an index column per {} samples", node.attribute("name").value(),
                type_name, 1.0 / sample_period, IndexStepSamples(index_period, sample_period));

    // Recording, on a producer thread of its own.
    const uint64_t total = options.bytes / sizeof(T);
    std::atomic<uint64_t> recorded{0};
    const auto started = Clock::now();
    std::thread producer([&] {
        WaveProducer<T> wave(*dataset, sample_period, index_period);
        PulseTrain signal;
        std::vector<T> block(262144);
        double time = 0;
        uint64_t gap_at = total / 4;
        for (uint64_t done = 0; done < total;) {
            block.resize(std::min<uint64_t>(block.size(), total - done));
            signal.Fill(block, done);
            wave.Append(time, block.data(), block.size());
            done += block.size();
            time += static_cast<double>(block.size()) * sample_period;
            if (done >= gap_at) {  // the source pauses for 20 ms three times
                time += 0.02;
                gap_at += total / 4;
            }
            recorded = done;
        }
    });
    ProgressBar progress("record", "MiB");
    while (recorded.load() < total) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const double mib = static_cast<double>(recorded.load() * sizeof(T)) / 1048576.0;
        if (!report.Quiet()) progress.Update(static_cast<double>(recorded.load()) / total, mib);
    }
    producer.join();
    dataset->Flush();
    const double record_seconds = Seconds(started);
    if (!report.Quiet()) progress.Finish(options.bytes / 1048576.0);
    report.Line("recorded {:.1f} MiB ({} samples) in {:.2f} s: {:.1f} MiB/s", options.bytes / 1048576.0, total,
                record_seconds, options.bytes / 1048576.0 / record_seconds);
    return item;
}

// Writes one view's columns as text, a line "min max" each, for comparisons.
bool WriteColumns(const std::filesystem::path& file, const std::vector<MinMaxData<double>>& columns) {
    std::ofstream out(file);
    for (const auto& c : columns) out << fmt::format("{:.17g} {:.17g}\n", c.min, c.max);
    return static_cast<bool>(out);
}

// Answers the display queries and value searches on the capture, draws the pictures,
// and exports and saves it when asked.
template <class T>
int Answer(IBaseCtr* item, const DemoOptions& options, Report& report) {
    Ctr<BasicWaveDataSet<T>> dataset = QueryInterface<BasicWaveDataSet<T>>(item);
    __internal::DataSetTool tool(item);
    const double sample_period = tool.GetSampleTime();
    const double index_period = tool.GetIndexStepTime();

    // Display queries at several zoom levels.
    auto reader = std::unique_ptr<CBasicWaveReader<T>>(dataset->CreateBasicWaveReader());
    double first = 0, last = 0;
    reader->GetMaxValidRange(first, last, false);
    const double span = last - first;
    struct View {
        const char* name;
        const char* file;  // the picture's name, without extension
        double begin, end;
        unsigned columns;
        uint32_t fill;
    };
    const double middle = first + span * 0.4;  // inside an area, away from the gaps
    const View views[] = {
        {"whole capture", "whole", first, last, 1000, 0},
        {"1 %", "zoom-1pct", middle, middle + span / 100, 1000, 0},
        {"0.01 %", "zoom-0.01pct", middle, middle + span / 10000, 1000, 0},
        {"fewer samples than columns", "fill-linear", middle, middle + 500 * sample_period, 1000, 4},
    };
    const uint64_t per_index = IndexStepSamples(index_period, sample_period);
    std::error_code made;
    std::filesystem::create_directories(options.output, made);
    if (made) {
        fmt::print(stderr, "wavestore_demo: {}: cannot create the output folder: {}\n", options.output, made.message());
        return kExitFailure;
    }
    for (const View& view : views) {
        double begin = view.begin, end = view.end;
        std::vector<MinMaxData<double>> columns;
        const auto start = Clock::now();
        reader->GetMinMaxData(begin, end, columns, view.columns, GetDataParam{view.fill}, 0);
        const double elapsed = Seconds(start);
        const auto valid = std::count_if(columns.begin(), columns.end(), [](const auto& c) { return !std::isnan(c.max); });
        report.Line("view {:<28} {:>12.6f} .. {:<12.6f} s  {} columns ({} with data, {:.1f} samples each)  {:8.3f} ms",
                    view.name, begin, end, columns.size(), valid, reader->PointsPerColumn(), elapsed * 1e3);
        WavePlot plot;
        plot.title = fmt::format("{}: {}", item->GetName(), view.name);
        const double per_column = reader->PointsPerColumn();
        plot.subtitle = fmt::format("{} columns, {} samples per column, {}", columns.size(),
                                    per_column >= 100 ? fmt::format("{:.0f}", per_column) : fmt::format("{:.3g}", per_column),
                                    per_column >= static_cast<double>(per_index) ? "served by the index"
                                    : per_column > 1 ? "scanned from the samples"
                                                     : "samples with a linear fill");
        plot.begin = begin;
        plot.end = end;
        plot.columns = columns;
        const auto file = std::filesystem::path(options.output) / (std::string(view.file) + (options.svg ? ".svg" : ".png"));
        std::string error;
        if (!WriteWavePlot(file.string(), plot, options.svg ? PlotFormat::Svg : PlotFormat::Png, 1000, 360, error)) {
            fmt::print(stderr, "wavestore_demo: {}\n", error);
            return kExitFailure;
        }
        report.Line("  picture: {}", file.string());
        if (options.write_columns) {
            const auto text = std::filesystem::path(options.output) / (std::string(view.file) + ".columns.txt");
            if (!WriteColumns(text, columns)) {
                fmt::print(stderr, "wavestore_demo: {}: cannot write the columns\n", text.string());
                return kExitFailure;
            }
        }
    }

    // Value searches: where does the signal next rise through 0.1 (half the lowest pulse)?
    const double half = std::is_floating_point_v<T> ? 0.1 : 1000.0;
    double at = first + span / 3;
    for (int i = 0; i < 3; ++i) {
        double found = 0;
        const auto start = Clock::now();
        const bool hit = reader->Find(half, at, found, true);
        report.Line("search forward from {:.6f} s for {}: {} {:.6f} s  {:8.3f} ms", at, half,
                    hit ? "found at" : "not found, ends at", found, Seconds(start) * 1e3);
        at = found + 0.0015;
    }
    double back = 0;
    const auto start = Clock::now();
    const bool hit = reader->Find(half, last, back, false);
    report.Line("search backward from the end for {}: {} {:.6f} s  {:8.3f} ms", half, hit ? "found at" : "not found",
                back, Seconds(start) * 1e3);

    if (!options.export_path.empty()) {
        ProgressBar bar("export", "MiB");
        ExportOptions export_options;
        if (!report.Quiet())
            export_options.progress = [&](double fraction) { bar.Update(fraction, fraction * options.bytes / 1048576.0); };
        ExportSummary summary;
        std::string error;
        const auto export_started = Clock::now();
        if (!ExportWaveToHdf5(item, options.export_path, export_options, summary, error)) {
            fmt::print(stderr, "wavestore_demo: {}: {}\n", options.export_path, error);
            return kExitFailure;
        }
        if (!report.Quiet()) bar.Finish(options.bytes / 1048576.0);
        report.Line("exported {} samples, {} areas and {} index columns to {} in {:.2f} s", summary.samples,
                    summary.areas, summary.index_entries, options.export_path, Seconds(export_started));
    }

    if (!options.save.empty()) {
        std::string error;
        if (!SaveWaveDataset(item, item->GetName(), options.save, error)) {
            fmt::print(stderr, "wavestore_demo: {}: {}\n", options.save, error);
            return kExitFailure;
        }
        report.Line("saved {} with the project in {}", item->GetName(), options.save);
    }

    uint64_t pool = 0, pool_max = 0;
    double used = 0, used_of_max = 0;
    GetDatasetMemoryInfo(&pool, &pool_max, &used, &used_of_max);
    report.Line("memory pool: {} of {} MiB obtained, {:.0f} % of it in use", pool >> 20, pool_max >> 20, used * 100);
    report.Line("cache files in {}:", ProjectFileManager::instance().GetProjectFolder());
    for (const std::string& name : ProjectFileManager::instance().OpenFiles()) {
        std::error_code ignored;
        const auto bytes = std::filesystem::file_size(
            std::filesystem::path(ProjectFileManager::instance().GetProjectFolder()) / name, ignored);
        report.Line("  {}  {:.1f} MiB", name, static_cast<double>(bytes) / 1048576.0);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int exit_code = 0;
    const std::optional<DemoOptions> options = ParseDemoOptions(argc, argv, exit_code);
    if (!options) return exit_code;
    CLogger::DefaultLogger().SetLevel(LogLevel::Warning);

    CLocalSource scope("demo", GetRootLocal());
    InitDataSetModule(&scope, 16, options->pool_mib, 1, 2);
    Report report(options->quiet);
    if (options->load.empty()) {
        report.Line("wavestore demo host: pool of {} MiB, {} MiB of {} samples", options->pool_mib,
                    options->bytes >> 20, options->element_type);
    } else {
        report.Line("wavestore demo host: pool of {} MiB", options->pool_mib);
    }

    // The capture: recorded now, or loaded from a saved project.
    std::unique_ptr<IBaseCtr> item;
    if (!options->load.empty()) {
        std::string error;
        const std::vector<std::string> names = SavedWaveDatasets(options->load, error);
        if (!names.empty()) item = LoadWaveDataset(&scope, options->load, names.front(), error);
        if (!item) {
            fmt::print(stderr, "wavestore_demo: {}: {}\n", options->load, error);
            return kExitFailure;
        }
        report.Line("loaded {} ({}) from {}, without recording", item->GetName(), item->GetItemType()->TypeName(),
                    options->load);
    } else if (options->element_type == "float") {
        item = Record<float>(*options, scope, report);
    } else if (options->element_type == "int16") {
        item = Record<int16_t>(*options, scope, report);
    } else {
        item = Record<double>(*options, scope, report);
    }
    if (!item) return kExitFailure;

    int result = kExitFailure;
    if (QueryInterface<BasicWaveDataSet<float>>(item.get()))
        result = Answer<float>(item.get(), *options, report);
    else if (QueryInterface<BasicWaveDataSet<int16_t>>(item.get()))
        result = Answer<int16_t>(item.get(), *options, report);
    else if (QueryInterface<BasicWaveDataSet<double>>(item.get()))
        result = Answer<double>(item.get(), *options, report);
    else
        fmt::print(stderr, "wavestore_demo: the capture is no float, int16 or double wave\n");
    if (result != 0) return result;

    const auto path = std::filesystem::path(options->output) / "report.txt";
    if (!report.Save(path)) {
        fmt::print(stderr, "wavestore_demo: {}: cannot write the report\n", path.string());
        return kExitFailure;
    }
    if (!options->quiet) fmt::print("report: {}\n", path.string());
    return 0;
}
