// A version-1 file whose flush is cut short after its first write, as when the process
// dies between the two writes of a flush: opened again, it holds the extent of one of
// its flushes, and everything in that extent reads back right.

#include "host/file_faults.h"
#include "host/project_file_manager.h"
#include "reliability/pattern.h"
#include "storage/file_proxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kBlockSize = 0x80000;
constexpr uint64_t kStream = 5;

TEST(CutFlush, AFileOpensWithTheExtentOfAFlushThatReadsRight) {
    std::string folder = (std::filesystem::temp_directory_path() / "cut-flush-XXXXXX").string();
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    {
        ProjectFileManager files(folder);
        std::weak_ptr<IProjectFile> file = files.GetFile("cut.wsc", 19, 0);
        std::shared_ptr<FileProxyBase> proxy = MakeProxy(file, kBlockSize, 1, 1);
        ASSERT_EQ(proxy->Version(), 1);

        // One block and a half, flushed; then a second block and a half, whose flush
        // gets only as far as its first write.
        const uint64_t half = kBlockSize / 2;
        std::vector<unsigned char> data(3 * half);
        reliability::FillPattern(kStream, 0, data.size(), 1, data.data());
        ASSERT_EQ(proxy->Write(0, data.data(), data.size()), static_cast<int64_t>(data.size()));
        proxy->Flush();
        reliability::FillPattern(kStream, data.size(), data.size(), 1, data.data());
        ASSERT_EQ(proxy->Write(3 * half, data.data(), data.size()), static_cast<int64_t>(data.size()));
        std::atomic<int> writes{0};
        Tessel::SetFileFaultHook([&](Tessel::FileOperation op, const std::string& path) {
            return op == Tessel::FileOperation::Write && path.find("cut.wsc") != std::string::npos && ++writes > 1;
        });
        proxy->Flush();
        Tessel::SetFileFaultHook({});
        ASSERT_EQ(writes.load(), 2);

        std::shared_ptr<FileProxyBase> reopened = MakeProxy(file, kBlockSize, 1, 0);
        ASSERT_EQ(reopened->Version(), 1);
        const uint64_t size = reopened->Size();
        EXPECT_TRUE(size == 3 * half || size == 6 * half) << size;
        std::vector<unsigned char> back(size);
        ASSERT_EQ(reopened->Read(0, back.data(), size), static_cast<int64_t>(size));
        EXPECT_EQ(reliability::FirstWrongUnit(kStream, 0, size, 1, back.data()), size);
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
