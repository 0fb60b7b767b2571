// The device channels (managed, external and memory) and the background copier.

#include "storage/data_channel.h"
#include "storage/device_channels.h"
#include "storage/export_manager.h"
#include "storage/file_proxy.h"

#include "host/project_file_manager.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;
using testing_support::WaitFor;
constexpr uint64_t kFresh = 524416, kAppend = IDeviceChannel::kAppend, kMiB = 0x100000;

Bytes Pattern(std::size_t n, unsigned seed) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 37 + seed * 11 + i / 509);
    return b;
}
Bytes ReadAll(IDeviceChannel& channel) {
    Bytes out(channel.Size());
    const int64_t got = channel.Read(out.data(), out.size(), 0);
    out.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return out;
}
std::shared_ptr<IFileCache> AsFile(const std::shared_ptr<IDeviceChannel>& c) {
    return std::dynamic_pointer_cast<IFileCache>(c);
}

class ChannelTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string templ = (fs::temp_directory_path() / "channels-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        folder_ = templ;
        ProjectFileManager::instance().SetProjectFolder(folder_);
    }
    static void TearDownTestSuite() { fs::remove_all(folder_); }
    void TearDown() override { EnableLazyFileCreate(false, 2); }

    static std::shared_ptr<IProjectFile> ProjectFile(const std::shared_ptr<IDeviceChannel>& c) {
        return ProjectFileManager::instance().GetFile(AsFile(c)->GetId(), 19, 0).lock();
    }
    static fs::path OnDisk(const std::string& id) { return fs::path(folder_) / id; }

    static inline std::string folder_;
};

TEST_F(ChannelTest, ManagedFileIsCreatedAtOnceAndForwardsToItsFile) {
    auto channel = CreateLocalFileCache(1);
    auto cache = AsFile(channel);
    const std::string id = cache->GetId();
    EXPECT_EQ(channel->Description(), "ManagedFile,id=" + id);
    EXPECT_EQ(fs::file_size(OnDisk(id)), kFresh);
    auto file = ProjectFile(channel);
    EXPECT_TRUE(file->GetAutoRemove());
    cache->SetKeep(true);
    EXPECT_FALSE(file->GetAutoRemove());
    const Bytes data = Pattern(3000, 1);
    ASSERT_TRUE(channel->Write(data.data(), 1000, 0) == 1000 && channel->Write(data.data() + 1000, 2000, kAppend) == 2000);
    EXPECT_EQ(ReadAll(*channel), data);
    EXPECT_TRUE(cache->Trim(1000));
    EXPECT_EQ(ReadAll(*channel), Bytes(data.begin() + 1000, data.end()));
    cache->Clear();
    EXPECT_EQ(channel->Size(), 0u);

    auto raw = CreateLocalFileCache(0);  // version 0: the file is the data
    EXPECT_EQ(raw->Write(data.data(), 100, kAppend), 100);
    EXPECT_FALSE(AsFile(raw)->Trim(10));
    EXPECT_EQ(fs::file_size(OnDisk(AsFile(raw)->GetId())), 100u);
}

