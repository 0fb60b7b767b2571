// Runs the demo host on a small capture in quiet mode and checks what it leaves: the
// report, one picture per view with the trace drawn in its plot area, and the export.

#include "common/program.h"
#include "common/wave_plot.h"

#include <gtest/gtest.h>
#include <hdf5.h>
#include <png.h>

#include <algorithm>
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

struct Picture {
    unsigned width = 0, height = 0;  // 0 x 0 when libpng can't read the file
    std::vector<png_byte> rgb;
    // Pixels of the trace colour (yellow, also where anti-aliasing blends it into the dark
    // background) inside the plot area; grid and text are grey.
    std::size_t TracePixels() const {
        const PlotArea area = PlotAreaOf(width, height);
        std::size_t count = 0;
        for (unsigned y = static_cast<unsigned>(area.top); y < area.top + area.height; ++y) {
            for (unsigned x = static_cast<unsigned>(area.left); x < area.left + area.width; ++x) {
                const png_byte* p = &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
                if (p[0] > p[2] + 50) ++count;
            }
        }
        return count;
    }
};

Picture ReadPng(const fs::path& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Picture picture;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return picture;
    image.format = PNG_FORMAT_RGB;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr) != 0) {
        picture.width = image.width;
        picture.height = image.height;
    }
    png_image_free(&image);
    return picture;
}

