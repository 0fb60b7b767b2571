// wavestore_export: writes a wave dataset saved with a project, or a time span of it, to
// an HDF5 file that plain HDF5 users read without this library (the layout is described
// in common/hdf5_export.h). The samples stream through a small buffer: memory stays at
// the pool plus a few MiB whatever the length of the capture.
//
//   wavestore_export [--dataset name] [--begin s --end s] [--compression 0..9] [--pool MiB]
//                    <project folder> <file.h5>
//
// Exit status: 0 done, 1 the export failed (the message names the file and the reason;
// no file is left under the target name), 2 bad usage.

#include <wavestore/wavestore.h>

#include "common/hdf5_export.h"
#include "common/program.h"
#include "common/progress.h"
#include "common/saved_project.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

struct ExportArguments {
    std::string project;
    std::string target;
    std::string dataset;  // empty: the only one saved
    std::optional<double> begin, end;
    int compression = 1;
    unsigned pool_mib = 64;
    bool quiet = false;
};

}  // namespace

int main(int argc, char** argv) {
    ExportArguments args;
    CLI::App app{"Writes a wave dataset saved with a project, or a time span of it, to an HDF5 file"};
    app.add_option("project", args.project, "the folder of the saved project")->required()->check(CLI::ExistingDirectory);
    app.add_option("file", args.target, "the HDF5 file to write")->required();
    app.add_option("-d,--dataset", args.dataset, "the saved dataset to export (default: the only one)");
    auto* begin = app.add_option("-b,--begin", args.begin, "start of the span, seconds");
    app.add_option("-e,--end", args.end, "end of the span, seconds")->needs(begin);
    begin->needs(app.get_option("--end"));
    app.add_option("-c,--compression", args.compression, "deflate level, 0 (none) .. 9")->check(CLI::Range(0, 9));
    app.add_option("-p,--pool", args.pool_mib, "memory pool in MiB")->check(CLI::Range(16u, 65536u));
    app.add_flag("-q,--quiet", args.quiet, "no progress bar");
    app.set_version_flag("--version", WavestoreVersionText());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitOk : kExitUsage;
    }

    CLogger::DefaultLogger().SetLevel(LogLevel::Error);
    CLocalSource scope("wavestore_export", GetRootLocal());
    InitDataSetModule(&scope, 16, args.pool_mib, 1, 2);

    std::string error;
    const std::vector<std::string> saved = SavedWaveDatasets(args.project, error);
    if (saved.empty()) {
        fmt::print(stderr, "wavestore_export: {}: {}\n", args.project, error);
        return kExitFailure;
    }
    if (args.dataset.empty()) {
        if (saved.size() > 1) {
            fmt::print(stderr, "wavestore_export: {}: several datasets are saved, choose one with --dataset: {}\n",
                       args.project, fmt::join(saved, ", "));
            return kExitUsage;
        }
        args.dataset = saved.front();
    } else if (std::find(saved.begin(), saved.end(), args.dataset) == saved.end()) {
        fmt::print(stderr, "wavestore_export: {}: no dataset \"{}\" is saved there\n", args.project, args.dataset);
        return kExitFailure;
    }
    const std::unique_ptr<IBaseCtr> item = LoadWaveDataset(&scope, args.project, args.dataset, error);
    if (!item) {
        fmt::print(stderr, "wavestore_export: {}: {}\n", args.project, error);
        return kExitFailure;
    }

    ExportOptions options;
    options.compression = args.compression;
    if (args.begin) options.span = {false, *args.begin, *args.end};
    ProgressBar bar("export", "");
    if (!args.quiet) options.progress = [&](double fraction) { bar.Update(fraction, 0); };
    ExportSummary summary;
    const auto started = std::chrono::steady_clock::now();
    if (!ExportWaveToHdf5(item.get(), args.target, options, summary, error)) {
        fmt::print(stderr, "wavestore_export: {}: {}\n", args.target, error);
        return kExitFailure;
    }
    if (!args.quiet) bar.Finish(0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    fmt::print("{}: {} samples, {} areas, {} index columns of \"{}\" in {:.2f} s\n", args.target, summary.samples,
               summary.areas, summary.index_entries, args.dataset, seconds);
    return kExitOk;
}
