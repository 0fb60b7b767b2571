#pragma once
// The tagged binary table of a saved dataset record (its file table and axis table).
//
// Little endian, at most 16384 bytes: a u32 with the bytes in use (this field
// included, so an empty table holds 4), then entries without a count. An entry is a
// key and a value, each a tagged value: a u32 with the byte length in its low 16 bits
// and a type in its high 16 bits, then the bytes. Type 0x000A is text without a
// terminator, type 0x000C a fixed record. An entry that does not fit is left out
// silently; the length field always tells the bytes actually written.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr std::size_t kTaggedTableCapacity = 16384;
inline constexpr uint32_t kTaggedText = 0x000A;
inline constexpr uint32_t kTaggedRecord = 0x000C;

class TaggedTableWriter {
public:
    TaggedTableWriter();

    // A text key with a text value, when the free bytes are at least key + value + 8.
    // False when the entry was left out.
    bool AddText(const std::string& key, const std::string& value);
    // A text key with a fixed record of size bytes, when the free bytes are at least
    // key + size + 8.
    bool AddRecord(const std::string& key, const void* record, uint16_t size);

    std::size_t Used() const { return used_; }
    std::size_t Free() const { return buffer_.size() - used_; }
    // The bytes in use, the length field included.
    std::vector<uint8_t> Bytes() const;

private:
    void Put(uint32_t type, const void* data, std::size_t length);

    std::vector<uint8_t> buffer_;
    std::size_t used_ = 4;
};

struct TaggedEntry {
    std::string key;
    uint32_t key_type = 0;
    uint32_t value_type = 0;
    std::string value;  // the value's bytes
};

// The entries of a table, in order. The length field is trusted only as far as size
// reaches; parsing ends at the first tagged value that would pass the end.
std::vector<TaggedEntry> ParseTaggedTable(const uint8_t* data, std::size_t size);
