// Malformed cache files, opened as the store opens the files of a loaded project: every
// bit of a version-1 header flipped one at a time (with the digest left as it was, and
// made to match), and files of both formats cut at every length up to 128 and at the
// block boundaries and one byte either side. No crash, no hang; a header that fails a
// test gives raw data of the whole file without a message; whatever is readable is what
// was written.

#include "host/md5.h"
#include "host/project_file_manager.h"
#include "reliability/loaded_file.h"
#include "reliability/watchdog.h"
#include "storage/device_channels.h"
#include "storage/file_proxy.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

using reliability::Bytes;
using reliability::LoadedFile;

constexpr uint64_t kUnit = 4;
constexpr uint64_t kBlock = 0x80000;                  // block of the version-1 format
constexpr uint64_t kDataOffset = 128 + kBlock;        // one map table
constexpr uint64_t kUnits = (2 * kBlock + 200000) / kUnit;  // three blocks, the last one in part

uint32_t Value(uint64_t position) { return static_cast<uint32_t>(position * 2 + 1); }

// A cache file of the given format as a storage leaves it after a sync.
Bytes WrittenFile(int version) {
    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(version);
    auto storage = std::make_unique<CStorage>(channel, static_cast<uint32_t>(kUnit));
    std::vector<uint32_t> units(kUnits);
    for (uint64_t i = 0; i < kUnits; ++i) units[i] = Value(i);
    EXPECT_EQ(storage->Write(units.data(), kUnits), kUnits);
    for (int i = 0; i < 3; ++i) storage->Sync();
    const std::string path =
        ProjectFileManager::instance().GetProjectFolder() + "/" + dynamic_cast<IFileCache&>(*channel).GetId();
    std::ifstream in(path, std::ios::binary);
    Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    storage.reset();
    return bytes;
}

uint32_t Le32(const Bytes& b, std::size_t at) {
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 | uint32_t{b[at + 3]} << 24;
}

bool Warned(const testing_support::LogCapture& log) {
    const auto lines = log.Lines();
    return std::any_of(lines.begin(), lines.end(), [](const auto& line) { return line.first >= LogLevel::Warning; });
}

class MalformedFile : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        version1_ = new Bytes(WrittenFile(1));
        raw_ = new Bytes(WrittenFile(0));
    }
    static void TearDownTestSuite() {
        delete version1_;
        delete raw_;
    }

    // The file opens as raw data: its bytes, from the storage; of a long file its first
    // and last 64 KiB.
    static void ExpectRawFile(LoadedFile::Opened& opened, const Bytes& file) {
        EXPECT_EQ(opened.version, 0);
        CStorage& storage = *opened.storage;
        const uint64_t count = file.size() / kUnit;
        ASSERT_EQ(storage.Count(), count);
        constexpr uint64_t kSample = 16384;
        for (uint64_t from : {uint64_t{0}, count > kSample ? count - kSample : 0}) {
            std::vector<uint32_t> units(std::min(kSample, count));
            ASSERT_EQ(storage.Read(from, units.data(), units.size()), units.size());
            EXPECT_TRUE(std::equal(units.begin(), units.end(), reinterpret_cast<const uint32_t*>(file.data()) + from));
        }
    }

    // Units [0, count) read right, and no more can be read.
    static void ExpectReadable(CStorage& storage, uint64_t count) {
        const std::vector<uint32_t> units = reliability::ReadUnits(storage, storage.Count());
        ASSERT_EQ(units.size(), count);
        for (uint64_t i = 0; i < count; ++i)
            if (units[i] != Value(i)) {
                ADD_FAILURE() << "unit " << i << " reads " << units[i];
                return;
            }
    }

    static Bytes* version1_;
    static Bytes* raw_;
};

Bytes* MalformedFile::version1_ = nullptr;
Bytes* MalformedFile::raw_ = nullptr;

TEST_F(MalformedFile, TheWrittenFilesAreWhatTheOthersDamage) {
    const Bytes& file = *version1_;
    ASSERT_EQ(file.size(), kDataOffset + 3 * kBlock);
    EXPECT_EQ(Le32(file, 0), FileHeader::kMagic);
    EXPECT_FALSE(CheckHeader(file.data(), file.size()));
    EXPECT_EQ(raw_->size(), kUnits * kUnit);
    LoadedFile loaded("malformed.wsc");
    loaded.Set(file);
    LoadedFile::Opened opened = loaded.Open(kUnit);
    EXPECT_EQ(opened.version, 1);
    EXPECT_EQ(opened.storage->Count(), kUnits);
    ExpectReadable(*opened.storage, kUnits);
    loaded.Close(opened);
}

