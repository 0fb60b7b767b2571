#pragma once
// StreamChannel: a device channel on a file that someone else opened and owns, such as
// a stream of an export package. The file must be open for reading and writing; a
// storage bound to the channel syncs its blocks into it.
//
// Type 3 (an external file) with the copyable feature, writable. Reads and writes
// share the file's one position, so each transfer seeks under the channel's mutex.
// A closed file reads as empty and takes no writes.

#include "host/file.h"
#include "host/storage_interfaces.h"

#include <memory>
#include <mutex>
#include <string>

class StreamChannel final : public IDeviceChannel {
public:
    StreamChannel(std::shared_ptr<Tessel::CFile> file, std::string name);

    int Type() const override { return kExternalFile; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Size() override;
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override;
    uint64_t Features() override { return kFeatureCopyable; }
    std::string Description() override;

private:
    std::mutex mutex_;
    std::shared_ptr<Tessel::CFile> file_;
    const std::string name_;
};
