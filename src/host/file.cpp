#include "host/file.h"

#include "host/file_faults.h"
#include "host/file_observer.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <utility>
#include <vector>

namespace Tessel {

CFile::CFile(const std::string& path, unsigned mode) { Open(path, mode); }

CFile::~CFile() { Close(); }

CFile::CFile(CFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), mode_(other.mode_), path_(std::move(other.path_)) {}

CFile& CFile::operator=(CFile&& other) noexcept {
    if (this != &other) {
        Close();
        fd_ = std::exchange(other.fd_, -1);
        mode_ = other.mode_;
        path_ = std::move(other.path_);
    }
    return *this;
}

bool CFile::Open(const std::string& path, unsigned mode) {
    Close();
    const bool read = mode & ModeRead;
    const bool write = mode & ModeWrite;
    if (!read && !write) return false;
    int flags = read && write ? O_RDWR : (write ? O_WRONLY : O_RDONLY);
    if (write && (mode & ModeCreate)) flags |= O_CREAT;
    if (write && (mode & ModeTruncate)) flags |= O_TRUNC;
    flags |= O_CLOEXEC;
    int fd;
    do {
        fd = ::open(path.c_str(), flags, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);  // only regular files hold channel data
        return false;
    }
    fd_ = fd;
    mode_ = mode;
    path_ = path;
    return true;
}

void CFile::Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    mode_ = 0;
    path_.clear();
}

int64_t CFile::GetLength() const {
    if (fd_ < 0) return -1;
    struct stat st {};
    if (::fstat(fd_, &st) != 0) return -1;
    return st.st_size;
}

bool CFile::SetLength(uint64_t length) {
    if (fd_ < 0 || !(mode_ & ModeWrite)) return false;
    int rc;
    do {
        rc = ::ftruncate(fd_, static_cast<off_t>(length));
    } while (rc != 0 && errno == EINTR);
    if (rc == 0) NotifyFileChange(path_, FileChange::Resize, length, nullptr, 0);
    return rc == 0;
}

int64_t CFile::Seek(int64_t offset, int origin) {
    if (fd_ < 0) return -1;
    int whence;
    switch (origin) {
    case SeekBegin: whence = SEEK_SET; break;
    case SeekCurrent: whence = SEEK_CUR; break;
    case SeekEnd: whence = SEEK_END; break;
    default: return -1;
    }
    const off_t pos = ::lseek(fd_, static_cast<off_t>(offset), whence);
    return pos < 0 ? -1 : static_cast<int64_t>(pos);
}

int64_t CFile::GetPosition() const {
    if (fd_ < 0) return -1;
    const off_t pos = ::lseek(fd_, 0, SEEK_CUR);
    return pos < 0 ? -1 : static_cast<int64_t>(pos);
}

int64_t CFile::Read(void* buffer, uint64_t bytes) {
    if (fd_ < 0 || !(mode_ & ModeRead)) return -1;
    if (FileFaultInjected(FileOperation::Read, path_)) {
        errno = EIO;
        return -1;
    }
    auto* out = static_cast<char*>(buffer);
    uint64_t done = 0;
    while (done < bytes) {
        const ssize_t n = ::read(fd_, out + done, bytes - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return done > 0 ? static_cast<int64_t>(done) : -1;
        }
        if (n == 0) break;
        done += static_cast<uint64_t>(n);
    }
    return static_cast<int64_t>(done);
}

namespace {

std::atomic<bool> g_earlyWriteback{true};

// Starts the writeback of bytes written at offset; failures only mean it starts later.
void StartWriteback(int fd, int64_t offset, uint64_t bytes) {
    if (offset >= 0 && bytes > 0 && g_earlyWriteback.load(std::memory_order_relaxed))
        ::sync_file_range(fd, static_cast<off_t>(offset), static_cast<off_t>(bytes), SYNC_FILE_RANGE_WRITE);
}

}  // namespace

void CFile::SetEarlyWriteback(bool on) { g_earlyWriteback = on; }

bool CFile::EarlyWriteback() { return g_earlyWriteback; }

