// Replays the fuzz corpora: every file in corpus/<target>/ (seeds, and the crashers that
// were fixed) goes to that target's entry point, which aborts on a broken expectation;
// the sanitizers of the build catch the rest.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

// The fuzz targets' entry points, renamed by the build.
extern "C" int make_proxy_fuzz_entry(const uint8_t* data, size_t size);
extern "C" int xml_declarations_fuzz_entry(const uint8_t* data, size_t size);
extern "C" int wave_config_fuzz_entry(const uint8_t* data, size_t size);
extern "C" int dataset_record_fuzz_entry(const uint8_t* data, size_t size);

namespace {

struct Target {
    const char* name;
    int (*entry)(const uint8_t*, size_t);
};

const Target kTargets[] = {
    {"make_proxy_fuzz", make_proxy_fuzz_entry},
    {"xml_declarations_fuzz", xml_declarations_fuzz_entry},
    {"wave_config_fuzz", wave_config_fuzz_entry},
    {"dataset_record_fuzz", dataset_record_fuzz_entry},
};

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class FuzzReplay : public testing::TestWithParam<Target> {};

TEST_P(FuzzReplay, EveryCorpusFileRunsCleanly) {
    const Target& target = GetParam();
    const fs::path folder = fs::path(WAVESTORE_FUZZ_CORPUS) / target.name;
    ASSERT_TRUE(fs::is_directory(folder)) << folder;
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    ASSERT_FALSE(files.empty()) << folder << " holds no input";

    // The fuzzer always starts with the empty input.
    const uint8_t none = 0;
    EXPECT_EQ(target.entry(&none, 0), 0);
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.filename().string());
        const std::vector<uint8_t> bytes = ReadFile(file);
        EXPECT_EQ(target.entry(bytes.empty() ? &none : bytes.data(), bytes.size()), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, FuzzReplay, testing::ValuesIn(kTargets),
                         [](const testing::TestParamInfo<Target>& target) { return std::string(target.param.name); });

// A corpus folder that no target reads would be skipped silently.
TEST(FuzzCorpus, EveryFolderBelongsToATarget) {
    for (const fs::directory_entry& entry : fs::directory_iterator(WAVESTORE_FUZZ_CORPUS)) {
        const std::string name = entry.path().filename().string();
        const bool known = std::any_of(std::begin(kTargets), std::end(kTargets),
                                       [&](const Target& target) { return name == target.name; });
        EXPECT_TRUE(known) << name;
    }
}

}  // namespace
