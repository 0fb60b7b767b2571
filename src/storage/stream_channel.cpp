#include "storage/stream_channel.h"

#include <fmt/format.h>

#include <limits>

StreamChannel::StreamChannel(std::shared_ptr<Tessel::CFile> file, std::string name)
    : file_(std::move(file)), name_(std::move(name)) {}

int64_t StreamChannel::Read(void* buffer, uint64_t bytes, uint64_t offset) {
    std::lock_guard lock(mutex_);
    if (!file_ || !file_->IsOpen() || buffer == nullptr) return 0;
    const int64_t length = file_->GetLength();
    if (length < 0 || offset >= static_cast<uint64_t>(length)) return 0;
    if (file_->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin) < 0) return 0;
    return file_->Read(buffer, bytes);
}

uint64_t StreamChannel::Size() {
    std::lock_guard lock(mutex_);
    if (!file_ || !file_->IsOpen()) return 0;
    const int64_t length = file_->GetLength();
    return length < 0 ? 0 : static_cast<uint64_t>(length);
}

int64_t StreamChannel::Write(const void* buffer, uint64_t bytes, uint64_t offset) {
    std::lock_guard lock(mutex_);
    if (!file_ || !file_->IsOpen() || (buffer == nullptr && bytes != 0)) return 0;
    if (offset != kAppend && offset > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return 0;
    const int64_t at = offset == kAppend ? file_->Seek(0, Tessel::CFile::SeekEnd)
                                         : file_->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin);
    if (at < 0) return 0;
    return file_->Write(buffer, bytes);
}

std::string StreamChannel::Description() {
    std::lock_guard lock(mutex_);
    return fmt::format("Stream,name={},path={}", name_, file_ ? file_->GetPath() : std::string("NULL"));
}
