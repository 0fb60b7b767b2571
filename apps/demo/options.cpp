#include "demo/options.h"

#include "common/program.h"
#include "host/string_utils.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <stdexcept>

namespace {

// "2G", "512M", "100K" or a plain count of bytes.
uint64_t ParseSize(const std::string& text) {
    const auto [number, unit] = ReadNumberWithUnit(text);
    double factor = 1;
    if (unit == "K" || unit == "k") factor = 1024;
    else if (unit == "M" || unit == "m") factor = 1048576;
    else if (unit == "G" || unit == "g") factor = 1073741824;
    else if (!unit.empty() && unit != "B" && unit != "b") throw std::runtime_error("unknown size unit \"" + unit + "\"");
    const double bytes = number * factor;
    if (!(bytes >= 1024) || bytes > 1e15) throw std::runtime_error("size must lie between 1K and 900T");
    return static_cast<uint64_t>(bytes);
}

}  // namespace

std::optional<DemoOptions> ParseDemoOptions(int argc, char** argv, int& exit_code) {
    DemoOptions options;
    std::string size = "2G";
    CLI::App app{"wavestore demo host: records a synthetic acquisition larger than memory and displays it"};
    app.add_option("-p,--pool", options.pool_mib, "memory pool in MiB")->check(CLI::Range(16u, 65536u));
    app.add_option("-s,--size", size, "bytes of samples to record, e.g. 2G, 256M");
    app.add_option("-t,--type", options.element_type, "element type of the samples")
        ->check(CLI::IsMember({"float", "int16", "double"}));
    app.add_option("-o,--output", options.output, "folder for the pictures and the report");
    app.add_option("-d,--definition", options.definition, "XML item definition of the capture")
        ->check(CLI::ExistingFile);
    app.add_flag("-q,--quiet", options.quiet, "no progress, only the report file");
    app.add_flag("--svg", options.svg, "write the pictures as SVG instead of PNG");
    app.add_option("-e,--export", options.export_path, "export the capture to this HDF5 file");
    app.add_option("--save", options.save, "save the capture with a project in this folder");
    app.add_option("--load", options.load, "answer from the capture saved in this folder, without recording")
        ->check(CLI::ExistingDirectory)
        ->excludes("--save");
    app.add_flag("--write-columns", options.write_columns, "also write each view's columns as text");
    app.set_version_flag("--version", WavestoreVersionText());
    try {
        app.parse(argc, argv);
        options.bytes = ParseSize(size);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitOk : kExitUsage;
        return std::nullopt;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "wavestore_demo: bad --size \"%s\": %s\n", size.c_str(), error.what());
        exit_code = kExitUsage;
        return std::nullopt;
    }
    return options;
}
