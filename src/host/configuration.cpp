#include "host/configuration.h"

#include "host/base64.h"
#include "host/logger.h"

#include <fmt/format.h>
#include <pugixml.hpp>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

namespace {

constexpr const char* kRoot = "configuration";
constexpr const char* kEntry = "entry";

// "/a//b/" -> "a/b"; nullopt for a path without segments or with control characters.
std::optional<std::string> NormalisePath(std::string_view path) {
    std::string normal;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        if (end > start) {
            if (!normal.empty()) normal += '/';
            normal.append(path.substr(start, end - start));
        }
        start = end + 1;
    }
    if (normal.empty()) return std::nullopt;
    if (std::any_of(normal.begin(), normal.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
        return std::nullopt;
    return normal;
}

// Whether XML text can carry the string unchanged (parsing turns "\r\n" into "\n" and
// cannot carry other control characters).
bool PlainText(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto u = static_cast<unsigned char>(c);
        return u < 0x20 && c != '\t' && c != '\n';
    });
}

std::optional<std::string> DecodeBase64Text(std::string_view text) {
    std::string compact;
    compact.reserve(text.size());
    for (char c : text)
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') compact += c;
    std::optional<std::vector<uint8_t>> bytes = Base64Decode(compact);
    if (!bytes) return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
}

}  // namespace

std::string Configuration::GetString(const std::string& path, const std::string& defaultValue) const {
    const auto key = NormalisePath(path);
    if (!key) return defaultValue;
    std::shared_lock lock(mutex_);
    const auto it = entries_.find(*key);
    return it == entries_.end() || it->second.binary ? defaultValue : it->second.value;
}

void Configuration::SetString(const std::string& path, const std::string& value) {
    const auto key = NormalisePath(path);
    if (!key) {
        CLogger::DefaultLogger().Warning("configuration: invalid path '{}' ignored", path);
        return;
    }
    std::unique_lock lock(mutex_);
    entries_[*key] = Entry{false, value};
}

bool Configuration::GetBinary(const std::string& path, std::vector<uint8_t>& out) const {
    const auto key = NormalisePath(path);
    if (!key) return false;
    std::shared_lock lock(mutex_);
    const auto it = entries_.find(*key);
    if (it == entries_.end() || !it->second.binary) return false;
    out.assign(it->second.value.begin(), it->second.value.end());
    return true;
}

void Configuration::SetBinary(const std::string& path, const void* data, std::size_t length) {
    const auto key = NormalisePath(path);
    if (!key || (data == nullptr && length != 0)) {
        CLogger::DefaultLogger().Warning("configuration: invalid binary value for '{}' ignored", path);
        return;
    }
    std::string bytes(length, '\0');
    if (length != 0) std::memcpy(bytes.data(), data, length);
    std::unique_lock lock(mutex_);
    entries_[*key] = Entry{true, std::move(bytes)};
}

bool Configuration::Has(const std::string& path) const {
    const auto key = NormalisePath(path);
    if (!key) return false;
    std::shared_lock lock(mutex_);
    return entries_.count(*key) != 0;
}

bool Configuration::Remove(const std::string& path) {
    const auto key = NormalisePath(path);
    if (!key) return false;
    const std::string prefix = *key + '/';
    std::unique_lock lock(mutex_);
    bool removed = entries_.erase(*key) != 0;
    // Entries below the path sort right after the prefix.
    auto it = entries_.lower_bound(prefix);
    while (it != entries_.end() && it->first.compare(0, prefix.size(), prefix) == 0) {
        it = entries_.erase(it);
        removed = true;
    }
    return removed;
}

std::vector<std::string> Configuration::Keys() const {
    std::shared_lock lock(mutex_);
    std::vector<std::string> keys;
    keys.reserve(entries_.size());
    for (const auto& entry : entries_) keys.push_back(entry.first);
    return keys;
}

bool Configuration::SaveToFile(const std::string& file) const {
    std::map<std::string, Entry> snapshot;
    {
        std::shared_lock lock(mutex_);
        snapshot = entries_;
    }
    pugi::xml_document document;
    pugi::xml_node root = document.append_child(kRoot);
    root.append_attribute("version") = 1;
    for (const auto& [path, entry] : snapshot) {
        pugi::xml_node node = root.append_child(kEntry);
        node.append_attribute("path") = path.c_str();
        node.append_attribute("kind") = entry.binary ? "binary" : "string";
        if (!entry.binary && PlainText(entry.value)) {
            node.text().set(entry.value.c_str());
            continue;
        }
        if (!entry.binary) node.append_attribute("encoding") = "base64";
        node.text().set(Base64Encode(entry.value.data(), entry.value.size()).c_str());
    }

    // A save that fails half-way must not destroy the previous file.
    static std::atomic<unsigned> counter{0};
    const std::string temp = fmt::format("{}.{}-{}.tmp", file, ::getpid(), ++counter);
    if (!document.save_file(temp.c_str(), "\t", pugi::format_default, pugi::encoding_utf8)) {
        CLogger::DefaultLogger().Error("configuration: cannot write '{}'", file);
        std::error_code ignored;
        std::filesystem::remove(temp, ignored);
        return false;
    }
    std::error_code error;
    std::filesystem::rename(temp, file, error);
    if (error) {
        CLogger::DefaultLogger().Error("configuration: cannot write '{}': {}", file, error.message());
        std::filesystem::remove(temp, error);
        return false;
    }
    return true;
}

bool Configuration::LoadFromFile(const std::string& file) {
    auto& log = CLogger::DefaultLogger();
    pugi::xml_document document;
    // Whitespace-only values are kept.
    const pugi::xml_parse_result result =
        document.load_file(file.c_str(), pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_utf8);
    if (!result) {
        log.Warning("configuration: cannot read '{}': {}", file, result.description());
        return false;
    }
    const pugi::xml_node root = document.child(kRoot);
    if (!root) {
        log.Warning("configuration: '{}' has no <{}> root", file, kRoot);
        return false;
    }

    std::map<std::string, Entry> loaded;
    for (const pugi::xml_node node : root.children(kEntry)) {
        const auto path = NormalisePath(node.attribute("path").value());
        const std::string_view kind = node.attribute("kind").value();
        const std::string_view encoding = node.attribute("encoding").value();
        const char* text = node.text().get();
        std::optional<std::string> value;
        if (kind == "string" && encoding.empty())
            value = text;
        else if ((kind == "string" && encoding == "base64") || (kind == "binary" && encoding.empty()))
            value = DecodeBase64Text(text);
        if (!path || !value) {
            log.Warning("configuration: '{}': bad entry at offset {}", file, node.offset_debug());
            return false;
        }
        loaded[*path] = Entry{kind == "binary", std::move(*value)};
    }

    std::unique_lock lock(mutex_);
    entries_.swap(loaded);
    return true;
}
