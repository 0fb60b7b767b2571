#pragma once
// The device channels of the module: the byte-addressed backings of storages.
//
// - ManagedFileCache: a cache file of the project in format version 0 or 1 (file_proxy.h).
//   Created at once, or lazily at its first Write when lazy creation is on; loaded files
//   of an earlier project are read-only for the periodic sync.
// - ExternalFileCache: any file, opened for reading only.
// - MemoryCache: memory of the caller, which must outlive the channel.
//
// Channels report failures by short counts and 0. A version 1 file can also throw
// std::out_of_range from Read and Write for an offset its block map can't address.

#include "host/storage_interfaces.h"
#include "storage/vectored_channel.h"

#include <cstdint>
#include <memory>
#include <string>

struct MFData;

class ManagedFileCache final : public IFileCache, public IVectoredChannel {
public:
    explicit ManagedFileCache(std::unique_ptr<MFData> data);
    ~ManagedFileCache() override;
    ManagedFileCache(const ManagedFileCache&) = delete;
    ManagedFileCache& operator=(const ManagedFileCache&) = delete;

    int Type() const override { return kManagedFile; }
    // 0 while the file is not created yet.
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Size() override;
    // Creates the file first if that is still pending.
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override;
    // As Read and Write, with one preadv / pwritev per stretch of the file.
    int64_t ReadV(const iovec* pieces, std::size_t count, uint64_t offset) override;
    int64_t WriteV(const iovec* pieces, std::size_t count, uint64_t offset) override;
    // False for a loaded file (Write itself doesn't check).
    bool Writable() override;
    std::string Description() override;

    std::string GetId() override;
    void Clear() override;
    void SetKeep(bool keep) override;
    void SetFileReady(uint64_t ready) override;
    bool IsValid() override;
    void Flush() override;
    bool Trim(uint64_t bytes) override;
    void SetSizeLimit(uint64_t bytes) override;

private:
    std::unique_ptr<MFData> d_;
};

class ExternalFileCache final : public IDeviceChannel {
public:
    // mode: bit 0 read, bit 1 write (Tessel::CFile modes).
    ExternalFileCache(const std::string& path, uint32_t mode);
    ~ExternalFileCache() override;
    ExternalFileCache(const ExternalFileCache&) = delete;
    ExternalFileCache& operator=(const ExternalFileCache&) = delete;

    int Type() const override { return kExternalFile; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Size() override;
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Features() override { return kFeatureCopyable; }
    std::string Description() override;

private:
    struct Data;
    std::unique_ptr<Data> d_;
};

class MemoryCache final : public IDeviceChannel {
public:
    MemoryCache(const void* base, uint64_t length);
    ~MemoryCache() override;
    MemoryCache(const MemoryCache&) = delete;
    MemoryCache& operator=(const MemoryCache&) = delete;

    int Type() const override { return kMemory; }
    // Copies what lies within the memory; 0 at or past its end and with a null base.
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override;
    // 0 with a null base.
    uint64_t Size() override;
    // The memory is the caller's: always 0.
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Features() override { return kFeatureAddressable; }
    std::string Description() override;

    // The memory itself, for reading without a copy; either pointer may be null.
    void GetRange(const void** base, uint64_t* length) const;

private:
    struct Data;
    std::unique_ptr<Data> d_;
};

std::shared_ptr<IDeviceChannel> CreateMemCache(const void* base, uint64_t length);
// A new managed file of the project: format version 0 for 0, version 1 otherwise.
std::shared_ptr<IDeviceChannel> CreateLocalFileCache(int version);
// path is opened for reading only.
std::shared_ptr<IDeviceChannel> CreateExternFileCache(const std::string& path);
// A file of the loaded project, under "./__old__/" of the project folder; read-only for
// the sync. Its format is what the file holds.
std::shared_ptr<IDeviceChannel> LoadLocalFileCache(const std::string& path);
// Lazy creation of new managed files (default off). value is kept (default 2) and not
// used otherwise.
void EnableLazyFileCreate(bool enable, unsigned int value);
