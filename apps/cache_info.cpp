// wavestore_cache_info: shows what a managed cache file holds and how the store opens
// it: length, format version, header fields, digest state, block map and logical size.
// Every block map entry is checked against the file's length. The file is opened for
// reading only and never changed.
//
//   wavestore_cache_info [--json] <file>...
//
// With --json the output is one JSON array with one object per file, for scripts.
// Exit status: 0 when every file could be inspected and its block map lies inside it, 1
// when a file could not be inspected or has block map entries beyond its end, 2 for bad
// usage.

#include "common/program.h"
#include "host/file.h"
#include "host/project_file_manager.h"
#include "storage/file_proxy.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr uint32_t kCacheBlockSize = 0x80000;

// What the block map of a version 1 file says, checked against the file's length.
struct BlockMapSummary {
    uint64_t logical_blocks = 0;
    uint64_t allocated = 0;
    uint64_t first = 0, last = 0;
    int64_t highest = -1;
    uint64_t physical_in_file = 0;
    std::vector<uint64_t> beyond_file;  // logical blocks whose physical block lies past the end
};

BlockMapSummary SummariseBlockMap(const ProxyV1& proxy, uint64_t length) {
    BlockMapSummary map;
    map.logical_blocks = proxy.MaxBlocks();
    const uint64_t block_size = proxy.Header().blockSize;
    map.physical_in_file = length > proxy.DataOffset() && block_size != 0 ? (length - proxy.DataOffset()) / block_size : 0;
    for (uint64_t block = 0; block < proxy.MaxBlocks(); ++block) {
        const int32_t entry = proxy.Entry(block);
        if (entry < 0) continue;
        if (map.allocated++ == 0) map.first = block;
        map.last = block;
        map.highest = std::max<int64_t>(map.highest, entry);
        // The tail block may end early, but every mapped block must start inside the file.
        if (proxy.DataOffset() + static_cast<uint64_t>(entry) * block_size >= length) map.beyond_file.push_back(block);
    }
    return map;
}

struct Inspection {
    bool opened = false;
    bool map_inside = true;
    Json json;
};

Json HeaderJson(const FileHeader& h, bool digest_valid) {
    return Json{{"magic", h.magic},          {"version", h.version},       {"block_size", h.blockSize},
                {"tables", h.tables},        {"head_block", h.headBlock},  {"tail_block", h.tailBlock},
                {"head_offset", h.headOffset}, {"tail_fill", h.tailFill}, {"size_limit_blocks", h.sizeLimit},
                {"digest_valid", digest_valid}};
}

void PrintText(const Inspection& inspection) {
    const Json& j = inspection.json;
    fmt::print("{}\n", j["file"].get<std::string>());
    fmt::print("  length:      {} bytes\n", j["length"].get<uint64_t>());
    if (j["version"].get<int>() == 1) {
        fmt::print("  opens as:    format version 1\n");
    } else {
        fmt::print("  opens as:    format version 0 (raw data: {})\n", j["raw_reason"].get<std::string>());
    }
    if (j.contains("header")) {
        const Json& h = j["header"];
        const auto magic = h["magic"].get<uint32_t>();
        fmt::print("  header:\n");
        fmt::print("    magic:       0x{:08X}{}\n", magic, magic == FileHeader::kMagic ? " (\"KMF\")" : "");
        fmt::print("    version:     {}\n", h["version"].get<uint32_t>());
        fmt::print("    block size:  {}\n", h["block_size"].get<uint32_t>());
        fmt::print("    tables:      {}\n", h["tables"].get<unsigned>());
        fmt::print("    head block:  {}\n", h["head_block"].get<uint32_t>());
        fmt::print("    tail block:  {}\n", h["tail_block"].get<uint32_t>());
        fmt::print("    head offset: {}\n", h["head_offset"].get<uint32_t>());
        fmt::print("    tail fill:   {}\n", h["tail_fill"].get<uint32_t>());
        fmt::print("    size limit:  {} blocks\n", h["size_limit_blocks"].get<uint32_t>());
        fmt::print("    digest:      {}\n", h["digest_valid"].get<bool>() ? "valid" : "invalid");
    }
    if (j.contains("block_map")) {
        const Json& m = j["block_map"];
        fmt::print("  block map:   {} of {} logical blocks allocated", m["allocated"].get<uint64_t>(),
                   m["logical_blocks"].get<uint64_t>());
        if (m["allocated"].get<uint64_t>() != 0)
            fmt::print(" (first {}, last {})", m["first"].get<uint64_t>(), m["last"].get<uint64_t>());
        fmt::print("\n  physical:    {} blocks in the file", m["physical_blocks_in_file"].get<uint64_t>());
        if (m["highest_physical"].get<int64_t>() >= 0)
            fmt::print(", highest in use {}", m["highest_physical"].get<int64_t>());
        fmt::print("\n");
        const auto& beyond = m["beyond_file"];
        if (beyond.empty()) {
            fmt::print("  check:       every mapped block lies inside the file\n");
        } else {
            fmt::print("  check:       {} mapped block(s) lie beyond the end of the file, the first logical block {}\n",
                       beyond.size(), beyond.front().get<uint64_t>());
        }
    }
    fmt::print("  logical size: {} bytes\n", j["logical_size"].get<uint64_t>());
}

