#include "storage/export_manager.h"

#include "host/logger.h"
#include "host/project_file_manager.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <vector>

namespace {

constexpr uint64_t kPiece = 0x100000;
constexpr auto kIdleWait = std::chrono::milliseconds(5);

}  // namespace

ExportManager& ExportManager::Instance() {
    // What the copies may use at exit is built first, so it is destroyed after the copier.
    CLogger::DefaultLogger();
    ProjectFileManager::instance();
    static ExportManager manager;
    return manager;
}

ExportManager::~ExportManager() {
    {
        std::lock_guard lock(queue_mutex_);
        stop_.store(true);
        jobs_.clear();
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void ExportManager::Enqueue(std::shared_ptr<IDeviceChannel> source, std::shared_ptr<IDeviceChannel> destination) {
    {
        std::lock_guard lock(queue_mutex_);
        if (stop_.load()) return;
        jobs_.push_back({std::move(source), std::move(destination)});
        ++outstanding_;
        if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
    }
    wake_.notify_one();
}

void ExportManager::Cancel() {
    std::lock_guard lock(queue_mutex_);
    cancels_.fetch_add(1);
    outstanding_ -= jobs_.size();
    jobs_.clear();
}

bool ExportManager::WaitIdle(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (outstanding_.load() != 0) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void ExportManager::Run() {
    std::vector<unsigned char> buffer(kPiece);
    for (;;) {
        Job job;
        uint64_t generation = 0;
        {
            std::unique_lock lock(queue_mutex_);
            if (stop_.load()) return;
            if (jobs_.empty()) {
                wake_.wait_for(lock, kIdleWait);
                continue;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
            generation = cancels_.load();
        }
        std::lock_guard running(run_mutex_);
        Copy(job, generation, buffer.data());
        --outstanding_;
    }
}

void ExportManager::Copy(const Job& job, uint64_t generation, unsigned char* buffer) {
    if (job.source && job.destination) {
        try {
            const uint64_t size = job.source->Size();
            uint64_t offset = 0;
            while (offset < size && cancels_.load() == generation && !stop_.load()) {
                const int64_t got = job.source->Read(buffer, std::min(kPiece, size - offset), offset);
                // A failed or empty read ends the copy: there is nothing to append, and
                // the offset would not move.
                if (got <= 0) break;
                const int64_t put = job.destination->Write(buffer, static_cast<uint64_t>(got), IDeviceChannel::kAppend);
                if (put < 1 || put < got) break;
                offset += static_cast<uint64_t>(got);
            }
        } catch (const std::exception& error) {
            // A block map that can't address an offset; the copy stays short.
            CLogger::DefaultLogger().Debug("ExportManager: copy to {} ended: {}", job.destination->Description(),
                                           error.what());
        }
    }
    if (auto cache = std::dynamic_pointer_cast<IFileCache>(job.destination)) {
        cache->Flush();
        cache->SetFileReady(1);
    }
}
