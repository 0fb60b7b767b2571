#pragma once
// Path: a thin wrapper over std::filesystem::path with the few operations the store uses.
//
// Choices: String() is the generic form ('/' separators). Joining follows
// std::filesystem, so joining an absolute path replaces the left side. Nothing here
// throws: file system errors turn into false.

#include <filesystem>
#include <string>
#include <utility>

class Path {
public:
    Path() = default;
    explicit Path(const std::string& text) : path_(text) {}
    explicit Path(const char* text) : path_(text ? text : "") {}
    explicit Path(std::filesystem::path path) : path_(std::move(path)) {}

    Path operator/(const std::string& part) const { return Path(path_ / part); }
    Path operator/(const Path& part) const { return Path(path_ / part.path_); }

    std::string String() const { return path_.generic_string(); }
    const std::filesystem::path& Native() const { return path_; }

    Path Parent() const { return Path(path_.parent_path()); }
    std::string FileName() const { return path_.filename().generic_string(); }
    bool IsAbsolute() const { return path_.is_absolute(); }
    // Lexically normal form: "/p/./__old__/a.dat" -> "/p/__old__/a.dat". Does not touch the disk.
    Path Normalized() const { return Path(path_.lexically_normal()); }
    // False also when the state cannot be queried.
    bool Exists() const;

    // Creates the directory and missing parents; true if it is a directory afterwards.
    static bool CreateDirectories(const Path& path);
    // Removes a file or an empty directory; true if nothing exists at path afterwards
    // (so a missing path is success, a non-empty directory is failure).
    static bool Remove(const Path& path);

    bool operator==(const Path& other) const { return path_ == other.path_; }

private:
    std::filesystem::path path_;
};
