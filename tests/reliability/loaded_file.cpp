#include "reliability/loaded_file.h"

#include "host/project_file_manager.h"
#include "storage/device_channels.h"
#include "storage/file_proxy.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace reliability {

namespace {

constexpr std::size_t kChunk = 64 * 1024;

void WriteAll(int fd, const unsigned char* data, std::size_t bytes, uint64_t offset) {
    while (bytes > 0) {
        const ssize_t n = ::pwrite(fd, data, bytes, static_cast<off_t>(offset));
        ASSERT_GT(n, 0) << "pwrite: " << std::strerror(errno);
        data += n;
        bytes -= static_cast<std::size_t>(n);
        offset += static_cast<uint64_t>(n);
    }
}

}  // namespace

LoadedFile::LoadedFile(std::string name) : name_(std::move(name)) {
    const std::filesystem::path folder =
        std::filesystem::path(ProjectFileManager::instance().GetProjectFolder()) / "__old__";
    std::filesystem::create_directories(folder);
    path_ = (folder / name_).string();
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    EXPECT_GE(fd_, 0) << path_;
}

LoadedFile::~LoadedFile() {
    ProjectFileManager::instance().ReleaseFile("__old__/" + name_);
    if (fd_ >= 0) ::close(fd_);
    ::unlink(path_.c_str());
}

uint64_t LoadedFile::Length() const {
    struct stat st {};
    return ::fstat(fd_, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

void LoadedFile::Set(const Bytes& bytes, const Bytes& head) {
    // Whatever a read appended goes first.
    if (Length() != on_disk_.size()) {
        ASSERT_EQ(::ftruncate(fd_, static_cast<off_t>(on_disk_.size())), 0);
    }
    if (on_disk_.size() > bytes.size()) {
        ASSERT_EQ(::ftruncate(fd_, static_cast<off_t>(bytes.size())), 0);
        on_disk_.resize(bytes.size());
    }
    const std::size_t common = on_disk_.size();
    on_disk_.resize(bytes.size());
    for (std::size_t at = 0; at < bytes.size(); at += kChunk) {
        const std::size_t n = std::min(kChunk, bytes.size() - at);
        const bool touches_head = at < head.size();
        if (!touches_head && at + n <= common && std::memcmp(on_disk_.data() + at, bytes.data() + at, n) == 0)
            continue;
        std::memcpy(on_disk_.data() + at, bytes.data() + at, n);
        if (touches_head) std::memcpy(on_disk_.data() + at, head.data(), std::min(head.size() - at, n));
        WriteAll(fd_, on_disk_.data() + at, n, at);
    }
}

LoadedFile::Opened LoadedFile::Open(uint32_t unit_size) {
    Opened opened;
    opened.channel = LoadLocalFileCache(name_);
    std::weak_ptr<IProjectFile> file = ProjectFileManager::instance().GetFile("__old__/" + name_, 19, 1);
    opened.version = MakeProxy(file, 0x80000, 1, 0)->Version();
    opened.storage = std::make_unique<CStorage>(opened.channel, unit_size);
    return opened;
}

void LoadedFile::Close(Opened& opened) {
    opened.storage.reset();
    opened.channel.reset();
    ProjectFileManager::instance().ReleaseFile("__old__/" + name_);
}

std::vector<uint32_t> ReadUnits(CStorage& storage, uint64_t count) {
    std::vector<uint32_t> units(count);
    uint64_t done = 0;
    while (done < count) {
        const uint64_t got = storage.Read(done, units.data() + done, std::min<uint64_t>(count - done, 64 * 1024));
        if (got == 0) break;
        done += got;
    }
    units.resize(done);
    return units;
}

}  // namespace reliability
