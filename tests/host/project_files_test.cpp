#include "host/configuration.h"
#include "host/export_data_pack.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr unsigned kReadWriteCreate = 19;

class HostFiles : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() / ("wavestore-host-test-" + std::to_string(::getpid()) + "-" +
                                            std::to_string(++counter));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    static void Write(const fs::path& path, const std::string& text) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string Read(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    fs::path dir_;
};

}  // namespace

TEST_F(HostFiles, UniqueNamesAndSameNameGivesSameObject) {
    ProjectFileManager manager(dir_.string());
    Write(dir_ / "cache-000001.wsc", "taken");
    std::vector<std::vector<std::string>> names(4);
    std::vector<std::shared_ptr<IProjectFile>> got(4);  // many threads asking at once
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < names.size(); ++t)
        threads.emplace_back([&, t] {
            got[t] = manager.GetFile("b/c.wsc", kReadWriteCreate, 0).lock();
            for (int i = 0; i < 200; ++i) names[t].push_back(manager.GenUniqueFileName());
        });
    for (auto& thread : threads) thread.join();
    std::set<std::string> all;
    for (const auto& list : names) all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), 800u);
    EXPECT_EQ(all.count("cache-000001.wsc"), 0u);

    auto first = manager.GetFile("a.wsc", kReadWriteCreate, 0).lock();
    ASSERT_TRUE(first && first->GetCFile());
    EXPECT_EQ(fs::path(first->FullPath()), dir_ / "a.wsc");
    for (const char* same : {"./a.wsc", "x/../a.wsc"}) EXPECT_EQ(manager.GetFile(same, kReadWriteCreate, 0).lock(), first);
    ASSERT_TRUE(got[0]);
    for (const auto& file : got) EXPECT_EQ(file, got[0]);
    EXPECT_TRUE(fs::is_regular_file(dir_ / "b" / "c.wsc"));  // parent folder created
    EXPECT_EQ(manager.OpenFiles(), (std::vector<std::string>{"a.wsc", "b/c.wsc"}));
}

TEST_F(HostFiles, LoadedFilesMustExistBadNamesAreRefusedAndReleaseAutoRemoves) {
    std::weak_ptr<IProjectFile> kept, temp, on_exit;
    {
        testing_support::LogCapture log;
        ProjectFileManager manager(dir_.string());
        EXPECT_TRUE(manager.GetFile("./__old__/missing.wsc", kReadWriteCreate, 1).expired());
        EXPECT_FALSE(fs::exists(dir_ / "__old__" / "missing.wsc"));  // not created
        EXPECT_TRUE(log.ContainsSubstring("missing.wsc"));
        Write(dir_ / "__old__" / "x.wsc", "abc");
        auto old = manager.GetFile("./__old__/x.wsc", kReadWriteCreate, 1).lock();
        ASSERT_TRUE(old && old->GetCFile());
        EXPECT_EQ(fs::path(old->FullPath()), dir_ / "__old__" / "x.wsc");
        char buffer[8] = {};
        EXPECT_EQ(old->GetCFile()->Read(buffer, sizeof buffer), 3);
        EXPECT_STREQ(buffer, "abc");
        EXPECT_EQ(manager.GetFile("__old__/x.wsc", kReadWriteCreate, 1).lock(), old);
        // A file of the loaded project outlives its release, even with auto-removal on.
        old->SetAutoRemove(true);
        old.reset();
        EXPECT_TRUE(manager.ReleaseFile("__old__/x.wsc"));
        EXPECT_TRUE(fs::exists(dir_ / "__old__" / "x.wsc"));
        for (const char* name : {"", "/etc/passwd", "../outside.wsc", "a/../../outside.wsc", "dir/", "."})
            EXPECT_TRUE(manager.GetFile(name, kReadWriteCreate, 0).expired()) << name;
        EXPECT_TRUE(manager.GetFile("ok.wsc", kReadWriteCreate, 2).expired());
        EXPECT_TRUE(manager.GetFile("nocreate.wsc", 3, 0).expired());  // missing, no create bit
        EXPECT_FALSE(fs::exists(dir_.parent_path() / "outside.wsc"));

        kept = manager.GetFile("kept.wsc", kReadWriteCreate, 0);
        temp = manager.GetFile("temp.wsc", kReadWriteCreate, 0);
        on_exit = manager.GetFile("sub/exit.wsc", kReadWriteCreate, 0);
        auto holder = temp.lock();
        ASSERT_TRUE(holder && !kept.expired() && !on_exit.expired());
        holder->SetAutoRemove(true);
        on_exit.lock()->SetAutoRemove(true);
        EXPECT_TRUE(manager.ReleaseFile("kept.wsc"));
        EXPECT_TRUE(kept.expired());
        EXPECT_TRUE(fs::exists(dir_ / "kept.wsc"));  // not auto-removed
        EXPECT_FALSE(manager.ReleaseFile("kept.wsc"));
        // A caller still holding the file delays its removal until it lets go.
        EXPECT_TRUE(manager.ReleaseFile("./temp.wsc"));
        EXPECT_TRUE(fs::exists(dir_ / "temp.wsc"));
        holder.reset();
        EXPECT_TRUE(temp.expired());
        EXPECT_FALSE(fs::exists(dir_ / "temp.wsc"));
        // Open files keep their place; new ones go to the new folder.
        manager.SetProjectFolder((dir_ / "project").string());
        EXPECT_TRUE(manager.GetFile("g.wsc", kReadWriteCreate, 0).lock());
        EXPECT_TRUE(fs::exists(dir_ / "project" / "g.wsc"));
    }
    EXPECT_TRUE(on_exit.expired());  // the manager's end released it
    EXPECT_FALSE(fs::exists(dir_ / "sub" / "exit.wsc"));
}

