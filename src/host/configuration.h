#pragma once
// Configuration: a thread-safe tree of named string and binary entries, addressed by
// '/'-separated paths, saved to and loaded from an XML file.
//
// Choices made here:
// - Paths are normalised: empty segments are dropped ("/a//b/" is "a/b"). A path with no
//   segment, or with a control character (below 0x20), is invalid: setters ignore it (a
//   warning is logged), getters treat it as missing.
// - A value lives only at the path it was set on; "a" is not an entry because "a/b" is.
//   Remove("a") removes "a" and every entry below it.
// - Entries are typed: GetString on a binary entry gives the default value and
//   GetBinary on a string entry gives false. Setting a path replaces its value and kind.
// - File format: <configuration version="1"> holding <entry path="..." kind="string">
//   text</entry> and <entry path="..." kind="binary">Base64</entry>. A string with control
//   characters other than tab and newline is written as Base64 too, marked
//   encoding="base64", so that every string reads back byte for byte.
// - SaveToFile writes a temporary file beside the target and renames it over the target.
//   LoadFromFile replaces the whole content; a missing or malformed file (bad XML, wrong
//   root, an entry with a bad path, kind or Base64) gives false and changes nothing.

#include <cstddef>
#include <cstdint>
#include <map>
#include <shared_mutex>
#include <string>
#include <vector>

class Configuration {
public:
    Configuration() = default;
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    std::string GetString(const std::string& path, const std::string& defaultValue = "") const;
    void SetString(const std::string& path, const std::string& value);

    // Copies the value into out; false (out untouched) when there is no binary entry.
    bool GetBinary(const std::string& path, std::vector<uint8_t>& out) const;
    // Null data with a non-zero length is ignored (logged).
    void SetBinary(const std::string& path, const void* data, std::size_t length);

    bool Has(const std::string& path) const;
    // Removes the entry and everything below it; false if nothing was there.
    bool Remove(const std::string& path);
    // Normalised paths of all entries, sorted.
    std::vector<std::string> Keys() const;

    bool SaveToFile(const std::string& file) const;
    bool LoadFromFile(const std::string& file);

private:
    struct Entry {
        bool binary = false;
        std::string value;  // text, or the bytes of a binary entry
    };

    mutable std::shared_mutex mutex_;
    std::map<std::string, Entry> entries_;
};
