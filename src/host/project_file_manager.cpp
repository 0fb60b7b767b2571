#include "host/project_file_manager.h"

#include "host/logger.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

class ProjectFile final : public IProjectFile {
public:
    ProjectFile(std::string name, std::string path, bool of_loaded_project)
        : name_(std::move(name)), path_(std::move(path)), of_loaded_project_(of_loaded_project) {}

    ~ProjectFile() override {
        file_.Close();
        if (!auto_remove_ || of_loaded_project_) return;
        std::error_code error;
        fs::remove(path_, error);
        if (error)
            CLogger::DefaultLogger().Warning("project file '{}': cannot remove: {}", path_, error.message());
    }

    bool Open(unsigned mode) { return file_.Open(path_, mode); }

    Tessel::CFile* GetCFile() override { return file_.IsOpen() ? &file_ : nullptr; }
    const std::string& Name() const override { return name_; }
    std::string FullPath() const override { return path_; }
    void SetAutoRemove(bool autoRemove) override { auto_remove_ = autoRemove; }
    bool GetAutoRemove() const override { return auto_remove_; }
    void SetReady(int ready) override { ready_ = ready; }
    int IsReady() const override { return ready_; }
    void SetExtraFlag(int flag) override { extra_flag_ = flag; }
    int GetExtraFlag() const override { return extra_flag_; }

private:
    const std::string name_;
    const std::string path_;
    const bool of_loaded_project_;
    Tessel::CFile file_;
    std::atomic<bool> auto_remove_{false};
    std::atomic<int> ready_{0};
    std::atomic<int> extra_flag_{0};
};

// The normalised form of a name relative to the project folder; nullopt when the name is
// empty, absolute, leaves the folder, or names no file.
std::optional<std::string> NormaliseName(const std::string& name) {
    if (name.empty()) return std::nullopt;
    const fs::path raw(name);
    if (raw.has_root_path()) return std::nullopt;
    const fs::path normal = raw.lexically_normal();
    if (normal.empty() || *normal.begin() == "..") return std::nullopt;
    const fs::path file = normal.filename();
    if (file.empty() || file == "." || file == "..") return std::nullopt;
    return normal.generic_string();
}

std::string DefaultFolder() {
    static std::atomic<unsigned> counter{0};
    std::error_code error;
    fs::path temp = fs::temp_directory_path(error);
    if (error) temp = "/tmp";
    return (temp / fmt::format("wavestore-{}-{}", ::getpid(), ++counter)).string();
}

}  // namespace

IProjectFile::~IProjectFile() = default;

// Collects messages while our lock is held and writes them when it goes out of scope;
// declared before the lock, so log observers never run under it.
class ProjectFileManager::DeferredLog {
public:
    DeferredLog() = default;
    DeferredLog(const DeferredLog&) = delete;
    DeferredLog& operator=(const DeferredLog&) = delete;
    ~DeferredLog() {
        for (const auto& [level, text] : lines_) CLogger::DefaultLogger().Log(level, text);
    }
    template <class... Args>
    void Add(LogLevel level, fmt::format_string<Args...> format, Args&&... args) {
        lines_.emplace_back(level, fmt::format(format, std::forward<Args>(args)...));
    }

private:
    std::vector<std::pair<LogLevel, std::string>> lines_;
};

ProjectFileManager& ProjectFileManager::instance() {
    static ProjectFileManager manager;
    return manager;
}

ProjectFileManager::ProjectFileManager(std::string folder) {
    CLogger::DefaultLogger();  // destroyed after the singleton, which may log at exit
    if (folder.empty()) {
        folder_ = DefaultFolder();
        default_folder_ = folder_;
    } else {
        std::error_code error;
        const fs::path absolute = fs::absolute(folder, error);
        folder_ = (error ? fs::path(folder) : absolute).lexically_normal().string();
    }
}

ProjectFileManager::~ProjectFileManager() {
    ReleaseAll();
    // Our temporary folder goes if nothing is left in it (remove() keeps a non-empty one).
    std::error_code error;
    if (!default_folder_.empty()) fs::remove(default_folder_, error);
}

