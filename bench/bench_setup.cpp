#include "bench_setup.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace bench {

CLocalSource& Scope() {
    static auto* scope = new CLocalSource("bench", GetRootLocal());
    return *scope;
}

const std::string& ProjectFolder() {
    static const std::string folder = [] {
        const auto path = std::filesystem::temp_directory_path() / ("wavestore-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(path);
        ProjectFileManager::instance().SetProjectFolder(path.string());
        return path.string();
    }();
    return folder;
}

void Start(const Setup& setup) {
    if (const char* off = std::getenv("WAVESTORE_BENCH_NO_EARLY_WRITEBACK"); off && off[0] == '1')
        Tessel::CFile::SetEarlyWriteback(false);
    CLogger::DefaultLogger().SetLevel(setup.log_level);
    InitDataSetModule(&Scope(), 16, setup.pool_mib, setup.atom, 2);
    ProjectFolder();
}

int RunAndCleanUp(int argc, char** argv, const std::function<void()>& release) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (release) release();
    ProjectFileManager::instance().ReleaseAll();
    std::filesystem::remove_all(ProjectFolder());
    return 0;
}

}  // namespace bench
