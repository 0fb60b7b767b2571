#pragma once
// The storage-side interfaces of the host framework: IVellumStorage, the root of every
// storage; IDeviceChannel, the byte-addressed backing of a storage; IFileCache, a
// channel that is a file of the project.
//
// Offsets and sizes of channels are in bytes. A channel reports failures by short
// counts; it may also throw a standard exception from Read (a file whose block map
// can't address an offset), which its callers catch.

#include <cstdint>
#include <string>

class IVellumStorage {
public:
    virtual ~IVellumStorage() = default;
};

class IDeviceChannel {
public:
    // Values of Type().
    enum : int { kManagedFile = 0, kMemory = 2, kExternalFile = 3 };
    // Bits of Features().
    enum : uint64_t {
        kFeatureCopyable = 1,     // Persist may copy the content away
        kFeatureAddressable = 4,  // plain memory: a storage need not cache it
    };
    // Write at this offset appends at the end.
    static constexpr uint64_t kAppend = ~uint64_t{0};

    virtual ~IDeviceChannel() = default;
    virtual int Type() const = 0;
    // Bytes read into buffer, 0 at or past the end, negative on failure.
    virtual int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) = 0;
    virtual uint64_t Size() = 0;
    // Bytes written, negative on failure; offset kAppend writes at the end.
    virtual int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) = 0;
    // Whether a storage may sync into the channel. Default: yes.
    virtual bool Writable() { return true; }
    // Default: no features.
    virtual uint64_t Features() { return 0; }
    virtual std::string Description() = 0;
};

class IFileCache : public IDeviceChannel {
public:
    virtual std::string GetId() = 0;
    // Empties the file.
    virtual void Clear() = 0;
    // true: the file outlives the project's temporary files.
    virtual void SetKeep(bool keep) = 0;
    // 0 while content is being copied in, 1 when it is complete.
    virtual void SetFileReady(uint64_t ready) = 0;
    // The project file still exists, or it hasn't been created yet.
    virtual bool IsValid() = 0;
    // Brings the file to a consistent state on disk.
    virtual void Flush() = 0;
    // Drops bytes from the head.
    virtual bool Trim(uint64_t bytes) = 0;
    virtual void SetSizeLimit(uint64_t bytes) = 0;
};
