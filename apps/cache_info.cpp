// wavestore_cache_info: shows what a managed cache file holds and how the store
// opens it. The file is opened for reading only and never changed.
//
//   wavestore_cache_info <file>...
//
// Exit status: 0 when every file could be inspected, 1 when one could not, 2 for bad
// arguments.

#include "host/file.h"
#include "host/project_file_manager.h"
#include "storage/file_proxy.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kCacheBlockSize = 0x80000;

void Usage(std::FILE* out) {
    fmt::print(out,
               "usage: wavestore_cache_info <file>...\n"
               "Prints length, format version, header fields, digest state, block map and\n"
               "logical size of each managed cache file.\n");
}

void PrintHeader(const unsigned char* image) {
    const FileHeader h = FileHeader::Decode(image);
    fmt::print("  header:\n");
    fmt::print("    magic:       0x{:08X}{}\n", h.magic, h.magic == FileHeader::kMagic ? " (\"KMF\")" : "");
    fmt::print("    version:     {}\n", h.version);
    fmt::print("    block size:  {}\n", h.blockSize);
    fmt::print("    tables:      {}\n", h.tables);
    fmt::print("    head block:  {}\n", h.headBlock);
    fmt::print("    tail block:  {}\n", h.tailBlock);
    fmt::print("    head offset: {}\n", h.headOffset);
    fmt::print("    tail fill:   {}\n", h.tailFill);
    fmt::print("    size limit:  {} blocks\n", h.sizeLimit);
    fmt::print("    digest:      {}\n", DigestMatches(image) ? "valid" : "invalid");
}

void PrintBlockMap(const ProxyV1& proxy, uint64_t length) {
    uint64_t allocated = 0, first = 0, last = 0;
    int64_t highest = -1;
    for (uint64_t block = 0; block < proxy.MaxBlocks(); ++block) {
        const int32_t entry = proxy.Entry(block);
        if (entry < 0) continue;
        if (allocated++ == 0) first = block;
        last = block;
        highest = std::max<int64_t>(highest, entry);
    }
    const uint64_t blockSize = proxy.Header().blockSize;
    const uint64_t inFile = length > proxy.DataOffset() ? (length - proxy.DataOffset()) / blockSize : 0;
    fmt::print("  block map:   {} of {} logical blocks allocated", allocated, proxy.MaxBlocks());
    if (allocated != 0) fmt::print(" (first {}, last {})", first, last);
    fmt::print("\n  physical:    {} blocks in the file", inFile);
    if (highest >= 0) fmt::print(", highest in use {}", highest);
    fmt::print("\n");
}

// False if the file can't be inspected.
bool Inspect(const std::string& argument) {
    std::error_code error;
    const fs::path path = fs::absolute(argument, error);
    if (error || !fs::exists(path, error)) {
        fmt::print(stderr, "wavestore_cache_info: {}: no such file\n", argument);
        return false;
    }
    if (!fs::is_regular_file(path, error)) {
        fmt::print(stderr, "wavestore_cache_info: {}: not a regular file\n", argument);
        return false;
    }

    // The file's folder serves as project folder; flag 1 opens an existing file as it is.
    ProjectFileManager manager(path.parent_path().string());
    const std::weak_ptr<IProjectFile> file =
        manager.GetFile(path.filename().string(), Tessel::CFile::ModeRead, 1);
    const std::shared_ptr<IProjectFile> open = file.lock();
    if (!open) {
        fmt::print(stderr, "wavestore_cache_info: {}: cannot open\n", argument);
        return false;
    }
    Tessel::CFile& cfile = *open->GetCFile();
    const int64_t signedLength = cfile.GetLength();
    const uint64_t length = signedLength > 0 ? static_cast<uint64_t>(signedLength) : 0;

    std::array<unsigned char, FileHeader::kSize> image{};
    const bool haveHeader = cfile.Seek(0, Tessel::CFile::SeekBegin) == 0 &&
                            cfile.Read(image.data(), image.size()) == static_cast<int64_t>(image.size());

    const std::shared_ptr<FileProxyBase> proxy = MakeProxy(file, kCacheBlockSize, 1, 0);
    fmt::print("{}\n", path.string());
    fmt::print("  length:      {} bytes\n", length);
    if (proxy->Version() == 1) {
        fmt::print("  opens as:    format version 1\n");
    } else {
        std::string reason = "empty file";
        if (length != 0) reason = haveHeader ? CheckHeader(image.data(), length).value_or("") : "shorter than a header";
        fmt::print("  opens as:    format version 0 (raw data: {})\n", reason);
    }
    if (haveHeader) PrintHeader(image.data());
    if (const auto* v1 = dynamic_cast<const ProxyV1*>(proxy.get())) PrintBlockMap(*v1, length);
    fmt::print("  logical size: {} bytes\n", proxy->Size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        Usage(stderr);
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            Usage(stdout);
            return 0;
        }
        if (argument.empty() || argument[0] == '-') {
            fmt::print(stderr, "wavestore_cache_info: unknown option '{}'\n", argument);
            Usage(stderr);
            return 2;
        }
    }
    bool ok = true;
    for (int i = 1; i < argc; ++i) ok = Inspect(argv[i]) && ok;
    return ok ? 0 : 1;
}