TEST_F(ChannelTest, LazyFileIsCreatedByTheFirstWriteEvenUnderRaces) {
    EnableLazyFileCreate(true, 7);
    auto channel = CreateLocalFileCache(1);
    auto cache = AsFile(channel);
    const std::string id = cache->GetId();
    char byte = 0;
    EXPECT_EQ(channel->Read(&byte, 1, 0), 0);
    EXPECT_EQ(channel->Description(), "ManagedFile,id=" + id + " (Lazy Create!!)");
    EXPECT_FALSE(cache->Trim(1));
    cache->Flush();
    cache->Clear();
    cache->SetKeep(true);  // nothing to keep yet: the creator sets auto-removal later
    EXPECT_FALSE(fs::exists(OnDisk(id)));

    const Bytes data = Pattern(10, 3);
    EXPECT_EQ(channel->Write(data.data(), data.size(), kAppend), 10);
    EXPECT_EQ(fs::file_size(OnDisk(id)), kFresh + 0x80000);
    EXPECT_EQ(channel->Description(), "ManagedFile,id=" + id);
    EXPECT_EQ(ReadAll(*channel), data);
    EXPECT_TRUE(ProjectFile(channel)->GetAutoRemove());

    // Creation racing with the other calls.
    EnableLazyFileCreate(true, 2);
    channel = CreateLocalFileCache(1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            if (t % 2 == 0) {
                EXPECT_EQ(channel->Write(data.data(), 10, kAppend), 10);
            }
            for (int i = 0; i < 50; ++i) AsFile(channel)->SetKeep(true), AsFile(channel)->SetFileReady(1);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(channel->Size(), 20u);
}

TEST_F(ChannelTest, GoneAndLoadedProjectFiles) {
    auto v1 = CreateLocalFileCache(1);
    auto v0 = CreateLocalFileCache(0);
    const std::string id = AsFile(v1)->GetId();
    ASSERT_TRUE(ProjectFileManager::instance().ReleaseFile(id));
    ASSERT_TRUE(ProjectFileManager::instance().ReleaseFile(AsFile(v0)->GetId()));
    EXPECT_FALSE(fs::exists(OnDisk(id)));  // auto-removed
    EXPECT_FALSE(AsFile(v1)->IsValid());
    char byte = 1;
    EXPECT_TRUE(v1->Write(&byte, 1, 0) == 0 && v1->Read(&byte, 1, 0) == 0);
    EXPECT_TRUE(v0->Write(&byte, 1, 0) == -2 && v0->Read(&byte, 1, 0) == -2);
    AsFile(v0)->SetKeep(true);  // no crash on a gone file

    // Loaded files keep their format and are read-only for the sync.
    fs::create_directories(OnDisk("__old__"));
    auto made = CreateLocalFileCache(1);
    const Bytes data = Pattern(5000, 5);  // a version 1 file with content
    ASSERT_EQ(made->Write(data.data(), data.size(), 0), 5000);
    AsFile(made)->Flush();
    fs::copy_file(OnDisk(AsFile(made)->GetId()), OnDisk("__old__/wave.wsc"));
    std::ofstream(OnDisk("__old__/raw.dat"), std::ios::binary) << "raw bytes";

    auto loaded = LoadLocalFileCache("wave.wsc");
    EXPECT_FALSE(loaded->Writable());
    EXPECT_EQ(loaded->Description(), "ManagedFile,id=wave.wsc");
    EXPECT_EQ(ReadAll(*loaded), data);
    EXPECT_TRUE(ProjectFileManager::instance().GetFile("__old__/wave.wsc", 19, 1).lock()->GetAutoRemove());
    const Bytes text = ReadAll(*LoadLocalFileCache("raw.dat"));
    EXPECT_EQ(std::string(text.begin(), text.end()), "raw bytes");

    auto missing = LoadLocalFileCache("missing.wsc");
    EXPECT_EQ(missing->Size(), 0u);
    EXPECT_EQ(missing->Read(&byte, 1, 0), -2);
    EXPECT_EQ(missing->Description(), "ManagedFile,id=NULL");
}

TEST_F(ChannelTest, ConcurrentAppendsAndReadsStayWhole) {
    auto channel = CreateLocalFileCache(1);
    constexpr std::size_t kRecord = 4096, kRecords = 200;
    std::atomic<bool> writing{true};
    std::vector<std::thread> writers;
    for (int t = 1; t <= 3; ++t)
        writers.emplace_back([&, t] {
            const Bytes record(kRecord, static_cast<unsigned char>(t));
            for (std::size_t i = 0; i < kRecords; ++i) ASSERT_EQ(channel->Write(record.data(), kRecord, kAppend), 4096);
        });
    auto whole = [](const unsigned char* p) { return std::all_of(p, p + kRecord, [p](auto c) { return c == *p; }); };
    std::thread reader([&] {
        for (Bytes buffer(kRecord); writing.load();) {
            const uint64_t size = channel->Size();
            ASSERT_EQ(size % kRecord, 0u);
            ASSERT_TRUE(size == 0 || (channel->Read(buffer.data(), kRecord, size - kRecord) == 4096 && whole(buffer.data())));
        }
    });
    for (auto& writer : writers) writer.join();
    writing.store(false);
    reader.join();
    const Bytes all = ReadAll(*channel);
    ASSERT_EQ(all.size(), 3 * kRecords * kRecord);
    for (std::size_t at = 0; at < all.size(); at += kRecord) ASSERT_TRUE(whole(&all[at])) << at;
}

// A source of 1 MiB pieces filled with their number + 1. From `gate` on its reads wait
// for Release(); with `broken` they fail (1) or throw (2).
class TestSource final : public IDeviceChannel {
public:
    TestSource(uint64_t size, uint64_t gate, int broken = 0) : size_(size), gate_(gate), broken_(broken) {}
    int Type() const override { return 1; }
    uint64_t Size() override { return size_; }
    int64_t Write(const void*, uint64_t, uint64_t) override { return 0; }
    std::string Description() override { return "test"; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override {
        if (broken_ == 2) throw std::out_of_range("beyond the map");
        if (broken_ == 1) return -1;
        if (offset >= gate_) {
            std::unique_lock lock(mutex_);
            held_ = true;
            changed_.notify_all();
            changed_.wait(lock, [this] { return released_; });
        }
        const uint64_t n = std::min(bytes, size_ - offset);
        std::memset(buffer, static_cast<int>(offset / kMiB + 1), n);
        return static_cast<int64_t>(n);
    }
    bool WaitHeld() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [this] { return held_; });
    }
    void Release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

private:
    const uint64_t size_, gate_;
    const int broken_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false, released_ = false;
};

