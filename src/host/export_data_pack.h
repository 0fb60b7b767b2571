#pragma once
// ExportDataPack: an export package in a folder: one file per named stream, plus a
// "manifest.xml" written by Commit that lists each stream and its file.
//
// Choices made here:
// - A file id is 16 random hexadecimal digits and is the file's name in the folder; it
//   never names a file that already exists there. The folder is created when needed.
// - Requesting a stream name again gives a new, empty file that replaces the earlier one
//   in the package; Commit deletes the replaced files from the folder.
// - Commit flushes and closes every stream file (the shared_ptr handed out then holds a
//   closed file), so writers must be done before it. Commit runs once: later calls, and
//   RequestExportFile after it, fail. An uncommitted package leaves its files in place.
// - Manifest: <exportDataPack version="1"><stream name="Wave" file="<id>"/>...</...>.

#include "host/file.h"

#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

class ExportDataPack {
public:
    explicit ExportDataPack(std::string folder);
    ExportDataPack(const ExportDataPack&) = delete;
    ExportDataPack& operator=(const ExportDataPack&) = delete;

    // A new file for the stream `name`, opened read|write|create|truncate; null for an
    // empty name, after Commit, or when the file cannot be created (logged).
    std::shared_ptr<Tessel::CFile> RequestExportFile(const std::string& name);

    // The package folder, as given.
    std::string GetSaveParameter() const;

    // Stream name -> file id.
    std::map<std::string, std::string> GetFileIdMap() const;

    // Flushes and closes the streams and writes the manifest; true on success.
    bool Commit();

private:
    struct Stream {
        std::string id;
        std::shared_ptr<Tessel::CFile> file;
    };

    mutable std::mutex mutex_;
    const std::string folder_;
    std::map<std::string, Stream> streams_;
    std::vector<std::string> replaced_;  // ids of files no longer in the package
    std::mt19937_64 random_;
    bool committed_ = false;
};