Inspection Inspect(const std::string& argument) {
    Inspection result;
    std::error_code error;
    const fs::path path = fs::absolute(argument, error);
    if (error || !fs::exists(path, error)) {
        fmt::print(stderr, "wavestore_cache_info: {}: no such file\n", argument);
        return result;
    }
    if (!fs::is_regular_file(path, error)) {
        fmt::print(stderr, "wavestore_cache_info: {}: not a regular file\n", argument);
        return result;
    }

    // The file's folder serves as project folder; flag 1 opens an existing file as it is.
    ProjectFileManager manager(path.parent_path().string());
    const std::weak_ptr<IProjectFile> file = manager.GetFile(path.filename().string(), Tessel::CFile::ModeRead, 1);
    const std::shared_ptr<IProjectFile> open = file.lock();
    if (!open) {
        fmt::print(stderr, "wavestore_cache_info: {}: cannot open for reading\n", argument);
        return result;
    }
    Tessel::CFile& cfile = *open->GetCFile();
    const int64_t signed_length = cfile.GetLength();
    const uint64_t length = signed_length > 0 ? static_cast<uint64_t>(signed_length) : 0;

    std::array<unsigned char, FileHeader::kSize> image{};
    const bool have_header = cfile.Seek(0, Tessel::CFile::SeekBegin) == 0 &&
                             cfile.Read(image.data(), image.size()) == static_cast<int64_t>(image.size());

    const std::shared_ptr<FileProxyBase> proxy = MakeProxy(file, kCacheBlockSize, 1, 0);
    Json& j = result.json;
    j["file"] = path.string();
    j["length"] = length;
    j["version"] = proxy->Version();
    if (proxy->Version() != 1) {
        std::string reason = "empty file";
        if (length != 0) reason = have_header ? CheckHeader(image.data(), length).value_or("") : "shorter than a header";
        j["raw_reason"] = reason;
    }
    if (have_header) j["header"] = HeaderJson(FileHeader::Decode(image.data()), DigestMatches(image.data()));
    if (const auto* v1 = dynamic_cast<const ProxyV1*>(proxy.get())) {
        const BlockMapSummary map = SummariseBlockMap(*v1, length);
        j["block_map"] = Json{{"logical_blocks", map.logical_blocks},
                              {"allocated", map.allocated},
                              {"first", map.first},
                              {"last", map.last},
                              {"highest_physical", map.highest},
                              {"physical_blocks_in_file", map.physical_in_file},
                              {"beyond_file", map.beyond_file}};
        result.map_inside = map.beyond_file.empty();
    }
    j["logical_size"] = proxy->Size();
    result.opened = true;
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Shows the header, digest state, block map and logical size of managed cache files"};
    std::vector<std::string> files;
    bool json = false;
    app.add_option("files", files, "cache files to inspect")->required();
    app.add_flag("--json", json, "one JSON array with an object per file");
    app.set_version_flag("--version", WavestoreVersionText());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitOk : kExitUsage;
    }

    bool ok = true;
    Json all = Json::array();
    for (const std::string& file : files) {
        Inspection inspection = Inspect(file);
        if (!inspection.opened) {
            ok = false;
            continue;
        }
        if (!inspection.map_inside) {
            fmt::print(stderr, "wavestore_cache_info: {}: block map entries lie beyond the end of the file\n", file);
            ok = false;
        }
        if (json) {
            all.push_back(std::move(inspection.json));
        } else {
            PrintText(inspection);
        }
    }
    if (json) fmt::print("{}\n", all.dump(2));
    return ok ? kExitOk : kExitFailure;
}
