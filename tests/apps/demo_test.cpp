// Runs the demo host on a small capture in quiet mode and checks what it leaves: the
// report and two pictures that are valid PNG images.

#include <gtest/gtest.h>

#include <png.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// Width and height of a valid PNG file; 0 x 0 when libpng can't read it.
std::pair<unsigned, unsigned> PngSize(const fs::path& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return {0, 0};
    std::vector<png_byte> pixels(PNG_IMAGE_SIZE(image));
    const bool ok = png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0;
    png_image_free(&image);
    return ok ? std::pair{image.width, image.height} : std::pair{0u, 0u};
}

int RunDemo(const std::string& arguments) {
    const std::string command = std::string(WAVESTORE_DEMO_PATH) + " " + arguments + " > /dev/null 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Demo, QuietRunLeavesAReportAndTwoPictures) {
    const fs::path output = fs::temp_directory_path() / ("wavestore-demo-test-" + std::to_string(::getpid()));
    fs::remove_all(output);
    ASSERT_EQ(RunDemo("--quiet --size 8M --pool 32 --output " + output.string()), 0);
    const std::string report = ReadText(output / "report.txt");
    EXPECT_NE(report.find("recorded 8.0 MiB (2097152 samples)"), std::string::npos) << report;
    EXPECT_NE(report.find("view whole capture"), std::string::npos);
    EXPECT_NE(report.find("1000 columns"), std::string::npos);
    EXPECT_NE(report.find("search forward"), std::string::npos);
    EXPECT_NE(report.find("cache files in"), std::string::npos);
    EXPECT_EQ(PngSize(output / "whole.png"), (std::pair{1000u, 300u}));
    EXPECT_EQ(PngSize(output / "zoom.png"), (std::pair{1000u, 300u}));
    fs::remove_all(output);
}

TEST(Demo, BadOptionsGiveAMessageAndAnError) {
    EXPECT_NE(RunDemo("--size lots"), 0);
    EXPECT_NE(RunDemo("--type complex"), 0);
    EXPECT_NE(RunDemo("--pool 1"), 0);
    EXPECT_NE(RunDemo("--no-such-option"), 0);
    EXPECT_EQ(RunDemo("--help"), 0);
}

}  // namespace
