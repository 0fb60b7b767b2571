#include "storage/device_channels.h"

#include "host/file.h"
#include "host/path.h"
#include "host/project_file_manager.h"
#include "storage/file_proxy.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>

namespace {

constexpr uint32_t kCacheBlockSize = 0x80000;
constexpr uint32_t kCacheTables = 1;
constexpr unsigned kCacheFileMode = 19;  // read | write | create

std::atomic<bool> g_lazy_create{false};
std::atomic<unsigned> g_lazy_value{2};

}  // namespace

// ---------------------------------------------------------------------------------------
// ManagedFileCache

struct MFData {
    std::weak_ptr<IProjectFile> file;
    std::string id;
    bool read_only = false;
    std::shared_ptr<FileProxyBase> proxy;
    std::recursive_mutex mutex;
    // Makes the file; empty once it exists.
    std::function<void(MFData*)> creator;
    // Guards `file` alone, for SetKeep and SetFileReady, which don't take `mutex`.
    std::mutex file_mutex;

    std::shared_ptr<IProjectFile> LockFile() {
        std::lock_guard lock(file_mutex);
        return file.lock();
    }
    void SetFile(std::weak_ptr<IProjectFile> f) {
        std::lock_guard lock(file_mutex);
        file = std::move(f);
    }
    // Needs `mutex`.
    void RunCreator() {
        if (!creator) return;
        auto create = std::move(creator);
        creator = nullptr;
        create(this);
    }
};

ManagedFileCache::ManagedFileCache(std::unique_ptr<MFData> data) : d_(std::move(data)) {}

ManagedFileCache::~ManagedFileCache() {
    // A cache file made for this channel has no other user: unless a saved project keeps
    // it, it is closed and removed now instead of with the project, which would hold its
    // descriptor until then. A file of the loaded project stays open for others.
    if (d_->read_only) return;
    const std::shared_ptr<IProjectFile> file = d_->LockFile();
    if (!file || !file->GetAutoRemove()) return;
    d_->proxy.reset();
    ProjectFileManager::instance().ReleaseFile(d_->id);
}

int64_t ManagedFileCache::Read(void* buffer, uint64_t bytes, uint64_t offset) {
    std::lock_guard lock(d_->mutex);
    if (d_->creator || !d_->proxy) return 0;
    return d_->proxy->Read(offset, buffer, bytes);
}

uint64_t ManagedFileCache::Size() {
    std::lock_guard lock(d_->mutex);
    if (d_->creator || !d_->proxy) return 0;
    return d_->proxy->Size();
}

int64_t ManagedFileCache::Write(const void* buffer, uint64_t bytes, uint64_t offset) {
    std::lock_guard lock(d_->mutex);
    d_->RunCreator();
    if (!d_->proxy) return 0;
    return d_->proxy->Write(offset, buffer, bytes);
}

int64_t ManagedFileCache::ReadV(const iovec* pieces, std::size_t count, uint64_t offset) {
    std::lock_guard lock(d_->mutex);
    if (d_->creator || !d_->proxy) return 0;
    return d_->proxy->ReadV(offset, pieces, count);
}

int64_t ManagedFileCache::WriteV(const iovec* pieces, std::size_t count, uint64_t offset) {
    std::lock_guard lock(d_->mutex);
    d_->RunCreator();
    if (!d_->proxy) return 0;
    return d_->proxy->WriteV(offset, pieces, count);
}

bool ManagedFileCache::Writable() { return !d_->read_only; }

std::string ManagedFileCache::Description() {
    std::lock_guard lock(d_->mutex);
    if (d_->creator) return fmt::format("ManagedFile,id={} (Lazy Create!!)", d_->id);
    return fmt::format("ManagedFile,id={}", d_->LockFile() ? d_->id : std::string("NULL"));
}

std::string ManagedFileCache::GetId() { return d_->id; }

void ManagedFileCache::Clear() {
    std::lock_guard lock(d_->mutex);
    if (!d_->creator && d_->proxy) d_->proxy->Clear();
}

void ManagedFileCache::SetKeep(bool keep) {
    if (auto file = d_->LockFile()) file->SetAutoRemove(!keep);
}

void ManagedFileCache::SetFileReady(uint64_t ready) {
    if (auto file = d_->LockFile()) file->SetReady(static_cast<int>(ready));
}

bool ManagedFileCache::IsValid() {
    std::lock_guard lock(d_->mutex);
    if (d_->creator) return true;
    return d_->LockFile() != nullptr;
}

void ManagedFileCache::Flush() {
    std::lock_guard lock(d_->mutex);
    if (!d_->creator && d_->proxy) d_->proxy->Flush();
}

bool ManagedFileCache::Trim(uint64_t bytes) {
    std::lock_guard lock(d_->mutex);
    if (d_->creator || !d_->proxy) return false;
    return d_->proxy->Trim(bytes);
}

void ManagedFileCache::SetSizeLimit(uint64_t bytes) {
    std::lock_guard lock(d_->mutex);
    if (!d_->creator && d_->proxy) d_->proxy->SetSizeLimit(bytes);
}

// ---------------------------------------------------------------------------------------
// ExternalFileCache

struct ExternalFileCache::Data {
    std::string path;
    std::unique_ptr<Tessel::CFile> file;
    uint32_t mode = 0;
};

