// A cache file made for a channel goes with the channel, closed and removed, unless a
// saved project keeps it; a file of the loaded project stays open for its other users.

#include "host/project_file_manager.h"
#include "storage/device_channels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

bool IsOpen(const std::string& name) {
    const auto open = ProjectFileManager::instance().OpenFiles();
    return std::find(open.begin(), open.end(), name) != open.end();
}

TEST(CacheFileLifetime, GoesWithItsChannelUnlessKept) {
    std::string folder = (fs::temp_directory_path() / "cache-lifetime-XXXXXX").string();
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    ProjectFileManager::instance().SetProjectFolder(folder);
    const char byte = 7;

    auto scratch = CreateLocalFileCache(1);
    auto kept = CreateLocalFileCache(0);
    const std::string scratch_id = std::dynamic_pointer_cast<IFileCache>(scratch)->GetId();
    const std::string kept_id = std::dynamic_pointer_cast<IFileCache>(kept)->GetId();
    ASSERT_EQ(scratch->Write(&byte, 1, 0), 1);
    ASSERT_EQ(kept->Write(&byte, 1, 0), 1);
    std::dynamic_pointer_cast<IFileCache>(kept)->SetKeep(true);
    ASSERT_TRUE(IsOpen(scratch_id) && fs::exists(fs::path(folder) / scratch_id));
    scratch.reset();
    kept.reset();
    EXPECT_FALSE(IsOpen(scratch_id));
    EXPECT_FALSE(fs::exists(fs::path(folder) / scratch_id));
    EXPECT_TRUE(IsOpen(kept_id));
    EXPECT_TRUE(fs::exists(fs::path(folder) / kept_id));

    // Two channels on one file of the loaded project: the second reads on when the first goes.
    fs::create_directories(fs::path(folder) / "__old__");
    std::ofstream(fs::path(folder) / "__old__" / "raw.dat", std::ios::binary) << "raw";
    auto first = LoadLocalFileCache("raw.dat");
    auto second = LoadLocalFileCache("raw.dat");
    first.reset();
    char back[3] = {};
    EXPECT_EQ(second->Read(back, 3, 0), 3);
    EXPECT_EQ(std::string(back, 3), "raw");

    second.reset();
    ProjectFileManager::instance().ReleaseAll();
    fs::remove_all(folder);
}

}  // namespace
