#pragma once
// Command-line options of the demo host.

#include <cstdint>
#include <optional>
#include <string>

struct DemoOptions {
    unsigned pool_mib = 64;
    uint64_t bytes = 2ull << 30;      // size of the capture's samples
    std::string element_type = "float";  // float, int16 or double
    std::string output = "wavestore-demo-output";
    std::string definition;              // an XML item definition; empty: the built-in one
    bool quiet = false;
    bool svg = false;         // pictures as SVG instead of PNG
    std::string export_path;  // an HDF5 file to export the capture to; empty: none
    std::string save;         // a folder to save the capture with its project; empty: none
    std::string load;         // a folder with a saved project to answer from; empty: record
    bool write_columns = false;  // each view's columns also as text, <view>.columns.txt
};

// Parses the command line. On bad options prints a clear message and gives the exit
// code in exit_code (2; 0 for --help and --version); otherwise gives the options.
std::optional<DemoOptions> ParseDemoOptions(int argc, char** argv, int& exit_code);