ExternalFileCache::ExternalFileCache(const std::string& path, uint32_t mode) : d_(std::make_unique<Data>()) {
    d_->path = path;
    d_->file = std::make_unique<Tessel::CFile>(path, mode);
    d_->mode = mode;
}

ExternalFileCache::~ExternalFileCache() = default;

int64_t ExternalFileCache::Read(void* buffer, uint64_t bytes, uint64_t offset) {
    Tessel::CFile* file = d_->file.get();
    if (!(d_->mode & Tessel::CFile::ModeRead) || !file || !file->IsOpen()) return 0;
    const int64_t length = file->GetLength();
    if (length < 0 || offset >= static_cast<uint64_t>(length)) return 0;
    if (file->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin) < 0) return 0;
    return file->Read(buffer, bytes);
}

uint64_t ExternalFileCache::Size() {
    const int64_t length = d_->file ? d_->file->GetLength() : -1;
    return length > 0 ? static_cast<uint64_t>(length) : 0;
}

int64_t ExternalFileCache::Write(const void* buffer, uint64_t bytes, uint64_t offset) {
    Tessel::CFile* file = d_->file.get();
    if (!(d_->mode & Tessel::CFile::ModeWrite) || !file || !file->IsOpen()) return 0;
    const int64_t at = offset == kAppend ? file->Seek(0, Tessel::CFile::SeekEnd)
                                         : file->Seek(static_cast<int64_t>(offset), Tessel::CFile::SeekBegin);
    if (at < 0) return 0;
    return file->Write(buffer, bytes);
}

std::string ExternalFileCache::Description() { return fmt::format("ExternalFile,path={}", d_->path); }

// ---------------------------------------------------------------------------------------
// MemoryCache

struct MemoryCache::Data {
    const void* base = nullptr;
    uint64_t length = 0;
    std::mutex mutex;
};

MemoryCache::MemoryCache(const void* base, uint64_t length) : d_(std::make_unique<Data>()) {
    d_->base = base;
    d_->length = length;
}

MemoryCache::~MemoryCache() = default;

int64_t MemoryCache::Read(void* buffer, uint64_t bytes, uint64_t offset) {
    std::lock_guard lock(d_->mutex);
    // Null memory is never copied from, whatever length it was given with.
    if (!d_->base || !buffer || offset >= d_->length) return 0;
    const uint64_t n = std::min({bytes, d_->length - offset, uint64_t{std::numeric_limits<int64_t>::max()}});
    std::memcpy(buffer, static_cast<const unsigned char*>(d_->base) + offset, n);
    return static_cast<int64_t>(n);
}

uint64_t MemoryCache::Size() {
    std::lock_guard lock(d_->mutex);
    return d_->base ? d_->length : 0;
}

int64_t MemoryCache::Write(const void*, uint64_t, uint64_t) { return 0; }

std::string MemoryCache::Description() {
    return fmt::format("Memory,base={},length={}", fmt::ptr(d_->base), d_->length);
}

void MemoryCache::GetRange(const void** base, uint64_t* length) const {
    if (base) *base = d_->base;
    if (length) *length = d_->length;
}

// ---------------------------------------------------------------------------------------
// Factories

std::shared_ptr<IDeviceChannel> CreateMemCache(const void* base, uint64_t length) {
    return std::make_shared<MemoryCache>(base, length);
}

std::shared_ptr<IDeviceChannel> CreateLocalFileCache(int version) {
    auto data = std::make_unique<MFData>();
    data->id = ProjectFileManager::instance().GenUniqueFileName();
    data->creator = [version](MFData* d) {
        std::weak_ptr<IProjectFile> file = ProjectFileManager::instance().GetFile(d->id, kCacheFileMode, 0);
        d->SetFile(file);
        d->proxy = MakeProxy(file, kCacheBlockSize, kCacheTables, version == 0 ? 0 : 1);
        if (auto opened = file.lock()) {
            opened->SetAutoRemove(true);
            opened->SetExtraFlag(0);
        }
    };
    // Nothing is built yet, so nothing else can see the record.
    if (!g_lazy_create.load()) data->RunCreator();
    return std::make_shared<ManagedFileCache>(std::move(data));
}

std::shared_ptr<IDeviceChannel> LoadLocalFileCache(const std::string& path) {
    auto data = std::make_unique<MFData>();
    // The files of the project that was loaded live in the sub-folder "__old__".
    const std::string name = (Path("./__old__") / path).String();
    std::weak_ptr<IProjectFile> file = ProjectFileManager::instance().GetFile(name, kCacheFileMode, 1);
    data->SetFile(file);
    data->id = path;
    data->proxy = MakeProxy(file, kCacheBlockSize, kCacheTables, 0);
    data->read_only = true;
    if (auto opened = file.lock()) opened->SetAutoRemove(true);
    return std::make_shared<ManagedFileCache>(std::move(data));
}

std::shared_ptr<IDeviceChannel> CreateExternFileCache(const std::string& path) {
    return std::make_shared<ExternalFileCache>(path, Tessel::CFile::ModeRead);
}

void EnableLazyFileCreate(bool enable, unsigned int value) {
    g_lazy_create.store(enable);
    g_lazy_value.store(value);
}
