// Vectored transfers of the managed cache files: one WriteV leaves the file byte for byte
// as the same bytes written piece by piece, across blocks that are not yet mapped and
// physical blocks out of logical order; ReadV reads the same back; a storage's vectored
// sync writes make the same file as block-by-block writes; and the file layer's fault
// hook fails vectored calls as it fails the others.

#include "host/file.h"
#include "host/file_faults.h"
#include "host/project_file_manager.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/file_proxy.h"

#include <gtest/gtest.h>

#include <sys/uio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Pattern(std::size_t n, unsigned seed) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 13 + seed + i / 509);
    return b;
}

Bytes Disk(const std::shared_ptr<IProjectFile>& file) {
    std::ifstream in(file->FullPath(), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class VectoredFile : public ::testing::Test {
protected:
    void SetUp() override {
        std::string templ = (std::filesystem::temp_directory_path() / "vectored-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(templ.data()), nullptr);
        folder_ = templ;
        manager_ = std::make_unique<ProjectFileManager>(folder_);
    }
    void TearDown() override {
        Tessel::SetFileFaultHook({});
        manager_.reset();
        std::filesystem::remove_all(folder_);
    }
    std::weak_ptr<IProjectFile> File(const std::string& name) { return manager_->GetFile(name, 19, 0); }

    std::string folder_;
    std::unique_ptr<ProjectFileManager> manager_;
};

constexpr uint32_t kSmallBlock = 4096;

// Pieces of uneven size over data, so that they straddle the file's block boundaries.
std::vector<iovec> Pieces(Bytes& data, std::size_t piece) {
    std::vector<iovec> pieces;
    for (std::size_t at = 0; at < data.size(); at += piece)
        pieces.push_back({data.data() + at, std::min(piece, data.size() - at)});
    return pieces;
}

TEST_F(VectoredFile, OneWriteVMakesTheFileThatPiecewiseWritesMake) {
    auto vectored = MakeProxy(File("a.wsc"), kSmallBlock, 1, 1);
    auto piecewise = MakeProxy(File("b.wsc"), kSmallBlock, 1, 1);
    // Logical blocks 3 and 4 get physical blocks 0 and 1 first: the blocks before them
    // come later, behind them in the file, and the write runs across that jump.
    const Bytes early = Pattern(100, 1);
    for (auto* proxy : {vectored.get(), piecewise.get()})
        ASSERT_EQ(proxy->Write(3 * kSmallBlock + 10, early.data(), early.size()), 100);
    Bytes data = Pattern(5 * kSmallBlock + 777, 2);
    const auto pieces = Pieces(data, 3000);
    ASSERT_EQ(vectored->WriteV(0, pieces.data(), pieces.size()), static_cast<int64_t>(data.size()));
    uint64_t at = 0;
    for (const iovec& piece : pieces) {
        ASSERT_EQ(piecewise->Write(at, piece.iov_base, piece.iov_len), static_cast<int64_t>(piece.iov_len));
        at += piece.iov_len;
    }
    vectored->Flush();
    piecewise->Flush();
    const Bytes a = Disk(File("a.wsc").lock()), b = Disk(File("b.wsc").lock());
    ASSERT_GT(a.size(), data.size());
    EXPECT_EQ(a, b);
    EXPECT_EQ(vectored->Size(), data.size());

    // Read back in pieces of another size, through the same jumps, and past the end.
    Bytes back(data.size() + 5000, 0);
    const auto into = Pieces(back, 2500);
    ASSERT_EQ(vectored->ReadV(0, into.data(), into.size()), static_cast<int64_t>(data.size()));
    EXPECT_TRUE(std::equal(data.begin(), data.end(), back.begin()));
    Bytes middle(3 * kSmallBlock);
    iovec one{middle.data(), middle.size()};
    ASSERT_EQ(vectored->ReadV(kSmallBlock + 5, &one, 1), static_cast<int64_t>(middle.size()));
    EXPECT_TRUE(std::equal(middle.begin(), middle.end(), data.begin() + kSmallBlock + 5));
}

TEST_F(VectoredFile, RawFilesTakeTheBytesAtTheirOffset) {
    auto raw = MakeProxy(File("raw.wsc"), kSmallBlock, 1, 0);
    Bytes data = Pattern(10000, 3);
    const auto pieces = Pieces(data, 999);
    ASSERT_EQ(raw->WriteV(50, pieces.data(), pieces.size()), 10000);
    EXPECT_EQ(raw->Size(), 10050u);
    Bytes back(10000);
    const auto into = Pieces(back, 4096);
    ASSERT_EQ(raw->ReadV(50, into.data(), into.size()), 10000);
    EXPECT_EQ(back, data);
    EXPECT_EQ(raw->ReadV(10050, into.data(), into.size()), 0);
}

TEST_F(VectoredFile, TheFaultHookFailsVectoredCallsWithoutTouchingTheFile) {
    auto proxy = MakeProxy(File("f.wsc"), kSmallBlock, 1, 0);
    Bytes data = Pattern(8192, 4);
    const auto pieces = Pieces(data, 1024);
    ASSERT_EQ(proxy->WriteV(0, pieces.data(), pieces.size()), 8192);
    Tessel::SetFileFaultHook([](Tessel::FileOperation, const std::string& path) {
        return path.find("f.wsc") != std::string::npos;
    });
    Bytes other = Pattern(8192, 5);
    const auto others = Pieces(other, 1024);
    EXPECT_LT(proxy->WriteV(0, others.data(), others.size()), 0);
    Bytes back(8192);
    const auto into = Pieces(back, 1024);
    EXPECT_LT(proxy->ReadV(0, into.data(), into.size()), 0);
    Tessel::SetFileFaultHook({});
    ASSERT_EQ(proxy->ReadV(0, into.data(), into.size()), 8192);
    EXPECT_EQ(back, data);
}

// A storage's sync writes runs of blocks with one call; the file is the one that
// block-by-block writes of the same data make, and it reopens with the same content. The
// files' early writeback, on or off, changes no byte. Parameters: format version, early
// writeback.
class VectoredStorageFile : public ::testing::TestWithParam<std::tuple<int, bool>> {
protected:
    void SetUp() override { Tessel::CFile::SetEarlyWriteback(std::get<1>(GetParam())); }
    void TearDown() override { Tessel::CFile::SetEarlyWriteback(true); }
    static int Version() { return std::get<0>(GetParam()); }
};

TEST_P(VectoredStorageFile, ReopensByteForByteAsTheBlockByBlockFile) {
    auto channel = CreateLocalFileCache(Version());
    auto reference = CreateLocalFileCache(Version());
    std::vector<uint32_t> data(40 * 8192 + 1234);  // 40 blocks and a bit, through the pool
    std::iota(data.begin(), data.end(), 17u);
    // The storage lives to the end: going, it empties its file.
    CStorage storage(channel, 4);
    for (uint64_t done = 0; done < data.size(); done += 30000)
        storage.Write(data.data() + done, std::min<uint64_t>(30000, data.size() - done));
    storage.Sync();
    for (uint64_t done = 0; done < data.size() * 4; done += 32768) {
        const uint64_t n = std::min<uint64_t>(32768, data.size() * 4 - done);
        ASSERT_EQ(reference->Write(reinterpret_cast<const unsigned char*>(data.data()) + done, n, done),
                  static_cast<int64_t>(n));
    }
    auto* file = dynamic_cast<IFileCache*>(channel.get());
    auto* ref = dynamic_cast<IFileCache*>(reference.get());
    file->Flush();
    ref->Flush();
    auto a = ProjectFileManager::instance().GetFile(file->GetId(), 19, 0).lock();
    auto b = ProjectFileManager::instance().GetFile(ref->GetId(), 19, 0).lock();
    ASSERT_TRUE(a && b);
    EXPECT_EQ(Disk(a), Disk(b));

    // Reopened, the file holds the data.
    auto reopened = MakeProxy(ProjectFileManager::instance().GetFile(file->GetId(), 19, 0), 0x80000, 1, 0);
    EXPECT_EQ(reopened->Version(), Version() == 0 ? 0 : 1);
    ASSERT_EQ(reopened->Size(), data.size() * 4);
    std::vector<uint32_t> back(data.size());
    ASSERT_EQ(reopened->Read(0, back.data(), back.size() * 4), static_cast<int64_t>(back.size() * 4));
    EXPECT_EQ(back, data);
}
INSTANTIATE_TEST_SUITE_P(FormatsAndWriteback, VectoredStorageFile,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Bool()));

}  // namespace
