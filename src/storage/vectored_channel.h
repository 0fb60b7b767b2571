#pragma once
// IVectoredChannel: what a device channel offers besides IDeviceChannel when it can move
// a run of separate buffers at one offset in one call (a cache file does it with one
// preadv / pwritev). The block storage asks a channel for it with dynamic_cast and, where
// it is missing, moves its blocks one call each as before.
//
// The pieces lie back to back in the channel from offset. The result is the bytes moved:
// a short count means that everything before it is complete and nothing after it is
// known to be; negative on failure. A channel may throw what its Read and Write throw.

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

class IVectoredChannel {
public:
    virtual ~IVectoredChannel() = default;
    virtual int64_t ReadV(const iovec* pieces, std::size_t count, uint64_t offset) = 0;
    virtual int64_t WriteV(const iovec* pieces, std::size_t count, uint64_t offset) = 0;
};
