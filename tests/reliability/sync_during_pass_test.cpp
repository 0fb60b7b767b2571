// Sync while the timer's pass of the same storage is writing its tail block, and the
// writer appends to that block meanwhile: when Sync returns, everything appended before
// it is on the channel and a flush followed the last write. (A pass that counted the
// block's new length as synced, or a Sync that left the running pass to finish alone,
// returned with the appended units missing.)

#include "storage/block_storage.h"
#include "support/fake_channel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <numeric>
#include <thread>
#include <vector>

namespace {

// Holds its first write until the test opens the gate.
class GatedChannel : public testing_support::FakeChannel {
public:
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override {
        if (!held_.exchange(true)) {
            entered.set_value();
            opened_.wait();
        }
        const int64_t written = FakeChannel::Write(buffer, bytes, offset);
        ++completed_;
        return written;
    }
    void Flush() override {
        flushed_after = completed_.load();
        FakeChannel::Flush();
    }
    void Open() { gate.set_value(); }

    std::promise<void> entered;
    std::atomic<int> flushed_after{-1};  // writes completed at the last flush

    int Completed() const { return completed_.load(); }

private:
    std::promise<void> gate;
    std::shared_future<void> opened_ = gate.get_future().share();
    std::atomic<bool> held_{false};
    std::atomic<int> completed_{0};
};

TEST(SyncDuringAPass, ReturnsWithEverythingAppendedOnTheChannelAndFlushed) {
    auto channel = std::make_shared<GatedChannel>();
    CStorage storage(channel, 4);
    std::vector<uint32_t> units(110);
    std::iota(units.begin(), units.end(), 1u);
    ASSERT_EQ(storage.Write(units.data(), 100), 100u);

    std::future<void> entered = channel->entered.get_future();
    std::thread pass([&] { storage.PeriodicSync(); });  // as the 500 ms timer does
    entered.wait();
    // The block is being written: the writer goes on filling it.
    ASSERT_EQ(storage.Write(units.data() + 100, 10), 10u);
    std::thread sync([&] { storage.Sync(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // Sync meets the pass
    channel->Open();
    sync.join();

    const std::vector<uint8_t> bytes = channel->Bytes();
    ASSERT_EQ(bytes.size(), units.size() * 4);
    EXPECT_EQ(std::memcmp(bytes.data(), units.data(), bytes.size()), 0);
    EXPECT_EQ(channel->flushed_after.load(), channel->Completed());
    pass.join();
}

}  // namespace
