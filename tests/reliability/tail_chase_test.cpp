// Readers that chase the writer's tail: each read starts a little before the end and asks
// for far more than there is, while the writer appends small batches into the same
// blocks. Every unit a read gives back belongs where it was read; a read that met the
// end of the data must not go on with the next block once the writer gets there.

#include "reliability/pattern.h"
#include "reliability/watchdog.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint64_t kStream = 11;
constexpr std::size_t kUnit = 4;

TEST(TailChase, ReadsAtTheGrowingEndGiveEveryUnitAtItsPlace) {
    CStorage storage(CreateLocalFileCache(1), kUnit);
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> wrong{0}, reads{0}, units{0};
    reliability::RunWithin(std::chrono::seconds(120), "tail chase", [&] {
        std::vector<std::thread> readers;
        for (int r = 0; r < 2; ++r) {
            readers.emplace_back([&, r] {
                std::mt19937_64 random(r);
                std::vector<unsigned char> buffer(3 * 8192 * kUnit);
                while (!stop.load() && wrong.load() == 0) {
                    const uint64_t count = storage.Count();
                    const uint64_t from = count - std::min<uint64_t>(count, random() % 64);
                    const uint64_t got = storage.Read(from, buffer.data(), buffer.size() / kUnit);
                    const uint64_t good = reliability::FirstWrongUnit(kStream, from, got, kUnit, buffer.data());
                    if (good != got) {
                        ADD_FAILURE() << "unit " << from + good << " of a read from " << from << " is wrong";
                        ++wrong;
                    }
                    ++reads;
                    units += got;
                }
            });
        }
        std::mt19937_64 random(99);
        std::vector<unsigned char> batch(128 * kUnit);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        for (uint64_t position = 0; std::chrono::steady_clock::now() < end && wrong.load() == 0;) {
            const uint64_t n = 1 + random() % 128;
            reliability::FillPattern(kStream, position, n, kUnit, batch.data());
            position += storage.Write(batch.data(), n);
        }
        stop = true;
        for (auto& reader : readers) reader.join();
    });
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_GT(reads.load(), 1000u);
    RecordProperty("reads", std::to_string(reads.load()));
}

}  // namespace
