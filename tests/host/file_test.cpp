#include "host/file.h"

#include <gtest/gtest.h>

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

using Tessel::CFile;

namespace {

constexpr unsigned kReadWriteCreate = CFile::ModeRead | CFile::ModeWrite | CFile::ModeCreate;

// Each test gets its own empty folder, removed afterwards.
class CFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = std::filesystem::path("/tmp") / ("host_file_test_" + std::to_string(::getpid()) + "_" +
                                                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir_);
        ASSERT_TRUE(std::filesystem::create_directories(dir_));
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string PathOf(const std::string& name) const { return (dir_ / name).string(); }
    static std::string ReadAll(CFile& file) {
        std::string out(static_cast<std::size_t>(file.GetLength()), '\0');
        file.Seek(0, CFile::SeekBegin);
        out.resize(static_cast<std::size_t>(file.Read(out.data(), out.size())));
        return out;
    }
    std::filesystem::path dir_;
};

}  // namespace

TEST_F(CFileTest, OpenModesAndAccess) {
    const std::string path = PathOf("a.dat");
    CFile file;
    EXPECT_FALSE(file.Open(path, CFile::ModeRead));    // missing
    EXPECT_FALSE(file.Open(path, CFile::ModeWrite));   // missing, no create
    EXPECT_FALSE(file.Open(path, CFile::ModeCreate));  // neither read nor write
    EXPECT_FALSE(file.Flush());
    ASSERT_TRUE(file.Open(path, 19));
    EXPECT_EQ(file.GetPath(), path);
    EXPECT_EQ(file.Write("hello", 5), 5);

    CFile reader(path, CFile::ModeRead);
    EXPECT_EQ(reader.Write("x", 1), -1);
    EXPECT_FALSE(reader.SetLength(1));
    EXPECT_TRUE(reader.Flush());  // nothing to flush
    EXPECT_EQ(ReadAll(reader), "hello");
    CFile writer(path, CFile::ModeWrite);
    char c = 0;
    EXPECT_EQ(writer.Read(&c, 1), -1);
    EXPECT_EQ(writer.GetLength(), 5);  // no truncation without ModeTruncate
    ASSERT_TRUE(writer.Open(path, CFile::ModeWrite | CFile::ModeTruncate));
    EXPECT_EQ(writer.GetLength(), 0);
    EXPECT_FALSE(CFile(PathOf("no/such/dir.dat"), kReadWriteCreate).IsOpen());
}

TEST_F(CFileTest, SetLengthGrowsWithZerosAndCuts) {
    CFile file(PathOf("len.dat"), kReadWriteCreate);
    ASSERT_EQ(file.Write("abcdef", 6), 6);
    ASSERT_TRUE(file.SetLength(10));
    EXPECT_EQ(ReadAll(file), std::string("abcdef\0\0\0\0", 10));
    ASSERT_TRUE(file.SetLength(2));
    EXPECT_EQ(ReadAll(file), "ab");
    EXPECT_FALSE(file.SetLength(UINT64_MAX));  // beyond off_t
}

TEST_F(CFileTest, SeekAndReadAtEnd) {
    CFile file(PathOf("seek.dat"), kReadWriteCreate);
    ASSERT_EQ(file.Write("0123456789", 10), 10);
    EXPECT_EQ(file.Seek(3, CFile::SeekBegin), 3);
    EXPECT_EQ(file.Seek(4, CFile::SeekCurrent), 7);
    EXPECT_EQ(file.Seek(-2, CFile::SeekCurrent), 5);
    EXPECT_EQ(file.Seek(-2, CFile::SeekEnd), 8);
    std::array<char, 8> buffer{};
    EXPECT_EQ(file.Read(buffer.data(), buffer.size()), 2);  // short read at the end
    EXPECT_EQ(std::string(buffer.data(), 2), "89");
    EXPECT_EQ(file.Read(buffer.data(), buffer.size()), 0);
    // A resulting position below zero or an unknown origin fails and keeps the position.
    EXPECT_EQ(file.Seek(-11, CFile::SeekEnd), -1);
    EXPECT_EQ(file.Seek(-100, CFile::SeekCurrent), -1);
    EXPECT_EQ(file.Seek(0, 3), -1);
    EXPECT_EQ(file.GetPosition(), 10);
    // Past the end: reading gives 0, writing leaves a zero-filled gap.
    EXPECT_EQ(file.Seek(2, CFile::SeekEnd), 12);
    EXPECT_EQ(file.Read(buffer.data(), buffer.size()), 0);
    ASSERT_EQ(file.Write("Z", 1), 1);
    EXPECT_EQ(ReadAll(file), std::string("0123456789\0\0Z", 13));
}

TEST_F(CFileTest, WriteFlushAndReadBackElsewhere) {
    std::vector<unsigned char> data(100'000);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + i / 256);
    CFile writer(PathOf("rw.dat"), kReadWriteCreate);
    ASSERT_EQ(writer.Write(data.data(), data.size()), static_cast<int64_t>(data.size()));
    EXPECT_EQ(writer.Seek(500, CFile::SeekBegin), 500);
    ASSERT_EQ(writer.Write("\xff\xfe", 2), 2);
    EXPECT_TRUE(writer.Flush());
    data[500] = 0xff;
    data[501] = 0xfe;
    CFile reader(std::move(writer));  // a moved file keeps its descriptor and position
    EXPECT_EQ(reader.GetPosition(), 502);
    reader.Open(PathOf("rw.dat"), CFile::ModeRead);
    std::vector<unsigned char> back(data.size() + 1);
    ASSERT_EQ(reader.Read(back.data(), back.size()), static_cast<int64_t>(data.size()));
    back.pop_back();
    EXPECT_EQ(back, data);
}

// Positioned vectored transfers: more pieces than one system call takes, the file
// position left alone, a short read at the end, and modes that don't allow the transfer.
TEST_F(CFileTest, VectoredTransfersAtAnOffset) {
    CFile file(PathOf("v.bin"), kReadWriteCreate);
    ASSERT_TRUE(file.IsOpen());
    ASSERT_EQ(file.Write("head", 4), 4);
    std::vector<unsigned char> data(3000 * 3);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + i / 255);
    std::vector<iovec> pieces;
    for (std::size_t at = 0; at < data.size(); at += 3) pieces.push_back({data.data() + at, 3});  // 3000 pieces
    ASSERT_EQ(file.WriteAt(pieces.data(), static_cast<int>(pieces.size()), 10), static_cast<int64_t>(data.size()));
    EXPECT_EQ(file.GetPosition(), 4);
    EXPECT_EQ(file.GetLength(), static_cast<int64_t>(10 + data.size()));

    std::vector<unsigned char> back(data.size() + 100, 0);
    std::vector<iovec> into;
    for (std::size_t at = 0; at < back.size(); at += 5) into.push_back({back.data() + at, 5});
    ASSERT_EQ(file.ReadAt(into.data(), static_cast<int>(into.size()), 10), static_cast<int64_t>(data.size()));
    EXPECT_TRUE(std::equal(data.begin(), data.end(), back.begin()));
    EXPECT_EQ(file.ReadAt(into.data(), static_cast<int>(into.size()), 10 + data.size()), 0);
    EXPECT_EQ(ReadAll(file).substr(0, 4), "head");

    CFile reader(PathOf("v.bin"), CFile::ModeRead);
    EXPECT_EQ(reader.WriteAt(pieces.data(), 1, 0), -1);
    CFile closed;
    EXPECT_EQ(closed.ReadAt(into.data(), 1, 0), -1);
}
