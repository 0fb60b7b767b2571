#include "storage/file_proxy.h"

#include "host/logger.h"
#include "host/md5.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

// Header field offsets.
constexpr std::size_t kMagicAt = 0;
constexpr std::size_t kVersionAt = 4;
constexpr std::size_t kBlockSizeAt = 8;
constexpr std::size_t kTablesAt = 12;
constexpr std::size_t kHeadBlockAt = 16;
constexpr std::size_t kTailBlockAt = 20;
constexpr std::size_t kHeadOffsetAt = 24;
constexpr std::size_t kTailFillAt = 28;
constexpr std::size_t kSizeLimitAt = 36;

constexpr uint64_t kMaxU32 = std::numeric_limits<uint32_t>::max();

uint32_t Get32(const unsigned char* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void Put32(unsigned char* p, uint32_t value) {
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
    p[2] = static_cast<unsigned char>(value >> 16);
    p[3] = static_cast<unsigned char>(value >> 24);
}

bool IsPowerOfTwo(uint64_t value) { return value != 0 && (value & (value - 1)) == 0; }

bool AllZero(const unsigned char* begin, const unsigned char* end) {
    return std::all_of(begin, end, [](unsigned char b) { return b == 0; });
}

// A block size below 4 gives a map without entries; more than 255 tables don't fit the
// header's byte.
bool UsableLayout(uint64_t blockSize, uint64_t tables) {
    return IsPowerOfTwo(blockSize) && blockSize >= 4 && blockSize <= kMaxU32 && tables >= 1 && tables <= 255;
}

// The open file of a project file, with the project file held for the duration of a call.
struct OpenFile {
    std::shared_ptr<IProjectFile> holder;
    Tessel::CFile* file = nullptr;

    explicit OpenFile(const std::weak_ptr<IProjectFile>& weak) : holder(weak.lock()) {
        if (holder) file = holder->GetCFile();
    }
    explicit operator bool() const { return file != nullptr; }
    uint64_t Length() const {
        const int64_t length = file ? file->GetLength() : -1;
        return length > 0 ? static_cast<uint64_t>(length) : 0;
    }
};

uint64_t TotalBytes(const iovec* pieces, std::size_t count) {
    uint64_t total = 0;
    for (std::size_t i = 0; i < count; ++i) total += pieces[i].iov_len;
    return total;
}

int PieceCount(std::size_t count) { return static_cast<int>(std::min<std::size_t>(count, INT_MAX)); }

// Walks a list of pieces and hands out their next bytes as pieces of their own, so that
// a transfer can be cut where the file's blocks end.
class PieceCursor {
public:
    PieceCursor(const iovec* pieces, std::size_t count) : pieces_(pieces), count_(count) {}

    void Take(uint64_t bytes, std::vector<iovec>& out) {
        while (bytes > 0 && index_ < count_) {
            const iovec& piece = pieces_[index_];
            const uint64_t n = std::min<uint64_t>(piece.iov_len - within_, bytes);
            if (n > 0) out.push_back({static_cast<char*>(piece.iov_base) + within_, n});
            bytes -= n;
            within_ += n;
            if (within_ == piece.iov_len) {
                ++index_;
                within_ = 0;
            }
        }
    }

private:
    const iovec* pieces_;
    std::size_t count_;
    std::size_t index_ = 0;
    uint64_t within_ = 0;
};

}  // namespace

// ---------------------------------------------------------------------------------------
// Vectored transfers, by default one call per piece

int64_t FileProxyBase::ReadV(uint64_t offset, const iovec* pieces, std::size_t count) {
    uint64_t done = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int64_t got = Read(offset + done, pieces[i].iov_base, pieces[i].iov_len);
        if (got < 0) return done > 0 ? static_cast<int64_t>(done) : got;
        done += static_cast<uint64_t>(got);
        if (static_cast<uint64_t>(got) < pieces[i].iov_len) break;
    }
    return static_cast<int64_t>(done);
}

