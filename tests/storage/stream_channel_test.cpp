// A channel on a file that an export package owns: positioned reads and writes,
// appends, and a file that was closed under it. (Storages on it: the export tests.)

#include "storage/stream_channel.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

class StreamChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = fs::temp_directory_path() / ("wavestore-stream-" + std::to_string(::getpid()) + ".bin");
        file_ = std::make_shared<Tessel::CFile>(path_.string(), Tessel::CFile::ModeRead | Tessel::CFile::ModeWrite |
                                                                   Tessel::CFile::ModeCreate |
                                                                   Tessel::CFile::ModeTruncate);
        ASSERT_TRUE(file_->IsOpen());
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }

    fs::path path_;
    std::shared_ptr<Tessel::CFile> file_;
};

TEST_F(StreamChannelTest, ReadsWritesAndAppendsAtTheirOffsets) {
    StreamChannel channel(file_, "Wave");
    EXPECT_EQ(channel.Type(), IDeviceChannel::kExternalFile);
    EXPECT_TRUE(channel.Writable());
    EXPECT_EQ(channel.Features(), IDeviceChannel::kFeatureCopyable);
    EXPECT_EQ(channel.Description(), "Stream,name=Wave,path=" + path_.string());
    EXPECT_EQ(channel.Write("abcdef", 6, 0), 6);
    EXPECT_EQ(channel.Write("XY", 2, 2), 2);
    EXPECT_EQ(channel.Write("gh", 2, IDeviceChannel::kAppend), 2);
    EXPECT_EQ(channel.Size(), 8u);
    char buffer[16] = {};
    EXPECT_EQ(channel.Read(buffer, 16, 1), 7);
    EXPECT_EQ(std::string(buffer, 7), "bXYefgh");
    EXPECT_EQ(channel.Read(buffer, 4, 8), 0);  // at the end

    file_->Close();  // the package committed
    EXPECT_EQ(channel.Size(), 0u);
    EXPECT_EQ(channel.Read(buffer, 4, 0), 0);
    EXPECT_EQ(channel.Write("z", 1, 0), 0);
}

}  // namespace
