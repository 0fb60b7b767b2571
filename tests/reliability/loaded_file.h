#pragma once
// A cache file of a loaded project whose bytes a test sets at will, opened as the store
// opens such a file after a restart: LoadLocalFileCache and a storage bound to it.
//
// Setting the bytes writes only what differs from the last setting, so that a test can
// open thousands of variants of a file of megabytes. A read of a version 1 file may grow
// the file (reaching an unallocated block allocates it); the next setting cuts it back.

#include "storage/block_storage.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace reliability {

using Bytes = std::vector<unsigned char>;

class LoadedFile {
public:
    // The file "__old__/<name>" of the process's project folder.
    explicit LoadedFile(std::string name);
    ~LoadedFile();
    LoadedFile(const LoadedFile&) = delete;
    LoadedFile& operator=(const LoadedFile&) = delete;

    // The file holds bytes, with the first head.size() of them replaced by head.
    void Set(const Bytes& bytes, const Bytes& head = {});
    uint64_t Length() const;
    const std::string& Name() const { return name_; }

    struct Opened {
        std::shared_ptr<IDeviceChannel> channel;
        int version = -1;  // of the format the file was recognised as
        std::unique_ptr<CStorage> storage;
    };
    // Opens the file as the store does; the storage has units of unit_size bytes.
    Opened Open(uint32_t unit_size);
    // Lets go of what Open made, and of the project's hold on the file.
    void Close(Opened& opened);

private:
    std::string name_;
    std::string path_;
    int fd_ = -1;
    Bytes on_disk_;
};

// Reads units [0, count) of a storage; fewer when the storage delivers fewer.
std::vector<uint32_t> ReadUnits(CStorage& storage, uint64_t count);

}  // namespace reliability
