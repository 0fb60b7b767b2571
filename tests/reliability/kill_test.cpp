// kill -9 while recording: the recording program appends the pattern to three storages
// on version-1 managed files and reports every sync with the count it reached; it is
// killed at a random moment (seeded: WAVESTORE_KILL_SEED, 1 by default), as many times
// as WAVESTORE_KILL_RUNS says (100 by default). Each time every file must still open as
// version 1, hold at least what its last reported sync reached, and read back right.

#include "host/path.h"
#include "host/project_file_manager.h"
#include "reliability/pattern.h"
#include "reliability/recording.h"
#include "reliability/watchdog.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/file_proxy.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kStreams = reliability::kRecordedUnitSizes.size();

// The recording program, its output pipe, and what it has reported so far.
class Recorder {
public:
    Recorder(const fs::path& folder, uint64_t seed) {
        int fds[2];
        if (::pipe(fds) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_addclose(&actions, fds[1]);
        const std::string program = WAVESTORE_RECORDER_PATH;
        const std::string folder_text = folder.string();
        const std::string seed_text = std::to_string(seed);
        char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(folder_text.c_str()),
                        const_cast<char*>(seed_text.c_str()), nullptr};
        const int spawned = posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        out_ = fds[0];
        if (spawned != 0) {
            ::close(out_);
            throw std::runtime_error("cannot start " + program);
        }
    }
    ~Recorder() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(out_);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Takes in what the program reports until `until`, or until it has named its files
    // when wait_for_files is set. False at the end of the output.
    bool Listen(Clock::time_point until, bool wait_for_files) {
        for (;;) {
            if (wait_for_files && !files_.empty()) return true;
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
            if (left <= 0) return true;
            pollfd ready{out_, POLLIN, 0};
            if (::poll(&ready, 1, static_cast<int>(left)) <= 0) continue;
            char buffer[4096];
            const ssize_t n = ::read(out_, buffer, sizeof buffer);
            if (n <= 0) return false;
            pending_.append(buffer, static_cast<std::size_t>(n));
            for (std::size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1))
                Take(pending_.substr(0, end));
        }
    }

    // Kills the program and takes in the rest of its output; gives its wait status.
    int Kill() {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        Listen(Clock::now() + std::chrono::seconds(10), false);
        return status;
    }

    const std::vector<std::string>& Files() const { return files_; }
    const std::array<uint64_t, kStreams>& Flushed() const { return flushed_; }
    uint64_t Syncs() const { return syncs_; }

private:
    void Take(const std::string& line) {
        std::istringstream in(line);
        std::string word;
        in >> word;
        if (word == "files") {
            for (std::string id; in >> id;) files_.push_back(id);
        } else if (word == "flushed") {
            std::size_t storage = 0;
            uint64_t count = 0;
            if (in >> storage >> count && storage < kStreams) {
                flushed_[storage] = count;
                ++syncs_;
            }
        }
    }

    pid_t pid_ = -1;
    int out_ = -1;
    std::string pending_;
    std::vector<std::string> files_;
    std::array<uint64_t, kStreams> flushed_{};
    uint64_t syncs_ = 0;
};

// The header of the file at path passes every test of a version-1 header.
::testing::AssertionResult OpensAsVersion1(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<unsigned char, FileHeader::kSize> image{};
    if (!file.read(reinterpret_cast<char*>(image.data()), image.size()))
        return ::testing::AssertionFailure() << path << " has no whole header";
    if (auto problem = CheckHeader(image.data(), fs::file_size(path)))
        return ::testing::AssertionFailure() << path << ": " << *problem;
    return ::testing::AssertionSuccess();
}

// Opens a file of the killed program as a project's loaded file and reads it whole
// through a storage: it holds at least the synced units, and all of its units read right.
void CheckStorage(const std::string& id, std::size_t stream, uint64_t flushed, const std::string& run) {
    const std::size_t unit = reliability::kRecordedUnitSizes[stream];
    uint64_t right = 0;
    {
        CStorage storage(LoadLocalFileCache(id), static_cast<uint32_t>(unit));
        const uint64_t count = storage.Count();
        EXPECT_GE(count, flushed) << run << ": storage " << stream << " lost synced units";
        std::vector<unsigned char> buffer(65536 * unit);
        while (right < count) {
            const uint64_t want = std::min<uint64_t>(65536, count - right);
            const uint64_t got = storage.Read(right, buffer.data(), want);
            const uint64_t good = reliability::FirstWrongUnit(stream, right, got, unit, buffer.data());
            right += good;
            if (good != want) {
                ADD_FAILURE() << run << ": storage " << stream << " reads " << (good == got ? "nothing" : "wrong data")
                              << " at unit " << right << " of " << count << " (" << flushed << " synced)";
                break;
            }
        }
    }
    ProjectFileManager::instance().ReleaseFile((Path("./__old__") / id).String());
}

TEST(KillNine, EveryKillLeavesVersion1FilesWithAllSyncedDataReadingRight) {
    const long runs = reliability::EnvCount("WAVESTORE_KILL_RUNS", 100);
    const long seed = reliability::EnvCount("WAVESTORE_KILL_SEED", 1);
    std::mt19937_64 random(static_cast<uint64_t>(seed));
    const std::string project = ProjectFileManager::instance().GetProjectFolder();
    const fs::path root = fs::temp_directory_path() / ("wavestore-kill-" + std::to_string(::getpid()));
    uint64_t syncs = 0;
    reliability::RunWithin(std::chrono::seconds(60 + 10 * runs), "kill runs", [&] {
        for (long n = 0; n < runs && !HasFailure(); ++n) {
            const std::string run = "seed " + std::to_string(seed) + " run " + std::to_string(n);
            fs::remove_all(root);
            fs::create_directories(root / "__old__");
            Recorder recorder(root / "__old__", random());
            // Killed half the time early, while the first blocks are written, else later.
            const auto delay = std::chrono::milliseconds(random() % 2 ? random() % 40 : 40 + random() % 360);
            ASSERT_TRUE(recorder.Listen(Clock::now() + std::chrono::seconds(30), true)) << run << ": no files named";
            ASSERT_EQ(recorder.Files().size(), kStreams) << run;
            recorder.Listen(Clock::now() + delay, false);
            const int status = recorder.Kill();
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << run << ": the program ended by itself";

            ProjectFileManager::instance().SetProjectFolder(root.string());
            for (std::size_t s = 0; s < kStreams; ++s) {
                const fs::path file = root / "__old__" / recorder.Files()[s];
                ASSERT_TRUE(OpensAsVersion1(file)) << run;
                CheckStorage(recorder.Files()[s], s, recorder.Flushed()[s], run);
            }
            ProjectFileManager::instance().SetProjectFolder(project);
            syncs += recorder.Syncs();
        }
    });
    ProjectFileManager::instance().SetProjectFolder(project);
    fs::remove_all(root);
    RecordProperty("syncs", static_cast<int>(syncs));
    EXPECT_GT(syncs, 0u);
}

}  // namespace
