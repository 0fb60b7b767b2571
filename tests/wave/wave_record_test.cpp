// A wave dataset saved with its project and loaded into a new item in a later session
// reads back the same samples, columns and areas.

#include "wave_record_support.h"

#include "dataset/serialization_helper.h"
#include "host/configuration.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "host/value_item.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <optional>
#include <tuple>

namespace fs = std::filesystem;
using namespace wave_record_test;

namespace {

class WaveRecord : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() /
               ("wavestore-wave-record-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
        ProjectFileManager::instance().SetProjectFolder((dir_ / "work").string());
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    static std::shared_ptr<SerializeContext> Context(Configuration& config) {
        return std::make_shared<SerializeContext>(SerializeContext{&config, "waves/w1"});
    }

    fs::path dir_;
};

// The raw content of the three storages.
struct Snapshot {
    std::vector<double> samples;
    std::vector<MinMaxData<double>> columns;
    std::vector<ValidDataArea> areas;
    explicit Snapshot(RecordWave& wave)
        : samples(ReadAll<double>(*wave.dataset->GetStorage("Wave"))),
          columns(ReadAll<MinMaxData<double>>(*wave.dataset->GetStorage("Index"))),
          areas(ReadAll<ValidDataArea>(*wave.dataset->GetStorage("Area"))) {}
};

TEST_F(WaveRecord, ALoadedWaveReadsTheSameThroughItsReader) {
    Configuration config;
    std::optional<Snapshot> kept;
    {
        RecordWave wave(kPeriod, kIndexStep);
        wave.item->SetAttribute("exportable", "1");
        wave.item->AddChildItem(Eval("STRING = recorded", nullptr), "ST_DataState", true);
        Produce(*wave.dataset);
        const SerializeConfig save{1};
        QueryInterface<ISerializable>(wave.item.get())->Serialize(Context(config), &save);
        kept.emplace(wave);
        // The host completes the save: the kept files go to the project it saves.
        fs::create_directories(dir_ / "__old__");
        for (const auto& [name, id] :
             DataSetSerializationHelper::DecodeFileTable(config.GetString("waves/w1/files/value")))
            fs::copy_file(dir_ / "work" / id, dir_ / "__old__" / id);
    }
    const Snapshot& saved = *kept;
    ASSERT_EQ(saved.areas.size(), 3u);
    ASSERT_EQ(saved.samples.size(), 71500u);
    ASSERT_TRUE(config.SaveToFile((dir_ / "project.xml").string()));

    // A later session: the project folder holds the saved files under "__old__".
    ProjectFileManager::instance().SetProjectFolder(dir_.string());
    Configuration loaded_config;
    ASSERT_TRUE(loaded_config.LoadFromFile((dir_ / "project.xml").string()));
    RecordWave wave(0.5, 7);  // axes not yet as saved
    ASSERT_TRUE(QueryInterface<ISerializable>(wave.item.get())->Deserialize(Context(loaded_config)));

    EXPECT_DOUBLE_EQ(wave.axis->GetRatio(), kPeriod);
    EXPECT_EQ(wave.axis->GetIndexStep(), kIndexStep);
    EXPECT_EQ(wave.axis->GetAxisState(), 1u);
    EXPECT_EQ(wave.item->GetAttribute("ST_DataState"), "recorded");
    EXPECT_EQ(wave.dataset->CurrentGroup(), "__imported__");
    for (const auto& [name, channel] : wave.dataset->Groups().at("__imported__")) {
        EXPECT_FALSE(channel->Writable()) << name;
        EXPECT_TRUE(fs::is_regular_file(dir_ / "__old__" / std::dynamic_pointer_cast<IFileCache>(channel)->GetId()));
    }

    const Snapshot back(wave);
    EXPECT_EQ(back.samples, saved.samples);
    ASSERT_EQ(back.areas.size(), saved.areas.size());
    EXPECT_EQ(std::memcmp(back.areas.data(), saved.areas.data(), back.areas.size() * sizeof(ValidDataArea)), 0);
    ASSERT_EQ(back.columns.size(), saved.columns.size());
    ExpectLayout(back.samples, back.columns, back.areas);
    auto reader = wave.MakeReader();  // the reader finds each sample at its time again
    double value = 0;
    for (auto [time, expected] : {std::pair{80.25, Value(80.0, 250)}, std::pair{0.0135, Value(0.0125, 1)}}) {
        ASSERT_TRUE(reader->At(time, value)) << time;
        EXPECT_EQ(value, expected) << time;
    }
}

}  // namespace
