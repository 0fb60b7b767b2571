#pragma once
// The managed cache file formats behind one interface, FileProxyBase.
//
// Format version 0 (ProxyV0) is the raw bytes of the channel. Format version 1 (ProxyV1)
// starts with a 128-byte header and a block map, so that the data is a sequence of logical
// blocks anywhere in the file, a head can be cut off without moving data, and a reopened
// file keeps its extent. All integers in the file are little endian.
//
//   offset 0                         header (layout below)
//   offset 128                       `tables` block map tables of `block size` bytes each,
//                                    signed 32-bit entries: -1 = no storage, p = physical
//                                    block p
//   offset 128 + tables * block size physical blocks of `block size` bytes
//
// A proxy has no lock of its own: its owner (ManagedFileCache) serialises every call,
// because seek and transfer share one file position.
//
// Choices beyond the format itself:
// - A header counts as version 1 only if its layout is usable: besides magic, reserved
//   bytes, ranges and digest, the block size is at least 4 (a smaller power of two gives
//   a map without entries) and the block map lies within the file (it is read into
//   memory whole). The tail fill may equal the block size, as every write that ends on a
//   block boundary leaves it. A version field other than 1 opens as raw data.
// - A logical block beyond the map throws std::out_of_range, from reads and writes alike.
// - Flush writes the map, makes data and map durable, then writes the header and makes
//   it durable; a map that fails to go keeps the old header. Clear makes the empty header
//   durable before it cuts the data. So the header on disk never describes blocks that
//   the disk lacks, whenever the power goes.
// - A version 1 proxy that can't be set up (its file is gone when it is made, or the
//   layout asked for is unusable) stays inert: reads, writes and Trim do nothing and
//   Size is 0. Init reports this with false.

#include "host/project_file_manager.h"

#include <sys/uio.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class FileProxyBase {
public:
    virtual ~FileProxyBase() = default;
    // Binds the proxy to its file; false if the proxy can't work with it.
    virtual bool Init(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables) = 0;
    virtual void Clear() = 0;
    virtual void Flush() = 0;
    // Bytes read, 0 at or past the end, negative on failure.
    virtual int64_t Read(uint64_t offset, void* buffer, uint64_t bytes) = 0;
    // Bytes written, negative on failure.
    virtual int64_t Write(uint64_t offset, const void* buffer, uint64_t bytes) = 0;
    // The same for pieces that lie back to back from offset, with the result of one Read
    // or Write of their bytes. By default one Read or Write per piece, up to a short one.
    virtual int64_t ReadV(uint64_t offset, const iovec* pieces, std::size_t count);
    virtual int64_t WriteV(uint64_t offset, const iovec* pieces, std::size_t count);
    virtual uint64_t Size() = 0;
    // Drops bytes from the head.
    virtual bool Trim(uint64_t bytes) = 0;
    virtual int Version() const = 0;
    // Returns the limit stored, in blocks.
    virtual uint64_t SetSizeLimit(uint64_t bytes) = 0;
    virtual void Reformat(uint32_t blockSize, uint8_t tables) = 0;
};

// The version 1 header, decoded. Field offsets in the 128-byte image:
// 0 magic, 4 version, 8 block size, 12 tables (u8), 13..15 reserved, 16 head block,
// 20 tail block, 24 head offset, 28 tail fill, 32 reserved, 36 size limit (blocks),
// 40..111 reserved, 112..127 MD5 of bytes 0..111.
struct FileHeader {
    static constexpr std::size_t kSize = 128;
    static constexpr std::size_t kDigestOffset = 112;
    static constexpr uint32_t kMagic = 0x00464D4B;  // "KMF\0"

    uint32_t magic = 0;
    uint32_t version = 0;
    uint32_t blockSize = 0;
    uint8_t tables = 0;
    uint32_t headBlock = 0;
    uint32_t tailBlock = 0;
    uint32_t headOffset = 0;
    uint32_t tailFill = 0;
    uint32_t sizeLimit = 0;
    std::array<unsigned char, 16> digest{};

    static FileHeader Decode(const unsigned char* image);
};

// Why a header image does not describe a usable version 1 layout; nullopt when it does.
// fileLength is the length of the file that holds it.
std::optional<std::string> CheckHeader(const unsigned char* image, uint64_t fileLength);
// Whether bytes 112..127 hold the MD5 of bytes 0..111.
bool DigestMatches(const unsigned char* image);

