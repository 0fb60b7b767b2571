#pragma once
// Base64 (standard alphabet, '=' padding, no line breaks), backed by OpenSSL.
//
// Decoding is strict: the text length must be a multiple of four, only the alphabet is
// allowed (no whitespace), '=' may only end the last group (one or two of them), and the
// unused low bits before the padding must be zero, so every byte string has exactly one
// accepted encoding.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

std::string Base64Encode(const void* data, std::size_t length);
std::string Base64Encode(const std::vector<uint8_t>& data);

// Decoded bytes, or nullopt for malformed text. Empty text gives an empty vector.
std::optional<std::vector<uint8_t>> Base64Decode(std::string_view text);

// Decodes into buffer, keeping at most capacity bytes (the rest is dropped, not an error;
// a null buffer counts as capacity 0). Gives the count written, -1 for malformed text.
int64_t Base64Decode(std::string_view text, void* buffer, std::size_t capacity);
