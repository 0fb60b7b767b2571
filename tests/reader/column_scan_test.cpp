// The raw column scan folded in place in the sample window: its per-column pieces against
// the library's floor/ceil and the windowed fold, and whole views against the windowed
// path, bit for bit, on random waves with NaN, invalid values and gaps.

#include "host/item_binding.h"
#include "reader/basic_wave_reader.h"
#include "reader/column_scan.h"
#include "dataset/axis.h"
#include "host/item_type.h"
#include "support/test_wave.h"
#include "wave/basic_wave_dataset.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

template <class T>
bool SameBits(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// The fold of the windowed path: the first sample starts both extremes, FoldExtremes the rest.
template <class T>
MinMaxData<T> WindowedFold(const T* samples, uint64_t count) {
    T lo = samples[0], hi = samples[0];
    FoldExtremes(samples + 1, count - 1, lo, hi);
    return {lo, hi};
}

TEST(ColumnScan, SpanIsFloorAndCeilOverTheWholeRange) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> fraction(0.0, 1.0);
    const double scales[] = {1.0, 100.0, 1e6, 1e12, 4503599627370496.0, 1e17};
    for (const double scale : scales) {
        for (int i = 0; i < 2000; ++i) {
            double x = std::floor(fraction(random) * scale);
            if (i % 3 != 0) x += fraction(random);  // whole positions too
            double y = x + (i % 5 == 0 ? 0.0 : fraction(random) * 50.0);
            if (i % 7 == 0) y = std::floor(y);
            if (y < x) y = x;
            uint64_t first = 0, last = 0;
            column_scan::Span(x, y, first, last);
            EXPECT_EQ(first, static_cast<uint64_t>(std::floor(x))) << x;
            EXPECT_EQ(last, static_cast<uint64_t>(std::ceil(y))) << y;
        }
    }
}

TEST(ColumnScan, FoldRunKeepsTheFirstOfEqualExtremesAndSkipsALaterNaN) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> zeros = {0.0f, -0.0f, 1.0f, -0.0f};
    MinMaxData<float> r = column_scan::FoldRun(zeros.data(), 2);
    EXPECT_FALSE(std::signbit(r.min));  // +0 came first
    EXPECT_FALSE(std::signbit(r.max));
    r = column_scan::FoldRun(zeros.data() + 1, 3);
    EXPECT_TRUE(std::signbit(r.min));
    EXPECT_EQ(r.max, 1.0f);
    const std::vector<float> later_nan = {3.0f, nan, -2.0f, nan, 5.0f};
    r = column_scan::FoldRun(later_nan.data(), later_nan.size());
    EXPECT_EQ(r.min, -2.0f);
    EXPECT_EQ(r.max, 5.0f);
    r = column_scan::FoldRun(later_nan.data() + 1, 4);  // a NaN first stays on both sides
    EXPECT_TRUE(std::isnan(r.min));
    EXPECT_TRUE(std::isnan(r.max));

    // Random runs of few distinct values (both zeros, NaN, infinities), short and long.
    std::mt19937 random(11);
    const float alphabet[] = {0.0f, -0.0f, nan, 1.0f, -1.0f, std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 0.5f};
    std::vector<float> run(80);
    for (int trial = 0; trial < 3000; ++trial) {
        for (float& v : run) v = alphabet[random() % 8];
        const uint64_t count = 1 + random() % run.size();
        const MinMaxData<float> want = WindowedFold(run.data(), count);
        const MinMaxData<float> got = column_scan::FoldRun(run.data(), count);
        ASSERT_TRUE(SameBits(got.min, want.min) && SameBits(got.max, want.max)) << "trial " << trial;
    }
}

// Switches the direct scan on or off for T, and back on when it goes.
template <class T>
struct ScanSwitch {
    explicit ScanSwitch(bool on) { CBasicWaveReader<T>::SetDirectColumnScan(on); }
    ~ScanSwitch() { CBasicWaveReader<T>::SetDirectColumnScan(true); }
};

// A random sample: mostly a few distinct values (ties, and both zeros for the floating
// types), now and then the invalid value or an extreme of the type.
template <class T>
T RandomSample(std::mt19937& random) {
    const unsigned pick = random() % 100;
    if (pick < 4) return InvalidValue<T>();
    if constexpr (std::is_floating_point_v<T>) {
        if (pick < 6) return -std::numeric_limits<T>::infinity();
        if (pick < 14) return (pick & 1) ? T(-0.0) : T(0.0);
        return static_cast<T>(static_cast<int>(random() % 41) - 20) / T(4);
    } else {
        if (pick < 6) return std::numeric_limits<T>::lowest();
        const int spread = std::is_signed_v<T> ? 60 : 30;
        return static_cast<T>(static_cast<int>(random() % spread) - (std::is_signed_v<T> ? 30 : 0));
    }
}

