// The accelerations change no result, bit for bit, on random waves with gaps, invalid,
// lowest or flat stretches and signed zeros. The index summary: views and searches through
// a reader that has the dataset's summary against one on the same storages without it;
// after a rebuild from "Index", across a save and a load (the loaded dataset rebuilds in
// the background), after a clear and new pushes, and switched off and on again. The direct
// raw column scan: views with it against views through the windowed scan.

#include "dataset/element_types.h"
#include "dataset/serialization_helper.h"
#include "host/configuration.h"
#include "host/project_file_manager.h"
#include "host/serialization.h"
#include "reader/index_summary.h"
#include "reader/open_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace reader_tests;

constexpr double kPeriod = 1e-3;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <class T>
struct Capture : testing_support::TestWave<T> {
    std::mt19937_64 rng;
    std::vector<double> values;  // a sample of the values pushed, for searches
    double last_time = 0;
    uint64_t ppi;

    Capture(const char* type, uint64_t index_step, uint64_t seed)
        : testing_support::TestWave<T>(type, kPeriod, index_step), rng(seed), ppi(index_step) {}

    double Uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
    uint64_t Below(uint64_t n) { return n == 0 ? 0 : rng() % n; }

    T Value(double x) {
        if constexpr (kIsFloatingElement<T>) {
            // Quarter steps give ties and zeros; some zeros are negative.
            double v = std::round(x * 4) / 4;
            if (v == 0 && Below(2) == 0) v = -0.0;
            return static_cast<T>(v);
        } else {
            const double lo = static_cast<double>(std::numeric_limits<T>::lowest());
            const double hi = static_cast<double>(std::numeric_limits<T>::max()) - 1;
            return static_cast<T>(std::clamp(std::round(x), lo, hi));
        }
    }

    // Runs of random length with gaps between them; each run a random walk with jumps,
    // flat stretches and stretches of the invalid value or of the lowest value.
    void Fill(uint64_t samples) {
        const double index_period = __internal::DataSetTool(this->item.get()).GetIndexStepTime();
        WaveProducer<T> producer(*this->dataset, kPeriod, index_period);
        const double scale = kIsFloatingElement<T> ? 20.0 : (std::numeric_limits<T>::max() > 300 ? 2000.0 : 40.0);
        const double centre = std::is_unsigned_v<T> ? scale * 2 : 0.0;
        double x = centre, t = last_time;
        std::vector<T> run;
        for (uint64_t done = 0; done < samples;) {
            const uint64_t length = std::min<uint64_t>(samples - done, 1 + Below(samples / 3 + 1));
            run.resize(length);
            for (uint64_t i = 0; i < length;) {
                const uint64_t stretch = std::min<uint64_t>(length - i, 1 + Below(6 * ppi));
                const uint64_t kind = Below(40);
                for (uint64_t j = 0; j < stretch; ++j, ++i) {
                    if (kind == 0) {
                        run[i] = InvalidValue<T>();
                    } else if (kind == 2) {
                        run[i] = kIsFloatingElement<T> ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::lowest();
                    } else if (kind == 1) {
                        run[i] = Value(x);  // flat
                    } else {
                        x += Uniform(-1, 1) * scale * 0.05 + (Below(500) == 0 ? Uniform(-1, 1) * scale : 0.0);
                        x = std::clamp(x, centre - scale * 2, centre + scale * 2);
                        run[i] = Value(x);
                    }
                    if (Below(64) == 0) values.push_back(static_cast<double>(run[i]));
                }
            }
            producer.Append(t, run.data(), run.size());
            done += length;
            t += static_cast<double>(length) * kPeriod;
            // Mostly no gap, else from one sample to many index columns.
            const uint64_t gap_kind = Below(4);
            if (gap_kind == 1) t += kPeriod * static_cast<double>(1 + Below(3));
            if (gap_kind >= 2) t += kPeriod * static_cast<double>(1 + Below(ppi * 300));
        }
        producer.CloseRun();
        last_time = t + kPeriod * 10;
    }

    std::unique_ptr<OpenReader<T>> Summarised() {
        auto reader = this->template MakeReader<OpenReader<T>>();
        reader->SetIndexSummary(this->dataset->Summary());
        return reader;
    }
};

// The views that an index served, and those that scanned raw samples for columns.
struct ViewCounts {
    int indexed = 0, raw = 0;
};

