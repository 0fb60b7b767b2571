#pragma once
// Tessel::CFile: a file opened by path and mode, with one file position.
//
// Byte-exact, unbuffered: every Read and Write goes to the operating system at the
// current position, so a Seek followed by a transfer is one positioned operation.
// The object is not thread-safe; callers that share one serialise Seek + transfer.

#include <cstdint>
#include <string>

struct iovec;

namespace Tessel {

class CFile {
public:
    // Mode bits. The project files use Read | Write | Create (19).
    enum : unsigned {
        ModeRead = 1u,      // open for reading
        ModeWrite = 2u,     // open for writing
        ModeTruncate = 8u,  // drop existing content at open
        ModeCreate = 16u,   // with ModeWrite: create the file if it does not exist
    };
    // Seek origins.
    enum : int { SeekBegin = 0, SeekCurrent = 1, SeekEnd = 2 };

    CFile() = default;
    // Opens at once; IsOpen() tells whether that worked.
    CFile(const std::string& path, unsigned mode);
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    CFile(CFile&& other) noexcept;
    CFile& operator=(CFile&& other) noexcept;

    // Closes what was open and opens path, which must be a regular file; false (and
    // closed, with no path) on failure.
    bool Open(const std::string& path, unsigned mode);
    void Close();
    bool IsOpen() const { return fd_ >= 0; }

    const std::string& GetPath() const { return path_; }
    unsigned GetMode() const { return mode_; }

    // Length in bytes, -1 when not open.
    int64_t GetLength() const;
    // Grows (with zero bytes) or cuts the file; false when not open for writing.
    bool SetLength(uint64_t length);
    // Moves the position; gives the new position from the start, -1 on failure
    // (not open, bad origin, or a resulting position below zero).
    int64_t Seek(int64_t offset, int origin);
    // Current position, -1 when not open.
    int64_t GetPosition() const;
    // Reads up to bytes at the position; gives the count read (0 at the end), -1 on failure.
    int64_t Read(void* buffer, uint64_t bytes);
    // Writes bytes at the position; gives the count written, -1 on failure.
    int64_t Write(const void* buffer, uint64_t bytes);
    // Positioned, vectored transfers: the pieces back to back from offset, in one call to
    // the system where it takes them whole; the file position is not used or moved. Give
    // the count moved (short at the end of the file, or when the system fails after some
    // bytes), -1 on failure. Asks the fault hook as Read and Write do.
    int64_t ReadAt(const iovec* pieces, int count, uint64_t offset);
    int64_t WriteAt(const iovec* pieces, int count, uint64_t offset);
    // Makes written data durable; false when not open or the system refuses.
    bool Flush();

    // Early writeback (on by default): every write asks the system to start writing its
    // bytes to the disk at once, without waiting for it. A later Flush then finds little
    // left to write, instead of the whole dirty stretch since the last one. It changes no
    // byte of any file. For the whole process.
    static void SetEarlyWriteback(bool on);
    static bool EarlyWriteback();

private:
    int fd_ = -1;
    unsigned mode_ = 0;
    std::string path_;
};

}  // namespace Tessel