// Three runs with gaps between them; views of random spans, column counts, modes and
// whole-range flags drawn by two readers, one with the direct scan and one without, in
// the same order (a reader keeps its column width between calls).
//
// A wave dataset of T with a size axis; the types the module doesn't name are registered
// under their class name.
template <class T>
std::unique_ptr<IBaseCtr> MakeWave(double period, uint64_t index_step) {
    testing_support::ModuleScope();
    RegisterClassType<BasicWaveDataSet<T>>(VellumTypeOf<BasicWaveDataSet<T>>().Name(),
                                           &testing_support::ModuleScope());
    std::unique_ptr<IBaseCtr> item(CreateItemByTypeID(VellumTypeOf<BasicWaveDataSet<T>>(), "wave"));
    IBaseCtr* size_axis = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "sizeAxis");
    item->AddChildItem(size_axis, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(size_axis).get();
    axis->SetRatioOffset(0.0, period);
    axis->SetIndexStep(index_step);
    return item;
}

template <class T>
void ExpectBothScansAgree(uint64_t index_step, unsigned seed) {
    std::unique_ptr<IBaseCtr> item = MakeWave<T>(1e-6, index_step);
    ASSERT_NE(item, nullptr);
    auto* dataset = QueryInterface<BasicWaveDataSet<T>>(item.get()).get();
    ASSERT_NE(dataset, nullptr);
    std::mt19937 random(seed);
    {
        WaveProducer<T> producer(*dataset, 1e-6, 1e-6 * static_cast<double>(index_step));
        const double starts[] = {0.0, 0.0400, 0.0712};
        const uint64_t sizes[] = {30000, 25000, 20011};
        for (int run = 0; run < 3; ++run) {
            std::vector<T> samples(sizes[run]);
            for (T& v : samples) v = RandomSample<T>(random);
            ASSERT_TRUE(producer.Append(starts[run], samples.data(), samples.size()));
        }
    }
    std::unique_ptr<CBasicWaveReader<T>> direct(dataset->CreateBasicWaveReader());
    std::unique_ptr<CBasicWaveReader<T>> windowed(dataset->CreateBasicWaveReader());
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double span = 0.0912;
    int raw_scans = 0;
    const int views = 300;
    for (int view = 0; view < views; ++view) {
        const double width = span * std::pow(10.0, -4.0 * unit(random));
        const double begin = -0.002 + (span + 0.004 - width) * unit(random);
        const unsigned column_choices[] = {1, 2, 3, 37, 1000, 1 + static_cast<unsigned>(random() % 1500)};
        const unsigned columns = column_choices[random() % 6];
        const GetDataParam param{static_cast<uint32_t>(random() % 5)};
        const unsigned char whole_range = random() % 8 == 0 ? 1 : 0;

        double b1 = begin, e1 = begin + width, b2 = b1, e2 = e1;
        std::vector<MinMaxData<double>> got, want;
        {
            ScanSwitch<T> on(true);
            direct->GetMinMaxData(b1, e1, got, columns, param, whole_range);
        }
        {
            ScanSwitch<T> off(false);
            windowed->GetMinMaxData(b2, e2, want, columns, param, whole_range);
        }
        const double ppc = direct->PointsPerColumn();
        if (whole_range == 0 && ppc > 1.0 && ppc < static_cast<double>(index_step)) ++raw_scans;
        ASSERT_TRUE(SameBits(b1, b2) && SameBits(e1, e2)) << "view " << view;
        ASSERT_EQ(got.size(), want.size()) << "view " << view;
        for (std::size_t i = 0; i < got.size(); ++i) {
            ASSERT_TRUE(SameBits(got[i].min, want[i].min) && SameBits(got[i].max, want[i].max))
                << "view " << view << " column " << i << ": " << got[i].min << " " << got[i].max << " vs "
                << want[i].min << " " << want[i].max;
        }
    }
    // The comparison means something only if many views went through the raw scan.
    EXPECT_GT(raw_scans, views / 5);
}

TEST(ColumnScan, ViewsOfRandomWavesEqualTheWindowedScanBitForBit) {
    ExpectBothScansAgree<float>(100, 1);
    ExpectBothScansAgree<double>(100, 2);
    ExpectBothScansAgree<int16_t>(100, 3);
    ExpectBothScansAgree<uint8_t>(100, 4);
}

TEST(ColumnScan, LongColumnsFoldedInLanesEqualTheWindowedScanBitForBit) {
    // Index columns of 5000 samples: raw-scanned columns of up to thousands of samples,
    // where both paths fold in lanes and the sign of a zero depends on the lane order.
    ExpectBothScansAgree<float>(5000, 5);
    ExpectBothScansAgree<double>(5000, 6);
    ExpectBothScansAgree<int16_t>(5000, 7);
}

}  // namespace