TEST(ProjectFileManager, DefaultFolderIsTemporaryAndRemovedAtTheEnd) {
    std::string folder;
    {
        ProjectFileManager manager;
        folder = manager.GetProjectFolder();
        auto file = manager.GetFile("f.wsc", kReadWriteCreate, 0).lock();
        ASSERT_TRUE(file && fs::is_regular_file(fs::path(folder) / "f.wsc"));
        file->SetAutoRemove(true);
    }
    EXPECT_FALSE(fs::exists(folder));  // emptied by the auto-removal, then removed
    fs::remove_all(folder);
}

TEST(Configuration, PathsAreNormalisedEntriesTypedAndThreadsSeeTheirOwnWrites) {
    Configuration config;
    config.SetString("/a//b/", "x");
    EXPECT_EQ(config.GetString("a/b"), "x");
    EXPECT_FALSE(config.Has("a"));  // a value lives only where it was set

    const uint8_t bytes[] = {0, 1, 255};
    config.SetBinary("a/bin", bytes, sizeof bytes);
    std::vector<uint8_t> out{9};
    EXPECT_FALSE(config.GetBinary("a/b", out));  // a string entry
    EXPECT_EQ(out, std::vector<uint8_t>{9});
    EXPECT_EQ(config.GetString("a/bin", "def"), "def");

    for (const char* bad : {"", "///", "bad\npath"}) config.SetString(bad, "v");
    config.SetBinary("nullbin", nullptr, 3);
    EXPECT_EQ(config.Keys(), (std::vector<std::string>{"a/b", "a/bin"}));
    config.SetString("ab", "sibling");
    EXPECT_TRUE(config.Remove("a"));  // the subtree, not the sibling "ab"
    EXPECT_EQ(config.Keys(), std::vector<std::string>{"ab"});
    EXPECT_FALSE(config.Remove("a"));

    std::atomic<int> bad_reads{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, mine = "t" + std::to_string(t)] {
            for (int i = 0; i < 300; ++i) {
                config.SetString(mine + "/v", std::to_string(i));
                bad_reads += config.GetString(mine + "/v") != std::to_string(i);
                if (i % 3 == 0) config.Remove(mine);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(bad_reads.load(), 0);
}

TEST_F(HostFiles, ConfigurationRoundTripKeepsEveryValueAndBadFilesChangeNothing) {
    Configuration config;
    const std::vector<std::pair<std::string, std::string>> strings = {
        {"plain", "hello"}, {"empty", ""}, {"spaces", "   "}, {"markup", "<a x=\"1\">&amp;</a>"},
        {"lines", " a\n\tb \n"}, {"crlf", "a\r\nb"}, {"control", std::string("x\x01y\0z", 5)},
        {"deep/path/k", "\xc3\xa9t\xc3\xa9"}};
    for (const auto& [path, value] : strings) config.SetString(path, value);
    std::vector<uint8_t> all_bytes(256);
    std::iota(all_bytes.begin(), all_bytes.end(), uint8_t{0});
    config.SetBinary("bin/all", all_bytes.data(), all_bytes.size());
    config.SetBinary("bin/empty", nullptr, 0);
    const std::string file = (dir_ / "config.xml").string();
    ASSERT_TRUE(config.SaveToFile(file));
    Configuration loaded;
    loaded.SetString("stale", "dropped on load");
    ASSERT_TRUE(loaded.LoadFromFile(file));
    EXPECT_EQ(loaded.Keys(), config.Keys());
    for (const auto& [path, value] : strings) EXPECT_EQ(loaded.GetString(path, "?"), value) << path;
    std::vector<uint8_t> out, empty{1};
    EXPECT_TRUE(loaded.GetBinary("bin/all", out) && loaded.GetBinary("bin/empty", empty) && empty.empty());
    EXPECT_EQ(out, all_bytes);

    ASSERT_TRUE(loaded.SaveToFile(file));  // over the old one, leaving no temporary file
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);

    // Bad files change nothing.
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"truncated", "<configuration><entry path=\"a\" kind=\"string\">x</entr"},
        {"wrong-root", "<settings><entry path=\"a\" kind=\"string\">x</entry></settings>"},
        {"bad-base64", "<configuration><entry path=\"a\" kind=\"binary\">@@@</entry></configuration>"},
        {"bad-kind", "<configuration><entry path=\"a\" kind=\"number\">1</entry></configuration>"},
        {"bad-path", "<configuration><entry path=\"a\" kind=\"string\">1</entry>"
                     "<entry path=\"/\" kind=\"string\">2</entry></configuration>"}};
    EXPECT_FALSE(loaded.LoadFromFile((dir_ / "missing.xml").string()));
    for (const auto& [name, text] : bad) {
        Write(dir_ / (name + ".xml"), text);
        EXPECT_FALSE(loaded.LoadFromFile((dir_ / (name + ".xml")).string())) << name;
    }
    EXPECT_EQ(loaded.Keys(), config.Keys());
    EXPECT_FALSE(config.SaveToFile((dir_ / "no" / "such.xml").string()));
}