class CopierTest : public ChannelTest {
protected:
    // A destination as Persist prepares it: kept, not ready.
    static std::shared_ptr<IDeviceChannel> Destination(int version = 1) {
        auto channel = CreateLocalFileCache(version);
        AsFile(channel)->SetKeep(true);
        AsFile(channel)->SetFileReady(0);
        return channel;
    }
    static bool Ready(const std::shared_ptr<IDeviceChannel>& c) { return ProjectFile(c)->IsReady() == 1; }
    static void Enqueue(std::shared_ptr<IDeviceChannel> from, std::shared_ptr<IDeviceChannel> to) {
        ExportManager::Instance().Enqueue(std::move(from), std::move(to));
    }
};

TEST_F(CopierTest, CopiesIntoManagedFilesAndFailedCopiesGetReadyToo) {
    const Bytes memory = Pattern(2 * kMiB + 12345, 7);
    auto source = CreateMemCache(memory.data(), memory.size());
    auto v1 = Destination(1), v0 = Destination(0), failing = Destination(), throwing = Destination();
    Enqueue(source, v1);
    Enqueue(source, v0);
    Enqueue(std::make_shared<TestSource>(1000, kAppend, 1), failing);  // failed copies still get ready
    Enqueue(std::make_shared<TestSource>(1000, kAppend, 2), throwing);
    Enqueue(std::make_shared<TestSource>(1000, kAppend), nullptr);
    ASSERT_TRUE(WaitFor([&] { return Ready(v1) && Ready(v0) && Ready(failing) && Ready(throwing); }));
    EXPECT_EQ(ReadAll(*v1), memory);
    EXPECT_EQ(ReadAll(*v0), memory);
    EXPECT_EQ(failing->Size() + throwing->Size(), 0u);
    // Flushed: the header on disk knows the copied extent.
    auto reopened = MakeProxy(ProjectFileManager::instance().GetFile(AsFile(v1)->GetId(), 19, 0), 0x80000, 1, 0);
    EXPECT_EQ(reopened->Version(), 1);
    EXPECT_EQ(reopened->Size(), memory.size());
}

TEST_F(CopierTest, StopSerializeLeavesTheDestinationShortButReady) {
    auto source = std::make_shared<TestSource>(8 * kMiB, 2 * kMiB);
    auto running = Destination(), queued = Destination(), later = Destination();
    Enqueue(source, running);
    Enqueue(std::make_shared<TestSource>(100, kAppend), queued);
    ASSERT_TRUE(source->WaitHeld());
    EXPECT_FALSE(Ready(running));

    IDataChannel().StopSerialize();
    source->Release();
    ASSERT_TRUE(WaitFor([&] { return Ready(running); }));
    EXPECT_GE(running->Size(), 2 * kMiB);
    EXPECT_LT(running->Size(), 8 * kMiB);
    Bytes piece(16);
    ASSERT_EQ(running->Read(piece.data(), 16, kMiB), 16);
    EXPECT_EQ(piece, Bytes(16, 2));

    // The queued job was dropped; one enqueued after the stop runs.
    Enqueue(std::make_shared<TestSource>(300, kAppend), later);
    ASSERT_TRUE(WaitFor([&] { return Ready(later); }));
    EXPECT_EQ(later->Size(), 300u);
    EXPECT_FALSE(Ready(queued));
    EXPECT_EQ(queued->Size(), 0u);
}

}  // namespace