class ProxyV0 final : public FileProxyBase {
public:
    bool Init(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables) override;
    void Clear() override;
    void Flush() override;
    // -2 without file, -1 on a failed seek.
    int64_t Read(uint64_t offset, void* buffer, uint64_t bytes) override;
    // -2 without file, -1 on a failed seek; offset all ones appends.
    int64_t Write(uint64_t offset, const void* buffer, uint64_t bytes) override;
    // One preadv / pwritev.
    int64_t ReadV(uint64_t offset, const iovec* pieces, std::size_t count) override;
    int64_t WriteV(uint64_t offset, const iovec* pieces, std::size_t count) override;
    uint64_t Size() override;
    bool Trim(uint64_t) override { return false; }
    int Version() const override { return 0; }
    uint64_t SetSizeLimit(uint64_t) override { return 0; }
    void Reformat(uint32_t, uint8_t) override {}

private:
    std::weak_ptr<IProjectFile> file_;
};

class ProxyV1 final : public FileProxyBase {
public:
    static constexpr uint64_t kTableOffset = FileHeader::kSize;

    bool Init(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables) override;
    // Empties the file down to header and map.
    void Clear() override;
    // Writes header and map.
    void Flush() override;
    int64_t Read(uint64_t offset, void* buffer, uint64_t bytes) override;
    // An offset from 0xFFFFFFFFFFFFFFFE up appends at Size().
    int64_t Write(uint64_t offset, const void* buffer, uint64_t bytes) override;
    // One preadv / pwritev per stretch of physical blocks that lie back to back. Blocks
    // are allocated, and the tail fields set, as Read and Write of the same bytes would.
    int64_t ReadV(uint64_t offset, const iovec* pieces, std::size_t count) override;
    int64_t WriteV(uint64_t offset, const iovec* pieces, std::size_t count) override;
    uint64_t Size() override;
    bool Trim(uint64_t bytes) override;
    int Version() const override { return 1; }
    // Limit in blocks, rounded up; 0 (with a warning) if out of range.
    uint64_t SetSizeLimit(uint64_t bytes) override;
    // Takes a new layout and reloads the map from the file; an unusable layout is ignored.
    void Reformat(uint32_t blockSize, uint8_t tables) override;

    // Inspection.
    FileHeader Header() const { return FileHeader::Decode(header_.data()); }
    uint64_t DataOffset() const { return data_offset_; }
    uint64_t MaxBlocks() const { return max_blocks_; }
    // Map entry of a logical block: -1 for none or beyond the map.
    int32_t Entry(uint64_t logicalBlock) const;

private:
    struct Table {
        bool dirty = false;
        std::vector<unsigned char> buffer;
        uint64_t bytes = 0;
    };
    struct Place {
        uint64_t block;       // logical number
        uint64_t fileOffset;
        uint64_t left;        // bytes left in the block
    };

    uint32_t Field(std::size_t offset) const;
    void SetField(std::size_t offset, uint32_t value);
    uint32_t BlockSize() const;
    bool SetLayout();
    void LoadTables(bool force);
    // Map, then header, each made durable.
    void WriteHeader();
    // The header alone, with its digest, made durable.
    void WriteHeaderImage(Tessel::CFile& file);
    // Throws std::out_of_range beyond the map; nullopt if a new block can't be allocated.
    std::optional<Place> Locate(uint64_t pos);

    std::array<unsigned char, FileHeader::kSize> header_{};
    uint64_t table_offset_ = kTableOffset;
    uint64_t data_offset_ = kTableOffset;
    uint64_t entries_per_table_ = 0;
    uint64_t max_blocks_ = 0;
    std::weak_ptr<IProjectFile> file_;
    std::map<uint32_t, Table> tables_;
    bool usable_ = false;  // false: Init failed, the proxy is inert
};

// Chooses the format of `file` and binds a proxy to it. A non-empty file is version 1
// only if it starts with a valid header (see CheckHeader), whatever `version` says; an
// empty one (or a gone file) takes version 0 for 0 and version 1 otherwise, laid out
// with blockSize and tables. Never empty; see ProxyV1 for one that can't be set up.
std::shared_ptr<FileProxyBase> MakeProxy(std::weak_ptr<IProjectFile> file, uint32_t blockSize, uint32_t tables,
                                         int version);
