// libFuzzer target: the input is a cache file, opened with MakeProxy and read back.
//
// When the input is at least a header long and its last byte is odd, the header digest
// (bytes 112..127) is recomputed first, so that the fuzzer also reaches the version 1
// paths, which a random digest would almost never open.

#include "host/md5.h"
#include "host/project_file_manager.h"
#include "storage/file_proxy.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A temporary project folder, removed at exit after the manager that uses it.
struct Folder {
    std::string path;
    Folder() {
        std::string templ = (std::filesystem::temp_directory_path() / "make-proxy-fuzz-XXXXXX").string();
        if (::mkdtemp(templ.data()) == nullptr) std::abort();
        path = templ;
    }
    ~Folder() {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
};

std::weak_ptr<IProjectFile> InputFile() {
    static Folder folder;
    static ProjectFileManager manager(folder.path);
    static std::weak_ptr<IProjectFile> file = manager.GetFile("input.wsc", 19, 0);
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::weak_ptr<IProjectFile> file = InputFile();
    const std::shared_ptr<IProjectFile> open = file.lock();
    if (!open) std::abort();  // the harness itself is broken
    Tessel::CFile& cfile = *open->GetCFile();

    std::vector<unsigned char> content(data, data + size);
    if (size >= FileHeader::kSize && (data[size - 1] & 1) != 0)
        Vellum::MD5::GetBinaryMD5(content.data(), FileHeader::kDigestOffset, content.data() + FileHeader::kDigestOffset);
    if (!cfile.SetLength(0) || cfile.Seek(0, Tessel::CFile::SeekBegin) != 0) std::abort();
    if (!content.empty() && cfile.Write(content.data(), content.size()) != static_cast<int64_t>(content.size()))
        std::abort();

    const std::shared_ptr<FileProxyBase> proxy = MakeProxy(file, 0x80000, 1, size == 0 ? 0 : 1);
    const uint64_t logical = proxy->Size();
    if (proxy->Version() == 0 && logical != size) std::abort();  // raw data is the whole file

    std::vector<unsigned char> buffer(512);
    for (uint64_t offset : {uint64_t{0}, uint64_t{100}, logical / 2, logical - 1, logical}) {
        try {
            const int64_t got = proxy->Read(offset, buffer.data(), buffer.size());
            if (got > static_cast<int64_t>(buffer.size())) std::abort();
        } catch (const std::out_of_range&) {
            // A block map that can't address the offset: a defined outcome.
        }
    }
    return 0;
}
