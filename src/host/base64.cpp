#include "host/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

// EVP_EncodeBlock / EVP_DecodeBlock take int lengths; work in chunks that keep the
// groups of 3 bytes / 4 characters intact.
constexpr std::size_t kRawChunk = 3u << 20;
constexpr std::size_t kTextChunk = kRawChunk / 3 * 4;

// Value of an alphabet character, -1 for anything else (including '=').
int SextetValue(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// Checks the text; gives the decoded length, or -1 when the text is malformed.
int64_t DecodedLength(std::string_view text) {
    if (text.size() % 4 != 0) return -1;
    if (text.empty()) return 0;
    std::size_t padding = 0;
    if (text.back() == '=') padding = text[text.size() - 2] == '=' ? 2 : 1;
    const std::size_t dataChars = text.size() - padding;
    for (std::size_t i = 0; i < dataChars; ++i) {
        if (SextetValue(text[i]) < 0) return -1;
    }
    // The bits of the last data character that fall beyond the final byte must be zero.
    const int last = SextetValue(text[dataChars - 1]);
    if ((padding == 1 && (last & 0x03) != 0) || (padding == 2 && (last & 0x0f) != 0)) return -1;
    return static_cast<int64_t>(text.size() / 4 * 3 - padding);
}

// Decodes validated text of a multiple of 4 characters into out (room for size/4*3 bytes).
void DecodeValidated(std::string_view text, unsigned char* out) {
    for (std::size_t pos = 0; pos < text.size(); pos += kTextChunk) {
        const std::size_t n = std::min(kTextChunk, text.size() - pos);
        EVP_DecodeBlock(out + pos / 4 * 3, reinterpret_cast<const unsigned char*>(text.data() + pos),
                        static_cast<int>(n));
    }
}

}  // namespace

std::string Base64Encode(const void* data, std::size_t length) {
    if (data == nullptr || length == 0) return {};
    const auto* in = static_cast<const unsigned char*>(data);
    std::string out((length + 2) / 3 * 4, '\0');
    for (std::size_t pos = 0; pos < length; pos += kRawChunk) {
        const std::size_t n = std::min(kRawChunk, length - pos);
        // The terminating NUL lands on the next chunk's first character or on the string's own NUL.
        auto* dest = reinterpret_cast<unsigned char*>(out.data()) + pos / 3 * 4;
        EVP_EncodeBlock(dest, in + pos, static_cast<int>(n));
    }
    return out;
}

std::string Base64Encode(const std::vector<uint8_t>& data) { return Base64Encode(data.data(), data.size()); }

std::optional<std::vector<uint8_t>> Base64Decode(std::string_view text) {
    const int64_t length = DecodedLength(text);
    if (length < 0) return std::nullopt;
    // Room for the full groups: OpenSSL writes zero bytes for the padding positions.
    std::vector<uint8_t> out(text.size() / 4 * 3);
    DecodeValidated(text, out.data());
    out.resize(static_cast<std::size_t>(length));
    return out;
}

int64_t Base64Decode(std::string_view text, void* buffer, std::size_t capacity) {
    const int64_t length = DecodedLength(text);
    if (length < 0) return -1;
    if (buffer == nullptr) capacity = 0;
    const std::size_t wanted = std::min(capacity, static_cast<std::size_t>(length));
    if (wanted == 0) return 0;
    auto* out = static_cast<unsigned char*>(buffer);
    // Whole groups straight into the buffer, the last (partial) group through a scratch block.
    const std::size_t wholeGroups = wanted / 3;
    DecodeValidated(text.substr(0, wholeGroups * 4), out);
    const std::size_t rest = wanted - wholeGroups * 3;
    if (rest > 0) {
        std::array<unsigned char, 4> scratch{};
        DecodeValidated(text.substr(wholeGroups * 4, 4), scratch.data());
        std::memcpy(out + wholeGroups * 3, scratch.data(), rest);
    }
    return static_cast<int64_t>(wanted);
}
