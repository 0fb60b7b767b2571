// The recording program of the kill test: appends the deterministic pattern to three
// storages on version-1 managed files in its project folder, syncs one of them now and
// then and reports each sync with the count it reached, until it is killed.
//
//   reliability_recorder FOLDER SEED

#include "host/project_file_manager.h"
#include "reliability/pattern.h"
#include "reliability/recording.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/memory_pool.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// One line in one write: the pipe hands it over whole or not at all.
void Report(const std::string& line) {
    const std::string text = line + "\n";
    if (::write(STDOUT_FILENO, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::_Exit(2);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FOLDER SEED\n", argv[0]);
        return 1;
    }
    // A small pool, so that blocks are recycled while the program runs.
    CMemoryManager::SetAtomSize(1);
    CMemoryManager::SetPoolExpandSize(1);
    CMemoryManager::SetMaxPoolSize(4);
    ProjectFileManager::instance().SetProjectFolder(argv[1]);
    std::mt19937_64 random(std::strtoull(argv[2], nullptr, 10));

    const std::size_t streams = reliability::kRecordedUnitSizes.size();
    std::vector<std::unique_ptr<CStorage>> storages;
    std::string files = "files";
    for (std::size_t s = 0; s < streams; ++s) {
        std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
        auto* file = dynamic_cast<IFileCache*>(channel.get());
        if (file == nullptr) return 1;
        files += " " + file->GetId();
        storages.push_back(std::make_unique<CStorage>(channel, static_cast<uint32_t>(reliability::kRecordedUnitSizes[s])));
    }
    Report(files);

    std::vector<unsigned char> batch;
    for (;;) {
        const std::size_t s = random() % streams;
        const std::size_t unit = reliability::kRecordedUnitSizes[s];
        CStorage& storage = *storages[s];
        const uint64_t count = storage.Count();
        if (count * unit < reliability::kRecordedBytesPerStorage) {
            const uint64_t n = 1 + random() % 20000;
            batch.resize(n * unit);
            reliability::FillPattern(s, count, n, unit, batch.data());
            if (storage.Write(batch.data(), n) != n) return 3;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (random() % 6 == 0) {
            const std::size_t t = random() % streams;
            storages[t]->Sync();
            Report("flushed " + std::to_string(t) + " " + std::to_string(storages[t]->Count()));
        }
    }
}
