#pragma once
// The deterministic content of the reliability tests: unit `position` of stream `stream`
// holds bytes that depend on both alone, so that any unit read back can be checked
// without knowing how it was appended, and a unit of the wrong place or the wrong stream
// shows.

#include <cstddef>
#include <cstdint>

namespace reliability {

inline uint64_t PatternWord(uint64_t stream, uint64_t position) {
    // splitmix64 of the pair.
    uint64_t z = position * 0x9E3779B97F4A7C15ull + stream * 0xD1B54A32D192ED03ull + 0x632BE59BD9B4E019ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

inline unsigned char PatternByte(uint64_t word, std::size_t byte) {
    return static_cast<unsigned char>((word >> (8 * (byte % 8))) + byte / 8);
}

// Writes units [first, first + count) of a stream, of unit_size bytes each, to out.
inline void FillPattern(uint64_t stream, uint64_t first, uint64_t count, std::size_t unit_size, void* out) {
    auto* bytes = static_cast<unsigned char*>(out);
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t word = PatternWord(stream, first + i);
        for (std::size_t b = 0; b < unit_size; ++b) bytes[i * unit_size + b] = PatternByte(word, b);
    }
}

// The index (from 0) of the first of count units at data that isn't the stream's unit
// first + index; count when all are right.
inline uint64_t FirstWrongUnit(uint64_t stream, uint64_t first, uint64_t count, std::size_t unit_size,
                               const void* data) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t word = PatternWord(stream, first + i);
        for (std::size_t b = 0; b < unit_size; ++b)
            if (bytes[i * unit_size + b] != PatternByte(word, b)) return i;
    }
    return count;
}

}  // namespace reliability