int RunProgram(const char* program, const std::string& arguments, const fs::path& output = "/dev/null") {
    const std::string command = std::string(program) + " " + arguments + " > " + output.string() + " 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
int RunDemo(const std::string& arguments) { return RunProgram(WAVESTORE_DEMO_PATH, arguments); }

TEST(Demo, QuietRunLeavesAReportAPicturePerViewAndTheExport) {
    const fs::path output = fs::temp_directory_path() / ("wavestore-demo-test-" + std::to_string(::getpid()));
    fs::remove_all(output);
    const fs::path exported = output / "capture.h5";
    ASSERT_EQ(RunDemo("--quiet --size 8M --pool 32 --output " + output.string() + " --export " + exported.string()), 0);
    const std::string report = ReadText(output / "report.txt");
    EXPECT_NE(report.find("recorded 8.0 MiB (2097152 samples)"), std::string::npos) << report;
    EXPECT_NE(report.find("view whole capture"), std::string::npos);
    EXPECT_NE(report.find("1000 columns"), std::string::npos);
    EXPECT_NE(report.find("search forward"), std::string::npos);
    EXPECT_NE(report.find("exported 2097152 samples"), std::string::npos) << report;
    EXPECT_NE(report.find("cache files in"), std::string::npos);
    for (const char* name : {"whole.png", "zoom-1pct.png", "zoom-0.01pct.png", "fill-linear.png"}) {
        const Picture picture = ReadPng(output / name);
        EXPECT_EQ(picture.width, 1000u) << name;
        EXPECT_EQ(picture.height, 360u) << name;
        EXPECT_GT(picture.TracePixels(), 1000u) << name;  // a plot area of about 900 x 290 pixels
    }
    // The export opens as HDF5 and holds every sample.
    const hid_t file = H5Fopen(exported.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    ASSERT_GE(file, 0);
    const hid_t samples = H5Dopen2(file, "samples", H5P_DEFAULT);
    const hid_t space = H5Dget_space(samples);
    hsize_t size = 0;
    H5Sget_simple_extent_dims(space, &size, nullptr);
    EXPECT_EQ(size, 2097152u);
    H5Sclose(space);
    H5Dclose(samples);
    H5Fclose(file);

    // The same capture as SVG pictures.
    ASSERT_EQ(RunDemo("--quiet --size 1M --pool 32 --svg --output " + output.string()), 0);
    EXPECT_NE(ReadText(output / "whole.svg").find("<svg"), std::string::npos);
    fs::remove_all(output);
}

TEST(Demo, BadUsageExitsWithTwoAndFailuresWithOne) {
    EXPECT_EQ(RunDemo("--size lots"), kExitUsage);
    EXPECT_EQ(RunDemo("--type complex"), kExitUsage);
    EXPECT_EQ(RunDemo("--pool 1"), kExitUsage);
    EXPECT_EQ(RunDemo("--no-such-option"), kExitUsage);
    EXPECT_EQ(RunDemo("--help"), kExitOk);
    EXPECT_EQ(RunDemo("--version"), kExitOk);

    // An output folder that can't be made, and an export into a folder that doesn't
    // exist: exit 1, a message that names the path, and no half-written file.
    const fs::path base = fs::temp_directory_path() / ("wavestore-demo-fail-" + std::to_string(::getpid()));
    fs::remove_all(base);
    fs::create_directories(base);
    std::ofstream(base / "a-file") << "x";
    const fs::path messages = base / "messages.txt";
    EXPECT_EQ(RunProgram(WAVESTORE_DEMO_PATH, "--quiet --size 1M --pool 32 --output " + (base / "a-file" / "out").string(),
                  messages),
              kExitFailure);
    EXPECT_NE(ReadText(messages).find("a-file/out"), std::string::npos) << ReadText(messages);
    const fs::path target = base / "missing" / "capture.h5";
    EXPECT_EQ(RunProgram(WAVESTORE_DEMO_PATH,
                  "--quiet --size 1M --pool 32 --output " + (base / "out").string() + " --export " + target.string(),
                  messages),
              kExitFailure);
    EXPECT_NE(ReadText(messages).find(target.string()), std::string::npos) << ReadText(messages);
    EXPECT_FALSE(fs::exists(target));
    fs::remove_all(base);
}

// One process records and saves the capture with a project; a second one opens that
// project and answers the same views from the files, without recording; a third one
// exports it. The two runs' columns agree bit for bit, and the saved project survives
// being loaded.
TEST(Demo, ASavedCaptureAnswersTheSameViewsInALaterProcess) {
    const fs::path base = fs::temp_directory_path() / ("wavestore-demo-save-" + std::to_string(::getpid()));
    fs::remove_all(base);
    const fs::path project = base / "project";
    ASSERT_EQ(RunDemo("--quiet --size 8M --pool 32 --write-columns --output " + (base / "first").string() +
                      " --save " + project.string()),
              0);
    ASSERT_TRUE(fs::exists(project / "project.xml"));
    ASSERT_EQ(RunDemo("--quiet --pool 32 --write-columns --output " + (base / "second").string() + " --load " +
                      project.string()),
              0);
    const std::string report = ReadText(base / "second" / "report.txt");
    EXPECT_NE(report.find("without recording"), std::string::npos) << report;
    EXPECT_EQ(report.find("recorded"), std::string::npos) << report;
    for (const char* view : {"whole", "zoom-1pct", "zoom-0.01pct", "fill-linear"}) {
        const std::string first = ReadText(base / "first" / (std::string(view) + ".columns.txt"));
        const std::string second = ReadText(base / "second" / (std::string(view) + ".columns.txt"));
        EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 1000) << view;
        EXPECT_EQ(first, second) << view;
    }
    const auto searches = [](const std::string& text) {
        std::string lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            if (line.rfind("search", 0) == 0) lines += line.substr(0, line.rfind("s ")) + "\n";  // without the time taken
        return lines;
    };
    EXPECT_EQ(searches(ReadText(base / "first" / "report.txt")), searches(report));

    // The exporter reads the same project: the whole capture, and a span of it (on the
    // first run's grid of 1 µs from 0 s: 1001 samples, both ends included).
    const fs::path messages = base / "export.txt";
    EXPECT_EQ(RunProgram(WAVESTORE_EXPORT_PATH, "--quiet " + project.string() + " " + (base / "all.h5").string(), messages),
              kExitOk)
        << ReadText(messages);
    EXPECT_NE(ReadText(messages).find("2097152 samples"), std::string::npos) << ReadText(messages);
    EXPECT_EQ(RunProgram(WAVESTORE_EXPORT_PATH,
                         "--quiet --begin 0.1 --end 0.101 " + project.string() + " " + (base / "span.h5").string(),
                         messages),
              kExitOk);
    EXPECT_NE(ReadText(messages).find("1001 samples"), std::string::npos) << ReadText(messages);
    // A target that can't be written: exit 1, the path and the reason, no file left.
    const fs::path bad = base / "missing" / "x.h5";
    EXPECT_EQ(RunProgram(WAVESTORE_EXPORT_PATH, "--quiet " + project.string() + " " + bad.string(), messages),
              kExitFailure);
    EXPECT_NE(ReadText(messages).find(bad.string()), std::string::npos) << ReadText(messages);
    EXPECT_FALSE(fs::exists(bad));
    EXPECT_EQ(RunProgram(WAVESTORE_EXPORT_PATH, "--quiet " + (base / "nothing").string() + " x.h5", messages),
              kExitUsage);  // no such project folder
    fs::remove_all(base);
}

TEST(CacheInfo, JsonDescribesEachFileAndChecksItsBlockMap) {
    const fs::path base = fs::temp_directory_path() / ("wavestore-info-test-" + std::to_string(::getpid()));
    fs::remove_all(base);
    fs::create_directories(base);
    std::ofstream(base / "raw.bin") << "not a cache file";
    const fs::path out = base / "out.json";
    EXPECT_EQ(RunProgram(WAVESTORE_CACHE_INFO_PATH, "--json " + (base / "raw.bin").string(), out), kExitOk);
    const std::string json = ReadText(out);
    EXPECT_NE(json.find("\"version\": 0"), std::string::npos) << json;
    EXPECT_NE(json.find("\"raw_reason\""), std::string::npos) << json;
    EXPECT_EQ(RunProgram(WAVESTORE_CACHE_INFO_PATH, (base / "missing.wsc").string(), out), kExitFailure);
    EXPECT_NE(ReadText(out).find("missing.wsc: no such file"), std::string::npos);
    EXPECT_EQ(RunProgram(WAVESTORE_CACHE_INFO_PATH, "", out), kExitUsage);
    EXPECT_EQ(RunProgram(WAVESTORE_CACHE_INFO_PATH, "--version", out), kExitOk);
    fs::remove_all(base);
}

}  // namespace
