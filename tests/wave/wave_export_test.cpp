// Partial export: a time range of a wave dataset becomes an export package whose
// "Wave", "Index" and "Area" streams hold that range as a wave of its own.

#include "wave_record_support.h"

#include "host/value_item.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "support/log_capture.h"

#include <pugixml.hpp>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;
using namespace wave_record_test;

namespace {

class WaveExport : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() /
               ("wavestore-wave-export-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
        Produce(*wave_.dataset);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    // A text child of the dataset item.
    void SetText(const char* child, const std::string& text) {
        IBaseCtr* item = Eval("STRING", nullptr);
        QueryInterface<CValueItem>(item)->SetText(text);
        wave_.item->AddChildItem(item, child, true);
    }

    // The package in folder read as a wave: a storage per stream of its manifest.
    struct Package {
        std::shared_ptr<StorageBase> wave, index, area;
        std::vector<double> samples;
        std::vector<MinMaxData<double>> columns;
        std::vector<ValidDataArea> areas;
    };
    static Package Open(const fs::path& folder) {
        std::map<std::string, std::shared_ptr<StorageBase>> streams;
        pugi::xml_document manifest;
        EXPECT_TRUE(manifest.load_file((folder / "manifest.xml").c_str()));
        const std::map<std::string, uint32_t> units = {{"Wave", 8}, {"Index", 16}, {"Area", 48}};
        for (pugi::xml_node stream : manifest.child("exportDataPack").children("stream")) {
            const std::string name = stream.attribute("name").value();
            streams[name] = std::make_shared<CStorage>(
                CreateExternFileCache((folder / stream.attribute("file").value()).string()), units.at(name));
        }
        EXPECT_EQ(streams.size(), 3u);
        if (streams.size() != 3u) return {};
        return {streams["Wave"], streams["Index"], streams["Area"], ReadAll<double>(*streams["Wave"]),
                ReadAll<MinMaxData<double>>(*streams["Index"]), ReadAll<ValidDataArea>(*streams["Area"])};
    }

    // Start and end time of each area.
    static std::vector<int64_t> Times(const Package& package) {
        std::vector<int64_t> times;
        for (const ValidDataArea& area : package.areas) times.insert(times.end(), {area.start_time, area.end_time});
        return times;
    }

    RecordWave wave_{kPeriod, kIndexStep};
    fs::path dir_;
};

TEST_F(WaveExport, TheExportCommandWritesTheRangeAsAPackage) {
    SetText("ExportParam", "begin=69.5005, end=80.2, path=" + dir_.string());
    SetText("DataCH", "scope1");
    ASSERT_TRUE(wave_.item->OnCMD("Export", nullptr));

    const Package package = Open(dir_ / "scope1");
    // The first run's samples from 69.5005 s (position 69488 lies at 69.5005 s), the
    // second run's up to 80.2 s; the third run lies outside.
    ASSERT_EQ(package.areas.size(), 2u);
    EXPECT_EQ(Times(package), (std::vector<int64_t>{SecondsToNs(0.0125) + 69488LL * 1'000'000,
                                                    SecondsToNs(0.0125) + 69999LL * 1'000'000, 80'000'000'000LL,
                                                    80'200'000'000LL}));
    ASSERT_EQ(package.samples.size(), 512u + 201u);
    for (uint64_t i = 0; i < 512; ++i) ASSERT_EQ(package.samples[i], Value(0.0125, 69488 + i)) << i;
    for (uint64_t i = 0; i < 201; ++i) ASSERT_EQ(package.samples[512 + i], Value(80.0, i)) << i;
    ExpectLayout(package.samples, package.columns, package.areas);
    EXPECT_EQ(package.areas[0].first_count, 100u);  // from 69.5005 s to the grid point at 69.6 s

    // A reader on the package answers like the dataset within the range, and has
    // nothing outside it.
    CBasicWaveReader<double> reader(wave_.item.get(), std::make_shared<BaseStructReader<double>>(package.wave),
                                    std::make_shared<BaseStructReader<MinMaxData<double>>>(package.index),
                                    std::make_shared<BaseStructReader<ValidDataArea>>(package.area));
    auto original = wave_.MakeReader();
    for (double time : {69.6, 69.9995, 80.0, 80.123}) {
        double exported = 0, expected = 1;
        ASSERT_TRUE(reader.At(time, exported)) << time;
        ASSERT_TRUE(original->At(time, expected));
        EXPECT_EQ(exported, expected) << time;
    }
    double begin = 0, end = 0;
    ASSERT_TRUE(reader.GetMaxValidRange(begin, end, false));
    EXPECT_NEAR(begin, 69.5005, 1e-9);
    EXPECT_NEAR(end, 80.2, 1e-9);
}

TEST_F(WaveExport, StagedRangesGoIntoStreamsRequestedAtTheEnd) {
    testing_support::LogCapture log;
    EXPECT_FALSE(wave_.item->OnCMD("Export", nullptr));  // no "ExportParam"
    SetText("ExportParam", "begin=1,path=" + dir_.string());
    EXPECT_FALSE(wave_.item->OnCMD("export", nullptr));  // no end
    EXPECT_TRUE(log.ContainsSubstring("Export: bad ExportParam"));
    EXPECT_FALSE(fs::exists(dir_));

    SetText("ExportParam", "path=" + (dir_ / "staged").string());  // ranges come with AddRange
    BasicWaveDataSet<double>& dataset = *wave_.dataset;
    EXPECT_FALSE(dataset.AddRange(Vellum::Var(0.0), Vellum::Var(1.0), Vellum::Var()));  // no export running
    EXPECT_FALSE(dataset.FinalizeExport());
    ASSERT_TRUE(dataset.InitializeExport(false));
    EXPECT_FALSE(fs::exists(dir_ / "staged"));  // nothing requested yet
    EXPECT_FALSE(dataset.AddRange(Vellum::Var(2.0), Vellum::Var(1.0), Vellum::Var()));  // not a range
    EXPECT_FALSE(dataset.AddRange(Vellum::Var("soon"), Vellum::Var(1.0), Vellum::Var()));
    EXPECT_TRUE(dataset.AddRange(Vellum::Var(90.2), Vellum::Var(95.0), Vellum::Var(60.0)));  // times shifted back
    EXPECT_TRUE(dataset.AddRange(Vellum::Var("0.0125"), Vellum::Var("0.0625"), Vellum::Var()));
    ASSERT_TRUE(dataset.FinalizeExport());
    EXPECT_FALSE(dataset.FinalizeExport());  // the export is over

    const Package package = Open(dir_ / "staged");
    ASSERT_EQ(package.areas.size(), 2u);
    EXPECT_EQ(Times(package), (std::vector<int64_t>{30'200'000'000LL, 30'499'000'000LL,  // the run ends at 90.499 s
                                                    SecondsToNs(0.0125), SecondsToNs(0.0125) + 50'000'000LL}));
    ASSERT_EQ(package.samples.size(), 300u + 51u);
    EXPECT_EQ(package.samples[0], Value(90.0, 200));
    EXPECT_EQ(package.samples[300], Value(0.0125, 0));
    ExpectLayout(package.samples, package.columns, package.areas);
}

}  // namespace