// Compares views through both readers, calling before(true) ahead of each view through
// `with` and before(false) ahead of each through `without`.
template <class T>
void CompareViews(Capture<T>& capture, CBasicWaveReader<T>& with, CBasicWaveReader<T>& without, int views,
                  ViewCounts& counts, void (*before)(bool) = [](bool) {}) {
    const double total = capture.last_time;
    std::vector<MinMaxData<double>> a, b;
    for (int v = 0; v < views; ++v) {
        const double span = std::exp(capture.Uniform(std::log(3 * kPeriod), std::log(total * 1.3)));
        double begin = capture.Uniform(-0.1 * total, total);
        if (capture.Below(4) == 0) begin = std::round(begin / kPeriod / capture.ppi) * kPeriod * capture.ppi;
        double end = begin + span;
        const auto columns = static_cast<unsigned>(std::exp(capture.Uniform(0, std::log(4000.0))));
        const GetDataParam param{static_cast<uint32_t>(capture.Below(5))};
        const unsigned char whole = capture.Below(12) == 0 ? 1 : 0;
        double begin_b = begin, end_b = end;
        a.clear();
        b.clear();
        before(true);
        with.GetMinMaxData(begin, end, a, columns, param, whole);
        before(false);
        without.GetMinMaxData(begin_b, end_b, b, columns, param, whole);
        SCOPED_TRACE(::testing::Message() << "view " << v << " columns " << columns << " mode " << param.mode
                                          << " whole " << int(whole) << " span " << span);
        ASSERT_TRUE(SameBits(begin, begin_b) && SameBits(end, end_b));
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t i = 0; i < a.size(); ++i) {
            ASSERT_TRUE(SameBits(a[i].min, b[i].min) && SameBits(a[i].max, b[i].max))
                << "column " << i << ": " << a[i].min << " " << a[i].max << " vs " << b[i].min << " " << b[i].max;
        }
        const double ppc = with.PointsPerColumn();
        counts.indexed += ppc >= static_cast<double>(with.PointsPerIndex());
        counts.raw += whole == 0 && ppc > 1.0 && ppc < static_cast<double>(with.PointsPerIndex());
    }
}

template <class T>
void CompareSearches(Capture<T>& capture, OpenReader<T>& with, OpenReader<T>& without, int searches) {
    const double total = capture.last_time;
    for (int s = 0; s < searches; ++s) {
        double value = capture.values[capture.Below(capture.values.size())];
        const uint64_t kind = capture.Below(10);
        if (kind == 0) value += capture.Uniform(-0.5, 0.5);
        if (kind == 1) value = std::numeric_limits<double>::quiet_NaN();
        if (kind == 2) value = capture.Uniform(-1e5, 1e5);
        const double time = capture.Uniform(-0.05 * total, 1.05 * total);
        const bool forward = capture.Below(2) == 0;
        double ra = -1, rb = -1;
        const bool fa = with.Find(value, time, ra, forward);
        const bool fb = without.Find(value, time, rb, forward);
        SCOPED_TRACE(::testing::Message() << "search " << s << " value " << value << " time " << time << " forward "
                                          << forward);
        ASSERT_EQ(fa, fb);
        ASSERT_TRUE(SameBits(ra, rb)) << ra << " vs " << rb;
    }
    // The index walks themselves, over random ranges, also upside down and past the end.
    const uint64_t entries = capture.dataset->GetStorage("Index")->Count();
    for (int s = 0; s < searches; ++s) {
        const double value = capture.values[capture.Below(capture.values.size())];
        Position first = capture.Below(entries + 2), last = capture.Below(entries + 2);
        if (capture.Below(3) != 0 && first > last) std::swap(first, last);
        Hit ha{7, 7}, hb{7, 7};
        ASSERT_EQ(with.FindNextIndex(value, first, last, ha), without.FindNextIndex(value, first, last, hb))
            << first << ".." << last << " value " << value;
        ASSERT_EQ(ha, hb);
        ASSERT_EQ(with.FindPreIndex(value, first, last, ha), without.FindPreIndex(value, first, last, hb))
            << first << ".." << last << " value " << value;
        ASSERT_EQ(ha, hb);
    }
}

template <class T>
void CompareAll(Capture<T>& capture, int views, int searches) {
    ASSERT_TRUE(capture.dataset->WaitIndexSummary());
    auto with = capture.Summarised();
    auto without = capture.template MakeReader<OpenReader<T>>();
    ViewCounts counts;
    CompareViews(capture, *with, *without, views, counts);
    if (::testing::Test::HasFatalFailure()) return;
    EXPECT_GT(counts.indexed, views / 10);  // the index served a good share of the views
    CompareSearches(capture, *with, *without, searches);
}

// Saves the item's record as the host does (its files kept under "__old__") and loads it
// into a new item of the same type, as a later session does.
template <class T>
std::unique_ptr<Capture<T>> SaveAndLoad(Capture<T>& saved, const char* type, const fs::path& dir) {
    Configuration config;
    auto context = std::make_shared<SerializeContext>(SerializeContext{&config, "waves/w1"});
    saved.item->SetAttribute("exportable", "1");
    const SerializeConfig save{1};
    QueryInterface<ISerializable>(saved.item.get())->Serialize(context, &save);
    fs::create_directories(dir / "__old__");
    for (const auto& [name, id] : DataSetSerializationHelper::DecodeFileTable(config.GetString("waves/w1/files/value")))
        fs::copy_file(dir / "work" / id, dir / "__old__" / id);
    ProjectFileManager::instance().SetProjectFolder(dir.string());
    auto loaded = std::make_unique<Capture<T>>(type, 7, 99);  // axes not yet as saved
    EXPECT_TRUE(QueryInterface<ISerializable>(loaded->item.get())->Deserialize(context));
    EXPECT_EQ(loaded->dataset->CurrentGroup(), "__imported__");
    loaded->values = saved.values;
    loaded->last_time = saved.last_time;
    loaded->rng.seed(saved.rng());
    loaded->ppi = saved.ppi;
    return loaded;
}

