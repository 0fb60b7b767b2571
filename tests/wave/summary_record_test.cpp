// The index summary across a save and a load of the wave dataset's record: the loaded
// dataset rebuilds its summary from the loaded "Index" in the background, and views
// through it are the same bits as views without it and as the views taken before the
// save; so too after a forced rebuild, and after a clear and new pushes.

#include "wave_record_support.h"

#include "dataset/serialization_helper.h"
#include "host/configuration.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "reader/index_summary.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <random>

namespace fs = std::filesystem;
using namespace wave_record_test;

namespace {

constexpr uint64_t kStep = 2;  // samples per column: a short wave reaches the second level

struct View {
    double begin;
    double end;
    unsigned columns;
};

// Views of every width, from a few samples to more than the whole wave, at random places;
// the whole wave at several column counts among them.
std::vector<View> Views(double total) {
    std::mt19937_64 rng(11);
    auto uniform = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    std::vector<View> views{{0, total, 1000}, {0, total, 333}, {-1, total + 1, 64}};
    for (int i = 0; i < 150; ++i) {
        const double span = std::exp(uniform(std::log(5 * kPeriod), std::log(total * 1.2)));
        const double begin = uniform(-0.05 * total, total);
        views.push_back({begin, begin + span, static_cast<unsigned>(std::exp(uniform(0, std::log(3000.0))))});
    }
    return views;
}

// The columns of every view, and the adjusted ranges, as one array of bit patterns.
std::vector<uint64_t> Draw(CBasicWaveReader<double>& reader, const std::vector<View>& views) {
    std::vector<uint64_t> bits;
    std::vector<MinMaxData<double>> out;
    auto put = [&](double value) {
        uint64_t b;
        std::memcpy(&b, &value, sizeof b);
        bits.push_back(b);
    };
    for (const View& view : views) {
        double begin = view.begin, end = view.end;
        out.clear();
        reader.GetMinMaxData(begin, end, out, view.columns, GetDataParam{}, 0);
        put(begin);
        put(end);
        bits.push_back(out.size());
        for (const auto& column : out) {
            put(column.min);
            put(column.max);
        }
    }
    return bits;
}

std::unique_ptr<CBasicWaveReader<double>> WithSummary(RecordWave& wave) {
    return std::unique_ptr<CBasicWaveReader<double>>(wave.dataset->CreateBasicWaveReader());
}

std::unique_ptr<CBasicWaveReader<double>> WithoutSummary(RecordWave& wave) {
    auto reader = WithSummary(wave);
    reader->SetIndexSummary(nullptr);
    return reader;
}

// A wave of runs with gaps between them; the values of a run depend on its start.
double Fill(BasicWaveDataSet<double>& dataset, double start, int runs, uint64_t samples) {
    WaveProducer<double> producer(dataset, kPeriod, kPeriod * kStep);
    for (int r = 0; r < runs; ++r) {
        std::vector<double> run(samples);
        for (uint64_t i = 0; i < samples; ++i) run[i] = Value(start, i) + static_cast<double>((i * 7919) % 17);
        producer.Append(start, run.data(), run.size());
        producer.CloseRun();
        start += static_cast<double>(samples) * kPeriod + 0.5 + r;
    }
    return start;
}

// The summary is ready and describes every column of "Index", level by level.
void ExpectSummaryCoversIndex(BasicWaveDataSet<double>& dataset) {
    ASSERT_TRUE(dataset.WaitIndexSummary());
    std::shared_ptr<const IndexSummary<double>> summary = dataset.Summary();
    const uint64_t count = dataset.GetStorage("Index")->Count();
    ASSERT_EQ(summary->Entries(), count);
    IndexSummary<double>::Snapshot snapshot;
    ASSERT_TRUE(summary->TakeSnapshot(snapshot));
    ASSERT_GE(snapshot.records.size(), 2u);
    EXPECT_EQ(snapshot.records[0], count / IndexSummary<double>::kFanout);
    EXPECT_EQ(snapshot.records[1], count / (IndexSummary<double>::kFanout * IndexSummary<double>::kFanout));
}

class SummaryAcrossSaveAndLoad : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir_ = fs::temp_directory_path() /
               ("wavestore-summary-record-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
        ProjectFileManager::instance().SetProjectFolder((dir_ / "work").string());
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    std::shared_ptr<SerializeContext> Context(Configuration& config) {
        return std::make_shared<SerializeContext>(SerializeContext{&config, "waves/w1"});
    }
    // Saves wave's record into config and keeps its files as the host does on a save.
    void Save(RecordWave& wave, Configuration& config) {
        const SerializeConfig save{1};
        QueryInterface<ISerializable>(wave.item.get())->Serialize(Context(config), &save);
        fs::create_directories(dir_ / "__old__");
        for (const auto& [name, id] :
             DataSetSerializationHelper::DecodeFileTable(config.GetString("waves/w1/files/value")))
            fs::copy_file(dir_ / "work" / id, dir_ / "__old__" / id);
        ProjectFileManager::instance().SetProjectFolder(dir_.string());
    }

    fs::path dir_;
};

TEST_F(SummaryAcrossSaveAndLoad, LoadedWaveViewsTheSameWithAndWithoutItsSummary) {
    Configuration config;
    std::vector<View> views;
    std::vector<uint64_t> before;
    uint64_t columns = 0;
    {
        RecordWave wave(kPeriod, kStep);
        wave.item->SetAttribute("exportable", "1");
        const double total = Fill(*wave.dataset, 0.25, 3, 30000);
        columns = wave.dataset->GetStorage("Index")->Count();
        ASSERT_GT(columns, 2 * 128 * 128u);
        ExpectSummaryCoversIndex(*wave.dataset);
        views = Views(total);
        before = Draw(*WithSummary(wave), views);
        ASSERT_EQ(before, Draw(*WithoutSummary(wave), views));
        Save(wave, config);
    }

    RecordWave wave(0.5, 7);  // axes not yet as saved
    ASSERT_TRUE(QueryInterface<ISerializable>(wave.item.get())->Deserialize(Context(config)));
    ASSERT_EQ(wave.dataset->CurrentGroup(), "__imported__");
    ASSERT_EQ(wave.dataset->GetStorage("Index")->Count(), columns);
    // While the rebuild may still run, readers read the columns: the same views.
    EXPECT_EQ(Draw(*WithSummary(wave), views), before);
    ExpectSummaryCoversIndex(*wave.dataset);
    EXPECT_EQ(Draw(*WithSummary(wave), views), before);
    EXPECT_EQ(Draw(*WithoutSummary(wave), views), before);

    // A rebuild asked for again ends with the same summary.
    wave.dataset->OnDataChanged();
    ExpectSummaryCoversIndex(*wave.dataset);
    EXPECT_EQ(Draw(*WithSummary(wave), views), before);

    // Cleared as the host resets a dataset, then new pushes.
    wave.item->OnCMD("reset", nullptr);
    const double total = Fill(*wave.dataset, 3.0, 2, 40000);
    ASSERT_GT(wave.dataset->GetStorage("Index")->Count(), 2 * 128 * 128u);
    ExpectSummaryCoversIndex(*wave.dataset);
    const std::vector<View> fresh = Views(total);
    const std::vector<uint64_t> plain = Draw(*WithoutSummary(wave), fresh);
    EXPECT_EQ(Draw(*WithSummary(wave), fresh), plain);
    EXPECT_NE(Draw(*WithoutSummary(wave), views), before) << "the new pushes replace the loaded wave";
}

}  // namespace
