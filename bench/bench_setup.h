#pragma once
// What every benchmark program sets up around Google Benchmark: the module with its pool,
// the host scope its items live in, and a project folder of its own for the cache files.

#include <wavestore/wavestore.h>

#include <functional>
#include <string>

namespace bench {

struct Setup {
    unsigned pool_mib = 256;
    unsigned atom = 1;  // the pool's block size, in units of 32 KiB
    LogLevel log_level = LogLevel::Warning;
};

// The host scope of the benchmark's items.
CLocalSource& Scope();

// A folder under the temp directory, made the project's folder on the first call.
const std::string& ProjectFolder();

// Sets the log level, starts the module with the pool and makes the project folder.
// WAVESTORE_BENCH_NO_EARLY_WRITEBACK=1 turns the files' early writeback off.
void Start(const Setup& setup = {});

// Runs the benchmarks selected on the command line, then calls release (which drops what
// keeps cache files open) and removes the project folder. Gives main's exit code.
int RunAndCleanUp(int argc, char** argv, const std::function<void()>& release = {});

}  // namespace bench
