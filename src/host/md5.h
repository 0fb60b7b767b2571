#pragma once
// MD5 digests (RFC 1321) through OpenSSL, as 16 raw bytes or 32 lower-case hex digits.
//
// Null data with length 0 is the empty message. If no digest can be made (null data with
// a non-zero length, or MD5 unavailable in the crypto library) the binary digest is all
// zero bytes and the hex digest is an empty string.

#include <cstddef>
#include <string>

namespace Vellum::MD5 {

void GetBinaryMD5(const void* data, std::size_t length, unsigned char digest[16]);
std::string GetHexMD5(const void* data, std::size_t length);

}  // namespace Vellum::MD5