// The digest covers bytes 0..111 and is bytes 112..127: any one bit flipped fails it.
TEST_F(MalformedFile, EveryHeaderBitFlippedGivesRawDataOfTheWholeFileSilently) {
    const Bytes& file = *version1_;
    LoadedFile loaded("malformed.wsc");
    testing_support::LogCapture log;
    int flips = 0;
    for (std::size_t bit = 0; bit < FileHeader::kSize * 8 && !HasFailure(); ++bit) {
        const std::string what = "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8);
        Bytes head(file.begin(), file.begin() + FileHeader::kSize);
        head[bit / 8] ^= static_cast<unsigned char>(1u << (bit % 8));
        loaded.Set(file, head);
        reliability::RunWithin(std::chrono::seconds(60), what, [&] {
            LoadedFile::Opened opened = loaded.Open(kUnit);
            EXPECT_EQ(opened.version, 0);
            CStorage& storage = *opened.storage;
            ASSERT_EQ(storage.Count(), file.size() / kUnit);
            // The header is the first data, the units written follow the map.
            std::vector<uint32_t> first(FileHeader::kSize / kUnit);
            ASSERT_EQ(storage.Read(0, first.data(), first.size()), first.size());
            EXPECT_EQ(std::memcmp(first.data(), head.data(), head.size()), 0);
            // The first and the last block of them.
            std::vector<uint32_t> data(8192);
            for (uint64_t from : {uint64_t{0}, kUnits - data.size()}) {
                ASSERT_EQ(storage.Read(kDataOffset / kUnit + from, data.data(), data.size()), data.size());
                for (uint64_t i = 0; i < data.size(); ++i) ASSERT_EQ(data[i], Value(from + i)) << "unit " << from + i;
            }
            loaded.Close(opened);
        });
        ++flips;
    }
    EXPECT_EQ(flips, 1024);
    EXPECT_FALSE(Warned(log)) << "a damaged header degrades to raw data without a message";
}

// Flipped bits under a digest made to match: the layout tests decide. Whatever opens,
// the storage reads what the format reads at the same place, and the reopened file
// never ends the process or hangs.
TEST_F(MalformedFile, HeaderBitsFlippedUnderAMatchingDigestOpenAsTheLayoutSays) {
    const Bytes& file = *version1_;
    LoadedFile loaded("malformed.wsc");
    int version1 = 0, raw = 0;
    std::set<std::size_t> opened_as_version1;  // bytes whose flips still open as version 1
    for (std::size_t bit = 0; bit < FileHeader::kDigestOffset * 8 && !HasFailure(); ++bit) {
        const std::string what = "bit " + std::to_string(bit % 8) + " of byte " + std::to_string(bit / 8);
        Bytes head(file.begin(), file.begin() + FileHeader::kSize);
        head[bit / 8] ^= static_cast<unsigned char>(1u << (bit % 8));
        Vellum::MD5::GetBinaryMD5(head.data(), FileHeader::kDigestOffset, head.data() + FileHeader::kDigestOffset);
        loaded.Set(file, head);
        reliability::RunWithin(std::chrono::seconds(60), what + ", digest matching", [&] {
            testing_support::LogCapture log;
            LoadedFile::Opened opened = loaded.Open(kUnit);
            CStorage& storage = *opened.storage;
            if (opened.version == 0) {
                ++raw;
                Bytes damaged = file;
                std::copy(head.begin(), head.end(), damaged.begin());
                ExpectRawFile(opened, damaged);
                EXPECT_FALSE(Warned(log));
            } else {
                ++version1;
                opened_as_version1.insert(bit / 8);
                // At most three blocks' worth: a tail before the head makes the extent
                // wrap to nearly 2^64 bytes.
                const uint64_t count = std::min<uint64_t>(storage.Count(), 3 * kBlock / kUnit);
                const std::vector<uint32_t> units = reliability::ReadUnits(storage, count);
                std::vector<uint32_t> direct(count);
                const int64_t bytes = opened.channel->Read(direct.data(), count * kUnit, 0);
                ASSERT_GE(bytes, 0);
                ASSERT_EQ(units.size(), static_cast<uint64_t>(bytes) / kUnit);
                EXPECT_EQ(std::memcmp(units.data(), direct.data(), units.size() * kUnit), 0);
            }
            loaded.Close(opened);
        });
    }
    // Only the fields that the tests leave free still open: tables, head and tail, head
    // offset, tail fill, the untested reserved word and the size limit.
    for (std::size_t byte : opened_as_version1)
        EXPECT_TRUE(byte == 12 || (byte >= 16 && byte < 40)) << "byte " << byte << " flipped opens as version 1";
    EXPECT_GT(version1, 0);
    EXPECT_GT(raw, 0);
    std::printf("[ malformed ] %d flips under a matching digest: %d version 1, %d raw\n", version1 + raw, version1, raw);
}

