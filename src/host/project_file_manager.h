#pragma once
// Project files: IProjectFile (one open file of the project) and ProjectFileManager,
// which owns them and resolves their names against the project folder.
//
// Choices made here:
// - Names are relative to the project folder and normalised ("./a//b.wsc" is "a/b.wsc");
//   "__old__/" holds the files of the loaded project. Absolute names, names that leave
//   the folder ("../x") and names without a file part are refused (empty weak_ptr,
//   warning logged).
// - Flag 0: a file of this project, opened with the caller's mode (read|write|create = 19
//   creates it and its parent folders). Flag 1: an existing file of the loaded project,
//   opened with the caller's mode less create and truncate; a missing one gives an empty
//   weak_ptr and a warning. Any other flag is refused.
// - Auto-removal deletes a file of this project when it is released. A file of the
//   loaded project (flag 1) belongs to the saved project, not to this session: it is
//   never deleted by this manager, whatever its auto-removal says, so that loading a
//   project and closing it again leaves the project as it was.
//   A file that cannot be opened is not kept: the caller gets an empty weak_ptr and an
//   error is logged. So GetCFile() of a file handed out by the manager is never null.
// - The same name (after normalisation) gives the same object while it is open; the
//   mode and flag of a later request are then ignored.
// - The manager owns the files; callers hold weak pointers. A released file closes (and,
//   with auto-remove, is deleted from disk) once the last shared_ptr a caller may have
//   taken through lock() is gone.
// - Files already open keep their place when the project folder changes.
// - The default project folder is "<temp>/wavestore-<pid>-<n>", created on first use and
//   removed (when empty) once the folder is changed and again at destruction.

#include "host/file.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class IProjectFile {
public:
    // The open file; null only if it is not open.
    virtual Tessel::CFile* GetCFile() = 0;
    // The name given to GetFile when the file was first requested.
    virtual const std::string& Name() const = 0;
    // Absolute path on disk.
    virtual std::string FullPath() const = 0;
    // Delete the file from disk when it is dropped (default off).
    virtual void SetAutoRemove(bool autoRemove) = 0;
    // A readiness state kept for the host (default 0).
    virtual void SetReady(int ready) = 0;
    virtual int IsReady() const = 0;
    // A further host flag, stored only (default 0).
    virtual void SetExtraFlag(int flag) = 0;
    virtual int GetExtraFlag() const = 0;
    virtual bool GetAutoRemove() const = 0;

    // Declared after the operations, which keep the first places in the interface.
    virtual ~IProjectFile();
};

class ProjectFileManager {
public:
    // The process-wide manager, with the default temporary project folder.
    static ProjectFileManager& instance();

    // A manager on `folder` (created on first use); empty gives the default folder.
    explicit ProjectFileManager(std::string folder = {});
    // Releases every file (auto-removed ones are deleted).
    ~ProjectFileManager();
    ProjectFileManager(const ProjectFileManager&) = delete;
    ProjectFileManager& operator=(const ProjectFileManager&) = delete;

    // Makes `folder` (made absolute) the project folder and creates it. An empty folder,
    // or one that cannot be created, is logged and leaves the folder unchanged.
    void SetProjectFolder(const std::string& folder);
    // The project folder, absolute; created if it does not exist yet.
    std::string GetProjectFolder() const;

    // A file name ("cache-000001.wsc", ...) that no open project file uses and that does
    // not exist in the project folder; never the same twice from one manager.
    std::string GenUniqueFileName();

    // The project file `name` (see above for names, modes and flags).
    std::weak_ptr<IProjectFile> GetFile(const std::string& name, unsigned mode, int flag);

    // Drops the file `name`; false if it is not open.
    bool ReleaseFile(const std::string& name);
    void ReleaseAll();

    // Normalised names of the open files, sorted.
    std::vector<std::string> OpenFiles() const;

private:
    class DeferredLog;
    // Needs mutex_. Creates the folder if needed; empty on failure (added to log).
    std::string FolderLocked(DeferredLog& log) const;

    mutable std::mutex mutex_;
    mutable std::string folder_;
    mutable bool folder_ready_ = false;
    std::string default_folder_;  // the temporary folder of a manager made without one
    uint64_t next_unique_ = 1;
    std::map<std::string, std::shared_ptr<IProjectFile>> files_;  // by normalised name
};