template <class T>
const char* TypeName() {
    if constexpr (std::is_same_v<T, float>) return "WAVEDATASET[FLOAT]";
    if constexpr (std::is_same_v<T, double>) return "WAVEDATASET[DOUBLE]";
    if constexpr (std::is_same_v<T, int16_t>) return "WAVEDATASET[INT16]";
    return "TEST_WAVE_U8";
}

template <class T>
class Acceleration : public ::testing::Test {};

using ElementTypes = ::testing::Types<float, double, int16_t, uint8_t>;
TYPED_TEST_SUITE(Acceleration, ElementTypes);

// The raw column scan folded in place in the sample window against the windowed scan it
// replaced: index columns of 100 samples, then of 5000, where raw-scanned columns hold
// thousands of samples, both paths fold in lanes and the sign of a zero depends on their
// order. Two readers draw the same views in the same order (a reader keeps its column
// width between calls).
TYPED_TEST(Acceleration, DirectColumnScanEqualsTheWindowedScan) {
    using T = TypeParam;
    for (const uint64_t step : {100u, 5000u}) {
        SCOPED_TRACE(step);
        Capture<T> capture(TypeName<T>(), step, step + sizeof(T));
        capture.Fill(80000);
        std::unique_ptr<CBasicWaveReader<T>> direct(capture.dataset->CreateBasicWaveReader()),
            windowed(capture.dataset->CreateBasicWaveReader());
        ViewCounts counts;
        CompareViews(capture, *direct, *windowed, 300, counts, [](bool on) { CBasicWaveReader<T>::SetDirectColumnScan(on); });
        CBasicWaveReader<T>::SetDirectColumnScan(true);
        EXPECT_GT(counts.raw, 300 / 5);  // the comparison means something only if many views scanned raw
    }
}

// Fresh pushes, a rebuild asked for, a save and a load, a clear and new pushes.
TYPED_TEST(Acceleration, IndexSummaryInEveryStateEqualsTheColumns) {
    using T = TypeParam;
    const char* type = TypeName<T>();
    const uint64_t step = std::is_same_v<T, int16_t> ? 4 : 2, samples = std::is_same_v<T, int16_t> ? 160000 : 90000;
    const std::string previous_folder = ProjectFileManager::instance().GetProjectFolder();
    const fs::path dir = fs::temp_directory_path() / ("wavestore-summary-" + std::to_string(::getpid()) + "-" + type);
    ProjectFileManager::instance().SetProjectFolder((dir / "work").string());

    Capture<T> capture(type, step, sizeof(T));
    capture.Fill(samples);
    const uint64_t entries = capture.dataset->GetStorage("Index")->Count();
    ASSERT_GT(entries, 2 * 128 * 128u) << "the capture must reach the second level";
    const uint64_t summary_bytes = capture.dataset->IndexSummaryBytes();
    EXPECT_GT(summary_bytes, 0u);
    EXPECT_LE(summary_bytes * 50, entries * sizeof(MinMaxData<T>));  // small against the index
    CompareAll(capture, 1500, 400);

    capture.dataset->OnDataChanged();  // rebuilt from "Index" in the background
    CompareAll(capture, 300, 100);
    EXPECT_EQ(capture.dataset->IndexSummaryBytes(), summary_bytes);

    auto loaded = SaveAndLoad(capture, type, dir);
    ASSERT_EQ(loaded->dataset->GetStorage("Index")->Count(), entries);
    CompareAll(*loaded, 300, 100);

    loaded->item->OnCMD("reset", nullptr);  // cleared as the host resets a dataset, then new pushes
    loaded->last_time = 0;
    loaded->values.clear();
    loaded->Fill(samples / 2);
    CompareAll(*loaded, 300, 100);

    if (!previous_folder.empty()) ProjectFileManager::instance().SetProjectFolder(previous_folder);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
}

TEST(Acceleration, IndexSummarySwitchedOffAndOnAgain) {
    Capture<int16_t> capture("WAVEDATASET[INT16]", 2, 7);
    capture.Fill(70000);
    capture.dataset->SetIndexSummary(false);
    EXPECT_FALSE(capture.dataset->IndexSummaryOn());
    EXPECT_FALSE(capture.dataset->WaitIndexSummary());
    EXPECT_EQ(capture.dataset->IndexSummaryBytes(), 0u);
    capture.Fill(10000);  // off, pushes are not folded
    ViewCounts counts;
    CompareViews(capture, *capture.Summarised(), *capture.template MakeReader<OpenReader<int16_t>>(), 200, counts);
    EXPECT_GT(counts.indexed, 0);
    capture.dataset->SetIndexSummary(true);  // on again, rebuilt from "Index"
    CompareAll(capture, 300, 100);
}

}  // namespace
