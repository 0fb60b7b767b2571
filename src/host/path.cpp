#include "host/path.h"

#include <system_error>

namespace fs = std::filesystem;

bool Path::Exists() const {
    std::error_code ec;
    return fs::exists(path_, ec) && !ec;
}

bool Path::CreateDirectories(const Path& path) {
    if (path.path_.empty()) return false;
    try {
        std::error_code ec;
        fs::create_directories(path.path_, ec);
        return fs::is_directory(path.path_, ec) && !ec;
    } catch (...) {  // allocation failure inside the library
        return false;
    }
}

bool Path::Remove(const Path& path) {
    if (path.path_.empty()) return false;
    try {
        std::error_code ec;
        fs::remove(path.path_, ec);
        if (ec) return false;
        const fs::file_status status = fs::symlink_status(path.path_, ec);
        return status.type() == fs::file_type::not_found;
    } catch (...) {
        return false;
    }
}
