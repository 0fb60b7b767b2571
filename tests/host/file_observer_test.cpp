#include "host/file.h"
#include "host/file_observer.h"

#include <gtest/gtest.h>

#include <sys/uio.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

using Tessel::CFile;
using Tessel::FileChange;

namespace {

struct Change {
    std::string path;
    FileChange change;
    uint64_t offset;
    std::string data;
};

// What CFile reports of its changes: each write with its place and the bytes that went,
// each change of length, each flush; in order, and nothing once the observer is gone.
TEST(FileObserver, SeesEveryChangeInOrderWithItsPlaceAndBytes) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("file_observer_" + std::to_string(::getpid()))).string();
    std::vector<Change> seen;
    Tessel::SetFileChangeObserver([&](const std::string& p, FileChange change, uint64_t offset, const void* data,
                                      uint64_t bytes) {
        seen.push_back({p, change, offset, data ? std::string(static_cast<const char*>(data), bytes) : std::string()});
    });
    {
        CFile file(path, CFile::ModeRead | CFile::ModeWrite | CFile::ModeCreate | CFile::ModeTruncate);
        ASSERT_TRUE(file.IsOpen());
        EXPECT_EQ(file.Write("abc", 3), 3);
        file.Seek(10, CFile::SeekBegin);
        EXPECT_EQ(file.Write("de", 2), 2);
        char one[] = "xy", two[] = "z";
        iovec pieces[] = {{one, 2}, {two, 1}};
        EXPECT_EQ(file.WriteAt(pieces, 2, 20), 3);
        EXPECT_TRUE(file.SetLength(5));
        EXPECT_TRUE(file.Flush());
        char buffer[4];
        file.Seek(0, CFile::SeekBegin);
        EXPECT_EQ(file.Read(buffer, 4), 4);  // reads are no changes
        CFile reader(path, CFile::ModeRead);
        EXPECT_EQ(reader.Write("q", 1), -1);  // a failed write is none either
    }
    Tessel::SetFileChangeObserver({});
    CFile after(path, CFile::ModeWrite);
    after.Write("late", 4);
    std::filesystem::remove(path);

    ASSERT_EQ(seen.size(), 6u);
    for (const Change& change : seen) EXPECT_EQ(change.path, path);
    EXPECT_EQ(seen[0].change, FileChange::Write);
    EXPECT_EQ(seen[0].offset, 0u);
    EXPECT_EQ(seen[0].data, "abc");
    EXPECT_EQ(seen[1].offset, 10u);
    EXPECT_EQ(seen[1].data, "de");
    EXPECT_EQ(seen[2].offset, 20u);
    EXPECT_EQ(seen[2].data, "xy");
    EXPECT_EQ(seen[3].offset, 22u);
    EXPECT_EQ(seen[3].data, "z");
    EXPECT_EQ(seen[4].change, FileChange::Resize);
    EXPECT_EQ(seen[4].offset, 5u);
    EXPECT_EQ(seen[5].change, FileChange::Sync);
}

}  // namespace