// The map is not under the digest. Logical blocks 0 and 2 swap their places, and the
// file ends 100 bytes short: logical block 0 now ends early, in the middle of the data.
// The storage reads what the format reads, up to where it ends, and nothing shifted.
TEST_F(MalformedFile, MapWithABlockThatEndsEarlyReadsUpToItsEnd) {
    Bytes file = *version1_;
    ASSERT_EQ(Le32(file, 128), 0u);
    ASSERT_EQ(Le32(file, 136), 2u);
    std::swap_ranges(file.begin() + 128, file.begin() + 132, file.begin() + 136);
    file.resize(file.size() - 100);
    LoadedFile loaded("malformed.wsc");
    loaded.Set(file);
    reliability::RunWithin(std::chrono::seconds(60), "read a file whose map has a block that ends early", [&] {
        LoadedFile::Opened opened = loaded.Open(kUnit);
        ASSERT_EQ(opened.version, 1);
        ASSERT_EQ(opened.storage->Count(), kUnits);
        std::vector<uint32_t> direct(kUnits);
        const int64_t bytes = opened.channel->Read(direct.data(), kUnits * kUnit, 0);
        ASSERT_EQ(bytes, static_cast<int64_t>(kBlock - 100));
        direct.resize(static_cast<uint64_t>(bytes) / kUnit);
        const std::vector<uint32_t> units = reliability::ReadUnits(*opened.storage, kUnits);
        EXPECT_EQ(units.size(), direct.size());
        const std::size_t common = std::min(units.size(), direct.size());
        EXPECT_EQ(std::memcmp(units.data(), direct.data(), common * kUnit), 0);
        // A view of the same range ends there too.
        const uint64_t from = kBlock / kUnit - 1000;
        RawData view = opened.storage->Request(from, 2000);
        ASSERT_EQ(view.Count(), direct.size() - from);
        EXPECT_EQ(std::memcmp(view.Ptr(), direct.data() + from, view.Count() * kUnit), 0);
        loaded.Close(opened);
    });
}

// The lengths at which a version-1 file is cut: 0..128, and the ends of the map and of
// each block, with one byte either side.
std::vector<uint64_t> CutLengths(uint64_t length) {
    std::set<uint64_t> cuts;
    for (uint64_t n = 0; n <= FileHeader::kSize; ++n) cuts.insert(n);
    for (uint64_t edge = kDataOffset; edge <= length; edge += kBlock)
        for (uint64_t n : {edge - 1, edge, edge + 1}) cuts.insert(n);
    // Inside the data: the ends of the storage's own blocks (atoms of 32 KiB).
    for (uint64_t n : {kDataOffset + 32768 - 1, kDataOffset + 32768, kDataOffset + 32768 + 2, kDataOffset + 200000})
        cuts.insert(n);
    std::vector<uint64_t> out;
    for (uint64_t n : cuts)
        if (n < length) out.push_back(n);
    return out;
}

TEST_F(MalformedFile, VersionOneFileCutShortKeepsWhatIsLeft) {
    const Bytes& file = *version1_;
    LoadedFile loaded("malformed.wsc");
    testing_support::LogCapture log;
    const std::vector<uint64_t> cuts = CutLengths(file.size());
    for (uint64_t length : cuts) {
        if (HasFailure()) break;
        const std::string what = "cut to " + std::to_string(length) + " bytes";
        const Bytes cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        loaded.Set(cut);
        reliability::RunWithin(std::chrono::seconds(60), what, [&] {
            LoadedFile::Opened opened = loaded.Open(kUnit);
            if (length < kDataOffset) {
                // No whole header and map: raw data of what there is.
                ExpectRawFile(opened, cut);
            } else {
                // The header keeps its extent; the units that are still in the file read
                // right, and the read ends where the file does.
                EXPECT_EQ(opened.version, 1);
                EXPECT_EQ(opened.storage->Count(), kUnits);
                ExpectReadable(*opened.storage, std::min(kUnits, (length - kDataOffset) / kUnit));
            }
            loaded.Close(opened);
        });
    }
    EXPECT_FALSE(Warned(log));
    std::printf("[ malformed ] version-1 file cut at %zu lengths\n", cuts.size());
}

TEST_F(MalformedFile, RawFileCutShortKeepsWhatIsLeft) {
    const Bytes& file = *raw_;
    LoadedFile loaded("malformed.wsc");
    std::set<uint64_t> cuts;
    for (uint64_t n = 0; n <= FileHeader::kSize; ++n) cuts.insert(n);
    for (uint64_t edge = 32768; edge < file.size(); edge += 32768)
        for (uint64_t n : {edge - 1, edge, edge + 1}) cuts.insert(n);
    for (uint64_t length : cuts) {
        if (HasFailure()) break;
        const std::string what = "cut to " + std::to_string(length) + " bytes";
        loaded.Set(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        reliability::RunWithin(std::chrono::seconds(60), what + " (raw)", [&] {
            LoadedFile::Opened opened = loaded.Open(kUnit);
            EXPECT_EQ(opened.version, 0);
            EXPECT_EQ(opened.storage->Count(), length / kUnit);
            ExpectReadable(*opened.storage, length / kUnit);
            loaded.Close(opened);
        });
    }
    std::printf("[ malformed ] raw file cut at %zu lengths\n", cuts.size());
}

}  // namespace
