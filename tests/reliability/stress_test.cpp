// One writer, four readers and a host thread that clears the storage now and then, on
// the small pool, for WAVESTORE_STRESS_SECONDS seconds (3 by default). Every unit read,
// through Read and through Request, must hold its own position and a generation (the
// count of clears) that was current while it was read. Blocks leave the cache and come
// back from the file all the time; the test counts those reloads and wants many.

#include "reliability/watchdog.h"
#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kReaders = 4;
constexpr unsigned kPositionBits = 40;
constexpr uint64_t kPositionMask = (uint64_t{1} << kPositionBits) - 1;
// The file is emptied at least this often, and when it grows past the size below.
constexpr auto kClearPeriod = std::chrono::milliseconds(400);
constexpr uint64_t kClearAtUnits = uint64_t{48} << 20 >> 3;  // 48 MiB of 8-byte units

uint64_t Encode(uint64_t generation, uint64_t position) { return generation << kPositionBits | position; }

struct Figures {
    std::atomic<uint64_t> values{0}, wrong{0}, clears{0};
};

class Stress {
public:
    explicit Stress(std::chrono::seconds duration)
        : storage_(CreateLocalFileCache(1), sizeof(uint64_t)), end_(Clock::now() + duration) {}

    void Run() {
        std::vector<std::thread> threads;
        threads.emplace_back([this] { Writer(); });
        for (int r = 0; r < kReaders; ++r) threads.emplace_back([this, r] { Reader(r); });
        Host();
        for (auto& thread : threads) thread.join();
    }

    CStorage& Storage() { return storage_; }
    const Figures& Seen() const { return figures_; }

private:
    bool Running() const { return Clock::now() < end_ && figures_.wrong.load() == 0; }

    // Appends the stream of the current generation; stops while the host clears.
    void Writer() {
        std::mt19937_64 random(7);
        std::vector<uint64_t> batch(8192);
        uint64_t generation = generation_.load();
        uint64_t position = 0;
        while (Running()) {
            if (pause_.load()) {
                std::unique_lock lock(mutex_);
                paused_ = true;
                changed_.notify_all();
                changed_.wait(lock, [this] { return !pause_.load(); });
                paused_ = false;
                generation = generation_.load();
                position = storage_.Count();
            }
            const uint64_t n = 1 + random() % batch.size();
            for (uint64_t i = 0; i < n; ++i) batch[i] = Encode(generation, position + i);
            const uint64_t written = storage_.Write(batch.data(), n);
            if (written != n) {
                ADD_FAILURE() << "append of " << n << " units wrote " << written;
                figures_.wrong++;
            }
            position += written;
        }
        std::lock_guard lock(mutex_);
        writer_done_ = true;
        changed_.notify_all();
    }

    // As the host's "clear": the producer stops, the storage is emptied, it goes on.
    void Host() {
        auto next = Clock::now() + kClearPeriod;
        while (Running()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (Clock::now() < next && storage_.Count() < kClearAtUnits) continue;
            std::unique_lock lock(mutex_);
            pause_ = true;
            changed_.wait(lock, [this] { return paused_ || writer_done_; });
            ++generation_;
            storage_.Clear();
            figures_.clears++;
            pause_ = false;
            changed_.notify_all();
            next = Clock::now() + kClearPeriod;
        }
        std::lock_guard lock(mutex_);
        pause_ = false;
        changed_.notify_all();
    }

    void Check(const uint64_t* values, uint64_t count, uint64_t position, uint64_t oldest, uint64_t newest,
               const char* how) {
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t generation = values[i] >> kPositionBits;
            if ((values[i] & kPositionMask) != position + i || generation < oldest || generation > newest) {
                ADD_FAILURE() << how << " at " << position + i << " gave position " << (values[i] & kPositionMask)
                              << " of generation " << generation << ", expected a generation in " << oldest
                              << ".." << newest;
                figures_.wrong++;
                return;
            }
        }
        figures_.values += count;
    }

    void Reader(int number) {
        std::mt19937_64 random(100 + number);
        std::vector<uint64_t> buffer(16384);
        while (Running()) {
            // The generation is raised before the clear: data of the one before may
            // still be there, never older.
            const uint64_t before = generation_.load();
            const uint64_t count = storage_.Count();
            if (count == 0) {
                std::this_thread::yield();
                continue;
            }
            uint64_t position = 0;
            switch (random() % 3) {
                case 0: position = random() % count; break;                             // anywhere
                case 1: position = random() % std::min<uint64_t>(count, 65536); break;  // the oldest, long recycled
                default: position = count - 1 - random() % std::min<uint64_t>(count, 65536); break;  // near the tail
            }
            const uint64_t want = 1 + random() % buffer.size();
            if (random() % 2 == 0) {
                const uint64_t got = storage_.Read(position, buffer.data(), want);
                Check(buffer.data(), got, position, before == 0 ? 0 : before - 1, generation_.load(), "Read");
            } else {
                RawData view = storage_.Request(position, want);
                if (view.Ptr() == nullptr) continue;
                Check(static_cast<const uint64_t*>(view.Ptr()), view.Count(), position, before == 0 ? 0 : before - 1,
                      generation_.load(), "Request");
            }
        }
    }

    CStorage storage_;
    const Clock::time_point end_;
    std::atomic<uint64_t> generation_{1};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<bool> pause_{false};
    bool paused_ = false;       // guarded by mutex_
    bool writer_done_ = false;  // guarded by mutex_
    Figures figures_;
};

TEST(Stress, OneWriterFourReadersAndClearsOnASmallPoolReadNoWrongValue) {
    const long seconds = reliability::EnvCount("WAVESTORE_STRESS_SECONDS", 3);
    Stress stress{std::chrono::seconds(seconds)};
    const uint64_t loads_before = stress.Storage().LoadedBlocks();
    const uint64_t recycled_before = __internal::BlockCache::Instance().RecycledBlocks();
    reliability::RunWithin(std::chrono::seconds(seconds + 120), "stress run", [&] { stress.Run(); });

    const Figures& seen = stress.Seen();
    const uint64_t reloads = stress.Storage().LoadedBlocks() - loads_before;
    const uint64_t recycled = __internal::BlockCache::Instance().RecycledBlocks() - recycled_before;
    RecordProperty("values_checked", std::to_string(seen.values.load()));
    RecordProperty("reloads", std::to_string(reloads));

    EXPECT_EQ(seen.wrong.load(), 0u);
    EXPECT_GT(seen.clears.load(), 0u);
    EXPECT_GT(seen.values.load(), 0u);
    // Reloads only happen to blocks that were recycled: both by the hundred per second.
    EXPECT_GE(reloads, 100u * static_cast<uint64_t>(seconds));
    EXPECT_GE(recycled, 100u * static_cast<uint64_t>(seconds));
}

}  // namespace