int64_t CFile::Write(const void* buffer, uint64_t bytes) {
    if (fd_ < 0 || !(mode_ & ModeWrite)) return -1;
    if (FileFaultInjected(FileOperation::Write, path_)) {
        errno = EIO;
        return -1;
    }
    const auto* in = static_cast<const char*>(buffer);
    const bool tell = g_earlyWriteback.load(std::memory_order_relaxed) || FileChangeObserved();
    const int64_t at = tell ? GetPosition() : -1;
    uint64_t done = 0;
    bool failed = false;
    while (done < bytes) {
        const ssize_t n = ::write(fd_, in + done, bytes - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            failed = true;
            break;
        }
        if (n == 0) break;
        done += static_cast<uint64_t>(n);
    }
    StartWriteback(fd_, at, done);
    if (done > 0 && at >= 0 && FileChangeObserved())
        NotifyFileChange(path_, FileChange::Write, static_cast<uint64_t>(at), in, done);
    return failed && done == 0 ? -1 : static_cast<int64_t>(done);
}

namespace {

// Runs a positioned vectored transfer to its end: a partial transfer (a signal, a pipe
// of the system's own limits) goes on from where it stopped, with the pieces behind it.
template <class Call>
int64_t TransferAt(const iovec* pieces, int count, uint64_t offset, Call call) {
    uint64_t wanted = 0;
    for (int i = 0; i < count; ++i) wanted += pieces[i].iov_len;
    // A copy only when the first call falls short, which it rarely does.
    std::vector<iovec> rest;
    const iovec* at = pieces;
    int left = count;
    uint64_t done = 0;
    while (done < wanted && left > 0) {
        const ssize_t n = call(at, std::min(left, IOV_MAX), static_cast<off_t>(offset + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return done > 0 ? static_cast<int64_t>(done) : -1;
        }
        if (n == 0) break;
        done += static_cast<uint64_t>(n);
        if (done >= wanted) break;
        if (rest.empty()) rest.assign(pieces, pieces + count);
        // Skip what went through: whole pieces, then the front of a partial one.
        uint64_t skip = static_cast<uint64_t>(n);
        iovec* first = rest.data() + (count - left);
        while (skip > 0 && skip >= first->iov_len) {
            skip -= first->iov_len;
            ++first;
            --left;
        }
        if (skip > 0) {
            first->iov_base = static_cast<char*>(first->iov_base) + skip;
            first->iov_len -= skip;
        }
        at = first;
    }
    return static_cast<int64_t>(done);
}

}  // namespace

int64_t CFile::ReadAt(const iovec* pieces, int count, uint64_t offset) {
    if (fd_ < 0 || !(mode_ & ModeRead) || count < 0) return -1;
    if (FileFaultInjected(FileOperation::Read, path_)) {
        errno = EIO;
        return -1;
    }
    const int fd = fd_;
    return TransferAt(pieces, count, offset,
                      [fd](const iovec* p, int n, off_t at) { return ::preadv(fd, p, n, at); });
}

int64_t CFile::WriteAt(const iovec* pieces, int count, uint64_t offset) {
    if (fd_ < 0 || !(mode_ & ModeWrite) || count < 0) return -1;
    if (FileFaultInjected(FileOperation::Write, path_)) {
        errno = EIO;
        return -1;
    }
    const int fd = fd_;
    const int64_t done =
        TransferAt(pieces, count, offset, [fd](const iovec* p, int n, off_t at) { return ::pwritev(fd, p, n, at); });
    if (done > 0) StartWriteback(fd, static_cast<int64_t>(offset), static_cast<uint64_t>(done));
    if (done > 0 && FileChangeObserved()) {
        // One change per piece, for the bytes that went.
        uint64_t left = static_cast<uint64_t>(done), at = offset;
        for (int i = 0; i < count && left > 0; ++i) {
            const uint64_t n = std::min<uint64_t>(pieces[i].iov_len, left);
            NotifyFileChange(path_, FileChange::Write, at, pieces[i].iov_base, n);
            at += n;
            left -= n;
        }
    }
    return done;
}

bool CFile::Flush() {
    if (fd_ < 0) return false;
    if (!(mode_ & ModeWrite)) return true;
    if (FileFaultInjected(FileOperation::Flush, path_)) {
        errno = EIO;
        return false;
    }
    if (::fdatasync(fd_) != 0) return false;
    NotifyFileChange(path_, FileChange::Sync, 0, nullptr, 0);
    return true;
}

}  // namespace Tessel
