#include "host/base64.h"
#include "host/md5.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

TEST(Base64Codec, Rfc4648Vectors) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""},           {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(Base64Encode(plain.data(), plain.size()), encoded);
        EXPECT_EQ(Base64Decode(encoded), std::vector<uint8_t>(plain.begin(), plain.end())) << encoded;
    }
}

TEST(Base64Codec, BinaryRoundTrip) {
    std::vector<uint8_t> data(256);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    for (int cut = 0; cut < 3; ++cut, data.pop_back()) {  // every length mod 3
        const std::string text = Base64Encode(data);
        EXPECT_EQ(text.size(), (data.size() + 2) / 3 * 4);
        EXPECT_EQ(Base64Decode(text), data);
    }
    EXPECT_EQ(Base64Encode(std::vector<uint8_t>{0xfb, 0xff}), "+/8=");
    // Larger than one internal chunk of 3 MiB.
    std::vector<uint8_t> large((3u << 20) + 5);
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 131 + 7);
    EXPECT_EQ(Base64Decode(Base64Encode(large)), large);
}

TEST(Base64Codec, RejectsMalformedText) {
    // Wrong length, whitespace, misplaced or excess '=', foreign characters, non-zero bits
    // before the padding ("Zh==", "Zm9=").
    for (const char* bad : {"Z", "Zg", "Zg=", "Zg=\n", " Zg==", "Zm 9v", "Z===", "====", "=Zg=", "Zg==Zg==",
                            "Zm=v", "Zm9-", "Zm9\x80", "Zh==", "Zm9="}) {
        EXPECT_EQ(Base64Decode(bad), std::nullopt) << bad;
        std::array<uint8_t, 8> buffer{};
        EXPECT_EQ(Base64Decode(bad, buffer.data(), buffer.size()), -1) << bad;
    }
    EXPECT_EQ(Base64Decode(std::string_view("Zm\0v", 4)), std::nullopt);
}

TEST(Base64Codec, DecodeIntoBufferCutsAtCapacity) {
    for (std::size_t capacity = 0; capacity <= 8; ++capacity) {
        std::array<char, 9> buffer;
        buffer.fill('#');
        const std::size_t expected = std::min<std::size_t>(capacity, 6);
        ASSERT_EQ(Base64Decode("Zm9vYmFy", buffer.data(), capacity), static_cast<int64_t>(expected));
        EXPECT_EQ(std::string(buffer.data(), buffer.size()),
                  std::string("foobar", expected) + std::string(9 - expected, '#'));
    }
    EXPECT_EQ(Base64Decode("Zm8=", nullptr, 10), 0);
}

TEST(Md5Digest, Rfc1321Vectors) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [message, hex] : vectors) EXPECT_EQ(Vellum::MD5::GetHexMD5(message.data(), message.size()), hex);

    unsigned char digest[16];
    Vellum::MD5::GetBinaryMD5("abc", 3, digest);
    const unsigned char abc[16] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                   0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
    EXPECT_EQ(std::memcmp(digest, abc, 16), 0);
}

TEST(Md5Digest, NullInput) {
    EXPECT_EQ(Vellum::MD5::GetHexMD5(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Vellum::MD5::GetHexMD5(nullptr, 5), "");
    unsigned char digest[16];
    std::memset(digest, 0xee, sizeof digest);
    Vellum::MD5::GetBinaryMD5(nullptr, 5, digest);
    const unsigned char zero[16] = {};
    EXPECT_EQ(std::memcmp(digest, zero, 16), 0);
}