int64_t FileProxyBase::WriteV(uint64_t offset, const iovec* pieces, std::size_t count) {
    uint64_t done = 0;
    for (std::size_t i = 0; i < count; ++i) {
        // Appending pieces follow each other at the end.
        const uint64_t at = offset >= 0xFFFFFFFFFFFFFFFEull ? offset : offset + done;
        const int64_t put = Write(at, pieces[i].iov_base, pieces[i].iov_len);
        if (put < 0) return done > 0 ? static_cast<int64_t>(done) : put;
        done += static_cast<uint64_t>(put);
        if (static_cast<uint64_t>(put) < pieces[i].iov_len) break;
    }
    return static_cast<int64_t>(done);
}

// ---------------------------------------------------------------------------------------
// Header

FileHeader FileHeader::Decode(const unsigned char* image) {
    FileHeader h;
    h.magic = Get32(image + kMagicAt);
    h.version = Get32(image + kVersionAt);
    h.blockSize = Get32(image + kBlockSizeAt);
    h.tables = image[kTablesAt];
    h.headBlock = Get32(image + kHeadBlockAt);
    h.tailBlock = Get32(image + kTailBlockAt);
    h.headOffset = Get32(image + kHeadOffsetAt);
    h.tailFill = Get32(image + kTailFillAt);
    h.sizeLimit = Get32(image + kSizeLimitAt);
    std::memcpy(h.digest.data(), image + kDigestOffset, h.digest.size());
    return h;
}

bool DigestMatches(const unsigned char* image) {
    unsigned char digest[16];
    Vellum::MD5::GetBinaryMD5(image, FileHeader::kDigestOffset, digest);
    return std::memcmp(digest, image + FileHeader::kDigestOffset, sizeof digest) == 0;
}

std::optional<std::string> CheckHeader(const unsigned char* image, uint64_t fileLength) {
    const FileHeader h = FileHeader::Decode(image);
    if (h.magic != FileHeader::kMagic) return "bad magic";
    if (!AllZero(image + 13, image + 16)) return "reserved bytes 13..15 not zero";
    if (!AllZero(image + 40, image + FileHeader::kDigestOffset)) return "reserved bytes 40..111 not zero";
    if (!IsPowerOfTwo(h.blockSize)) return "block size not a power of two";
    if (h.blockSize < 4) return "block size below 4";
    if (h.tables == 0) return "no map tables";
    if (FileHeader::kSize + uint64_t{h.tables} * h.blockSize > fileLength) return "block map beyond the end of the file";
    const uint64_t maxBlocks = uint64_t{h.blockSize / 4} * h.tables;
    if (h.headBlock >= maxBlocks || h.tailBlock >= maxBlocks) return "head or tail block beyond the map";
    if (h.headOffset >= h.blockSize || h.tailFill > h.blockSize) return "head offset or tail fill beyond the block";
    if (!DigestMatches(image)) return "digest mismatch";
    if (h.version != 1) return "version is not 1";
    return std::nullopt;
}

// ---------------------------------------------------------------------------------------
// ProxyV0

bool ProxyV0::Init(std::weak_ptr<IProjectFile> file, uint32_t, uint32_t) {
    file_ = std::move(file);
    return true;
}

void ProxyV0::Clear() {
    if (OpenFile f{file_}) f.file->SetLength(0);
}

void ProxyV0::Flush() {
    if (OpenFile f{file_}) f.file->Flush();
}

int64_t ProxyV0::Read(uint64_t offset, void* buffer, uint64_t bytes) {
    OpenFile f{file_};
    if (!f) return -2;
    if (offset >= f.Length()) return 0;
    if (f.file->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin) < 0) return -1;
    return f.file->Read(buffer, bytes);
}

int64_t ProxyV0::Write(uint64_t offset, const void* buffer, uint64_t bytes) {
    OpenFile f{file_};
    if (!f) return -2;
    // An offset above the signed range makes Seek fail, as a position below zero does.
    const int64_t at = offset == ~uint64_t{0} ? f.file->Seek(0, Tessel::CFile::SeekEnd)
                                               : f.file->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin);
    if (at < 0) return -1;
    return f.file->Write(buffer, bytes);
}

int64_t ProxyV0::ReadV(uint64_t offset, const iovec* pieces, std::size_t count) {
    OpenFile f{file_};
    if (!f) return -2;
    if (offset >= f.Length()) return 0;
    return f.file->ReadAt(pieces, PieceCount(count), offset);
}