std::string ProjectFileManager::FolderLocked(DeferredLog& log) const {
    if (!folder_ready_) {
        std::error_code error;
        fs::create_directories(folder_, error);
        if (error || !fs::is_directory(folder_, error)) {
            log.Add(LogLevel::Error, "project folder '{}' cannot be created: {}", folder_,
                    error ? error.message() : std::string("not a folder"));
            return {};
        }
        folder_ready_ = true;
    }
    return folder_;
}

void ProjectFileManager::SetProjectFolder(const std::string& folder) {
    if (folder.empty()) {
        CLogger::DefaultLogger().Error("project folder: empty path ignored");
        return;
    }
    std::error_code error;
    fs::path absolute = fs::absolute(folder, error);
    if (!error) {
        absolute = absolute.lexically_normal();
        fs::create_directories(absolute, error);
    }
    if (error || !fs::is_directory(absolute, error)) {
        CLogger::DefaultLogger().Error("project folder '{}' cannot be created: {}", folder,
                                       error ? error.message() : std::string("not a folder"));
        return;
    }
    std::lock_guard lock(mutex_);
    if (!default_folder_.empty() && default_folder_ != absolute.string())
        fs::remove(default_folder_, error);  // our temporary folder, if empty
    folder_ = absolute.string();
    folder_ready_ = true;
}

std::string ProjectFileManager::GetProjectFolder() const {
    DeferredLog log;
    std::lock_guard lock(mutex_);
    FolderLocked(log);
    return folder_;
}

std::string ProjectFileManager::GenUniqueFileName() {
    DeferredLog log;
    std::lock_guard lock(mutex_);
    FolderLocked(log);
    const fs::path folder(folder_);
    for (;;) {
        std::string name = fmt::format("cache-{:06}.wsc", next_unique_++);
        std::error_code error;
        if (files_.count(name) == 0 && !fs::exists(folder / name, error) && !error) return name;
    }
}

std::weak_ptr<IProjectFile> ProjectFileManager::GetFile(const std::string& name, unsigned mode, int flag) {
    DeferredLog log;
    const std::optional<std::string> key = NormaliseName(name);
    if (!key) {
        log.Add(LogLevel::Warning, "project file '{}': not a file name inside the project folder", name);
        return {};
    }
    if (flag != 0 && flag != 1) {
        log.Add(LogLevel::Warning, "project file '{}': unknown flag {}", name, flag);
        return {};
    }

    std::lock_guard lock(mutex_);
    if (const auto it = files_.find(*key); it != files_.end()) return it->second;

    const std::string folder = FolderLocked(log);
    if (folder.empty()) return {};
    const fs::path path = fs::path(folder) / *key;
    std::error_code error;
    if (flag == 1) {
        if (!fs::is_regular_file(path, error)) {
            log.Add(LogLevel::Warning, "project file '{}': no such file of the loaded project ({})", name,
                    path.string());
            return {};
        }
        // The loaded project's data is read as it is: never created nor cut here.
        mode &= ~unsigned{Tessel::CFile::ModeCreate | Tessel::CFile::ModeTruncate};
    } else if (mode & Tessel::CFile::ModeCreate) {
        fs::create_directories(path.parent_path(), error);
        if (error) {
            log.Add(LogLevel::Error, "project file '{}': cannot create its folder: {}", name, error.message());
            return {};
        }
    }

    auto file = std::make_shared<ProjectFile>(name, path.string(), flag == 1);
    if (!file->Open(mode)) {
        log.Add(LogLevel::Error, "project file '{}': cannot open {} with mode {}", name, path.string(), mode);
        return {};
    }
    files_.emplace(*key, file);
    return file;
}

bool ProjectFileManager::ReleaseFile(const std::string& name) {
    const std::optional<std::string> key = NormaliseName(name);
    if (!key) return false;
    std::shared_ptr<IProjectFile> dropped;
    {
        std::lock_guard lock(mutex_);
        const auto it = files_.find(*key);
        if (it == files_.end()) return false;
        dropped = std::move(it->second);
        files_.erase(it);
    }
    return true;  // dropped (closed, maybe deleted) outside the lock
}

void ProjectFileManager::ReleaseAll() {
    std::map<std::string, std::shared_ptr<IProjectFile>> dropped;
    {
        std::lock_guard lock(mutex_);
        dropped.swap(files_);
    }
}

std::vector<std::string> ProjectFileManager::OpenFiles() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    names.reserve(files_.size());
    for (const auto& entry : files_) names.push_back(entry.first);
    return names;
}
