#include "host/md5.h"

#include <openssl/evp.h>

#include <array>
#include <cstring>

namespace Vellum::MD5 {

namespace {

bool Digest(const void* data, std::size_t length, unsigned char* digest) {
    static const unsigned char kEmpty = 0;
    if (data == nullptr) {
        if (length != 0) return false;
        data = &kEmpty;
    }
    unsigned int size = 0;
    return EVP_Digest(data, length, digest, &size, EVP_md5(), nullptr) == 1 && size == 16;
}

}  // namespace

void GetBinaryMD5(const void* data, std::size_t length, unsigned char digest[16]) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> out{};
    if (!Digest(data, length, out.data())) out.fill(0);
    std::memcpy(digest, out.data(), 16);
}

std::string GetHexMD5(const void* data, std::size_t length) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> out{};
    if (!Digest(data, length, out.data())) return {};
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex(32, '0');
    for (std::size_t i = 0; i < 16; ++i) {
        hex[2 * i] = kHex[out[i] >> 4];
        hex[2 * i + 1] = kHex[out[i] & 0x0f];
    }
    return hex;
}

}  // namespace Vellum::MD5