TEST_F(HostFiles, ExportPackCommitWritesManifest) {
    const fs::path folder = dir_ / "export";
    ExportDataPack pack(folder.string());
    auto wave = pack.RequestExportFile("Wave");
    auto index = pack.RequestExportFile("Index & <meta>");
    ASSERT_TRUE(wave && index && wave->Write("samples", 7) == 7 && index->Write("idx", 3) == 3);
    const std::string first_wave_id = pack.GetFileIdMap().at("Wave");
    auto wave2 = pack.RequestExportFile("Wave");  // replaces the first; it goes at commit
    ASSERT_TRUE(wave2 && wave2->Write("more", 4) == 4);
    EXPECT_EQ(pack.RequestExportFile(""), nullptr);
    const auto ids = pack.GetFileIdMap();
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_NE(ids.at("Wave"), first_wave_id);

    ASSERT_TRUE(pack.Commit());
    EXPECT_FALSE(wave2->IsOpen());
    EXPECT_FALSE(fs::exists(folder / first_wave_id));
    EXPECT_EQ(Read(folder / ids.at("Wave")), "more");
    EXPECT_EQ(Read(folder / ids.at("Index & <meta>")), "idx");
    pugi::xml_document manifest;
    ASSERT_TRUE(manifest.load_file((folder / "manifest.xml").c_str()));
    std::map<std::string, std::string> listed;
    for (const auto node : manifest.document_element().children("stream"))
        listed[node.attribute("name").value()] = node.attribute("file").value();
    EXPECT_EQ(listed, ids);
    EXPECT_FALSE(pack.Commit());
    EXPECT_EQ(pack.RequestExportFile("Late"), nullptr);

    testing_support::LogCapture log;  // a folder below a plain file cannot be made
    ExportDataPack blocked((dir_ / "export" / "manifest.xml" / "pack").string());
    EXPECT_EQ(blocked.RequestExportFile("Wave"), nullptr);
    EXPECT_FALSE(blocked.Commit());
}