int64_t ProxyV0::WriteV(uint64_t offset, const iovec* pieces, std::size_t count) {
    if (offset == ~uint64_t{0}) return FileProxyBase::WriteV(offset, pieces, count);
    OpenFile f{file_};
    if (!f) return -2;
    if (offset > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return -1;  // as a failed seek
    return f.file->WriteAt(pieces, PieceCount(count), offset);
}

uint64_t ProxyV0::Size() { return OpenFile{file_}.Length(); }

// ---------------------------------------------------------------------------------------
// ProxyV1

uint32_t ProxyV1::Field(std::size_t offset) const { return Get32(header_.data() + offset); }

void ProxyV1::SetField(std::size_t offset, uint32_t value) { Put32(header_.data() + offset, value); }

uint32_t ProxyV1::BlockSize() const { return Field(kBlockSizeAt); }

bool ProxyV1::SetLayout() {
    const uint64_t blockSize = BlockSize();
    const uint64_t tables = header_[kTablesAt];
    if (!UsableLayout(blockSize, tables)) return false;
    table_offset_ = kTableOffset;
    data_offset_ = tables * blockSize + kTableOffset;
    entries_per_table_ = blockSize / 4;
    max_blocks_ = entries_per_table_ * tables;
    return true;
}

bool ProxyV1::Init(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables) {
    file_ = std::move(file);
    usable_ = false;
    tables_.clear();
    header_.fill(0);
    // A file that is gone here leaves the proxy inert instead of ending the process.
    OpenFile f{file_};
    if (!f) return false;
    const uint64_t length = f.Length();
    if (length < FileHeader::kSize + 1) {
        if (!UsableLayout(blockSize, tables)) return false;
        SetField(kMagicAt, FileHeader::kMagic);
        SetField(kVersionAt, 1);
        SetField(kBlockSizeAt, blockSize);
        header_[kTablesAt] = static_cast<unsigned char>(tables);
    } else {
        if (f.file->Seek(0, Tessel::CFile::SeekBegin) != 0 ||
            f.file->Read(header_.data(), header_.size()) != static_cast<int64_t>(header_.size()))
            return false;
        // MakeProxy has checked the header; the map must still fit the file, as it is
        // read into memory whole.
        if (FileHeader::kSize + uint64_t{header_[kTablesAt]} * BlockSize() > length) return false;
    }
    if (!SetLayout()) return false;
    usable_ = true;
    LoadTables(false);
    return true;
}

void ProxyV1::LoadTables(bool force) {
    OpenFile f{file_};
    const bool empty = f.Length() == 0;
    const uint64_t blockSize = BlockSize();
    const uint32_t count = header_[kTablesAt];
    tables_.clear();
    for (uint32_t i = 0; i < count; ++i) {
        Table table;
        table.buffer.assign(blockSize, 0xFF);
        table.bytes = blockSize;
        if (!empty && !force && f &&
            f.file->Seek(static_cast<int64_t>(table_offset_ + i * blockSize), Tessel::CFile::SeekBegin) >= 0)
            f.file->Read(table.buffer.data(), blockSize);  // a short map keeps 0xFF (no storage)
        tables_.emplace(i, std::move(table));
    }
    if (empty || force) WriteHeader();
}

void ProxyV1::WriteHeader() {
    OpenFile f{file_};
    if (!f) return;
    Vellum::MD5::GetBinaryMD5(header_.data(), FileHeader::kDigestOffset, header_.data() + FileHeader::kDigestOffset);
    // The map first, the header last: a process that dies in between leaves the old
    // header, whose blocks the map still holds, and never a header whose new blocks the
    // map on disk lacks (they would read as zeros).
    if (f.file->Seek(static_cast<int64_t>(kTableOffset), Tessel::CFile::SeekBegin) < 0) return;
    for (auto& [number, table] : tables_) {
        f.file->Write(table.buffer.data(), table.bytes);
        table.dirty = false;
    }
    if (f.file->Seek(0, Tessel::CFile::SeekBegin) != 0) return;
    f.file->Write(header_.data(), header_.size());
}

std::optional<ProxyV1::Place> ProxyV1::Locate(uint64_t pos) {
    const uint64_t blockSize = BlockSize();
    const uint64_t headOffset = Field(kHeadOffsetAt);
    // Positions the map can't address are an error for the caller, whether they lie past
    // the map's block count or in a table beyond the map; the process goes on. Logical
    // numbers never wrap, so a file holds at most max_blocks_ logical blocks in its life.
    if (pos > std::numeric_limits<uint64_t>::max() - headOffset)
        throw std::out_of_range("ProxyV1: position beyond the block map");
    const uint64_t v = headOffset + pos;
    const uint64_t r = v / blockSize;
    const uint64_t within = v % blockSize;
    if (r >= max_blocks_) throw std::out_of_range("ProxyV1: position beyond the block map");
    const uint64_t logical = Field(kHeadBlockAt) + r;
    if (logical > kMaxU32) throw std::out_of_range("ProxyV1: logical block beyond the header's range");
    Table& table = tables_.at(static_cast<uint32_t>(logical / entries_per_table_));
    unsigned char* entry = table.buffer.data() + (logical % entries_per_table_) * 4;

    int64_t physical = static_cast<int32_t>(Get32(entry));
    if (physical < 0) {
        // A new physical block, always at the end of the file.
        OpenFile f{file_};
        if (!f) return std::nullopt;
        const uint64_t length = f.Length();
        if (length < data_offset_) return std::nullopt;  // the map area itself is cut short
        const uint64_t p = (length - data_offset_ + 1) / blockSize;
        if (p > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) return std::nullopt;
        if (!f.file->SetLength(length + blockSize)) return std::nullopt;
        physical = static_cast<int64_t>(p);
        Put32(entry, static_cast<uint32_t>(p));
        table.dirty = true;
    }
    return Place{logical, static_cast<uint64_t>(physical) * blockSize + data_offset_ + within, blockSize - within};
}

int64_t ProxyV1::Read(uint64_t offset, void* buffer, uint64_t bytes) {
    if (!usable_) return 0;
    OpenFile f{file_};
    if (!f) return 0;
    const uint64_t size = Size();
    // Past the end nothing is read (the cut would otherwise wrap around).
    if (offset > size) bytes = 0;
    else if (bytes > size - offset) bytes = size - offset;
    std::optional<Place> place = Locate(offset);  // in any case: reaching a block allocates it
    auto* out = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    while (place && done < bytes) {
        const uint64_t n = std::min(place->left, bytes - done);
        if (f.file->Seek(static_cast<int64_t>(place->fileOffset), Tessel::CFile::SeekBegin) < 0) break;
        const int64_t got = f.file->Read(out + done, n);
        if (got <= 0) break;  // a map entry beyond the end of the file
        done += static_cast<uint64_t>(got);
        if (static_cast<uint64_t>(got) < n || done == bytes) break;
        place = Locate(offset + done);
    }
    return static_cast<int64_t>(done);
}

int64_t ProxyV1::Write(uint64_t offset, const void* buffer, uint64_t bytes) {
    if (!usable_) return 0;
    if (offset >= 0xFFFFFFFFFFFFFFFEull) offset = Size();
    OpenFile f{file_};
    if (!f) return 0;
    bytes = std::min(bytes, std::numeric_limits<uint64_t>::max() - offset);
    const uint64_t blockSize = BlockSize();
    std::optional<Place> place = Locate(offset);
    const auto* in = static_cast<const unsigned char*>(buffer);
    uint64_t done = 0;
    while (place && done < bytes) {
        const uint64_t n = std::min(place->left, bytes - done);
        if (f.file->Seek(static_cast<int64_t>(place->fileOffset), Tessel::CFile::SeekBegin) < 0) break;
        const int64_t put = f.file->Write(in + done, n);
        if (put <= 0) break;
        done += static_cast<uint64_t>(put);
        // The last write defines the end, wherever it lands.
        SetField(kTailBlockAt, static_cast<uint32_t>(place->block));
        SetField(kTailFillAt, static_cast<uint32_t>(blockSize - place->left + static_cast<uint64_t>(put)));
        if (static_cast<uint64_t>(put) < n) break;
        // The next position is located after the last piece too, so a write that ends on
        // a block boundary has the next block allocated. At the end of the map that is no
        // error for a write that is complete.
        try {
            place = Locate(offset + done);
        } catch (const std::out_of_range&) {
            if (done == bytes) break;
            throw;
        }
    }
    return static_cast<int64_t>(done);
}

int64_t ProxyV1::ReadV(uint64_t offset, const iovec* pieces, std::size_t count) {
    if (!usable_) return 0;
    OpenFile f{file_};
    if (!f) return 0;
    const uint64_t size = Size();
    uint64_t bytes = TotalBytes(pieces, count);
    if (offset > size) bytes = 0;
    else if (bytes > size - offset) bytes = size - offset;
    std::optional<Place> place = Locate(offset);  // in any case: reaching a block allocates it
    PieceCursor cursor(pieces, count);
    std::vector<iovec> stretch;
    uint64_t stretchAt = 0, stretchBytes = 0, done = 0, planned = 0;
    // Reads the stretch gathered so far; false when it came back short.
    auto transfer = [&]() {
        if (stretchBytes == 0) return true;
        const int64_t got = f.file->ReadAt(stretch.data(), static_cast<int>(stretch.size()), stretchAt);
        done += got > 0 ? static_cast<uint64_t>(got) : 0;
        const bool whole = got == static_cast<int64_t>(stretchBytes);
        stretch.clear();
        stretchBytes = 0;
        return whole;
    };
    while (place && planned < bytes) {
        if (stretchBytes > 0 && place->fileOffset != stretchAt + stretchBytes && !transfer())
            return static_cast<int64_t>(done);
        if (stretchBytes == 0) stretchAt = place->fileOffset;
        const uint64_t n = std::min(place->left, bytes - planned);
        cursor.Take(n, stretch);
        stretchBytes += n;
        planned += n;
        if (planned == bytes) break;
        place = Locate(offset + planned);
    }
    transfer();
    return static_cast<int64_t>(done);
}

int64_t ProxyV1::WriteV(uint64_t offset, const iovec* pieces, std::size_t count) {
    if (!usable_) return 0;
    if (offset >= 0xFFFFFFFFFFFFFFFEull) offset = Size();
    OpenFile f{file_};
    if (!f) return 0;
    const uint64_t bytes = std::min(TotalBytes(pieces, count), std::numeric_limits<uint64_t>::max() - offset);
    const uint64_t blockSize = BlockSize();
    struct Span {
        uint64_t block, left, bytes;
    };
    PieceCursor cursor(pieces, count);
    std::vector<iovec> stretch;
    std::vector<Span> spans;
    uint64_t stretchAt = 0, stretchBytes = 0, done = 0, planned = 0;
    // Writes the stretch gathered so far; false when it fell short. The tail fields end
    // as the piecewise writes would leave them: at the place of the last byte written.
    auto transfer = [&]() {
        if (stretchBytes == 0) return true;
        const int64_t put = f.file->WriteAt(stretch.data(), static_cast<int>(stretch.size()), stretchAt);
        uint64_t left = put > 0 ? static_cast<uint64_t>(put) : 0;
        done += left;
        for (const Span& span : spans) {
            if (left == 0) break;
            const uint64_t n = std::min(left, span.bytes);
            SetField(kTailBlockAt, static_cast<uint32_t>(span.block));
            SetField(kTailFillAt, static_cast<uint32_t>(blockSize - span.left + n));
            left -= n;
        }
        const bool whole = put == static_cast<int64_t>(stretchBytes);
        stretch.clear();
        spans.clear();
        stretchBytes = 0;
        return whole;
    };
    std::optional<Place> place = Locate(offset);
    while (place && planned < bytes) {
        if (stretchBytes > 0 && place->fileOffset != stretchAt + stretchBytes && !transfer())
            return static_cast<int64_t>(done);
        if (stretchBytes == 0) stretchAt = place->fileOffset;
        const uint64_t n = std::min(place->left, bytes - planned);
        cursor.Take(n, stretch);
        spans.push_back({place->block, place->left, n});
        stretchBytes += n;
        planned += n;
        // The next position is located after the last piece too, as Write does.
        try {
            place = Locate(offset + planned);
        } catch (const std::out_of_range&) {
            if (planned == bytes) break;
            transfer();
            throw;
        }
    }
    transfer();
    return static_cast<int64_t>(done);
}

uint64_t ProxyV1::Size() {
    if (!usable_) return 0;
    // Modulo 2^64, so a head just past the tail (everything trimmed after a write that
    // filled its block) gives 0.
    const uint64_t blocks = uint64_t{Field(kTailBlockAt)} - uint64_t{Field(kHeadBlockAt)};
    return blocks * BlockSize() - Field(kHeadOffsetAt) + Field(kTailFillAt);
}

bool ProxyV1::Trim(uint64_t bytes) {
    if (!usable_) return false;
    const uint64_t blockSize = BlockSize();
    const uint64_t oldHead = Field(kHeadBlockAt);
    const uint64_t start = blockSize * oldHead + Field(kHeadOffsetAt);
    // The overflow tests only matter for a header whose tail lies before its head.
    if (bytes > Size() || bytes > std::numeric_limits<uint64_t>::max() - start ||
        (start + bytes) / blockSize > kMaxU32) {
        Clear();
        return true;
    }
    const uint64_t w = start + bytes;
    const uint64_t newHead = w / blockSize;
    // The trimmed blocks lose their storage; the physical blocks are not reused.
    for (uint64_t logical = oldHead; logical < std::min(newHead, max_blocks_); ++logical) {
        Table& table = tables_.at(static_cast<uint32_t>(logical / entries_per_table_));
        Put32(table.buffer.data() + (logical % entries_per_table_) * 4, 0xFFFFFFFFu);
        table.dirty = true;
    }
    SetField(kHeadOffsetAt, static_cast<uint32_t>(w % blockSize));
    SetField(kHeadBlockAt, static_cast<uint32_t>(newHead));
    return true;
}

void ProxyV1::Clear() {
    if (!usable_) return;
    SetField(kHeadBlockAt, 0);
    SetField(kTailBlockAt, 0);
    SetField(kHeadOffsetAt, 0);
    SetField(kTailFillAt, 0);
    if (OpenFile f{file_}) f.file->SetLength(data_offset_);
    LoadTables(true);
}

void ProxyV1::Flush() {
    if (usable_) WriteHeader();
}

uint64_t ProxyV1::SetSizeLimit(uint64_t bytes) {
    const uint32_t blockSize = BlockSize();
    double blocks = blockSize == 0 ? 0.0 : std::ceil(static_cast<double>(bytes) / blockSize);
    if (blocks >= static_cast<double>(max_blocks_) - 2.0 || blocks > static_cast<double>(kMaxU32)) {
        CLogger::DefaultLogger().Warning("ProxyV1::SetSizeLimit: Invalid argument bytes: {}, out of range!", bytes);
        blocks = 0.0;
    }
    const auto limit = static_cast<uint32_t>(blocks);
    SetField(kSizeLimitAt, limit);
    return limit;
}

void ProxyV1::Reformat(uint32_t blockSize, uint8_t tables) {
    if (!usable_ || !UsableLayout(blockSize, tables)) return;
    SetField(kBlockSizeAt, blockSize);
    header_[kTablesAt] = tables;
    SetField(kVersionAt, 1);
    tables_.clear();
    SetLayout();
    LoadTables(false);
}

int32_t ProxyV1::Entry(uint64_t logicalBlock) const {
    if (logicalBlock >= max_blocks_) return -1;
    const auto it = tables_.find(static_cast<uint32_t>(logicalBlock / entries_per_table_));
    if (it == tables_.end()) return -1;
    return static_cast<int32_t>(Get32(it->second.buffer.data() + (logicalBlock % entries_per_table_) * 4));
}

// ---------------------------------------------------------------------------------------

std::shared_ptr<FileProxyBase> MakeProxy(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables,
                                         int version) {
    std::shared_ptr<FileProxyBase> proxy;
    {
        OpenFile f{file};
        const uint64_t length = f.Length();
        if (length == 0) {
            if (version != 0) proxy = std::make_shared<ProxyV1>();
            else proxy = std::make_shared<ProxyV0>();
        } else {
            // Anything that is not a valid header is raw data, without a message.
            std::array<unsigned char, FileHeader::kSize> image{};
            const bool whole = f.file->Seek(0, Tessel::CFile::SeekBegin) == 0 &&
                               f.file->Read(image.data(), image.size()) == static_cast<int64_t>(image.size());
            if (whole && !CheckHeader(image.data(), length)) proxy = std::make_shared<ProxyV1>();
            else proxy = std::make_shared<ProxyV0>();
        }
    }
    proxy->Init(std::move(file), blockSize, tables);
    return proxy;
}
