// The raw column scan folded in place in the sample window: its per-column pieces against
// the library's floor/ceil and the windowed fold, and whole views against the windowed
// path, bit for bit, on random waves with NaN, invalid values and gaps.

#include "reader/basic_wave_reader.h"
#include "reader/column_scan.h"
#include "support/test_wave.h"
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
    EXPECT_FALSE(std::signbit(r.min) || std::signbit(r.max));  // +0 came first
    r = column_scan::FoldRun(zeros.data() + 1, 3);
    EXPECT_TRUE(std::signbit(r.min) && r.max == 1.0f);
    const std::vector<float> later_nan = {3.0f, nan, -2.0f, nan, 5.0f};
    r = column_scan::FoldRun(later_nan.data(), later_nan.size());
    EXPECT_TRUE(r.min == -2.0f && r.max == 5.0f);
    r = column_scan::FoldRun(later_nan.data() + 1, 4);  // a NaN first stays on both sides
    EXPECT_TRUE(std::isnan(r.min) && std::isnan(r.max));

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

// The wave type names of the test program.
template <class T>
const char* TypeName() {
    if constexpr (std::is_same_v<T, float>) return "WAVEDATASET[FLOAT]";
    if constexpr (std::is_same_v<T, double>) return "WAVEDATASET[DOUBLE]";
    if constexpr (std::is_same_v<T, int16_t>) return "WAVEDATASET[INT16]";
    return "TEST_WAVE_U8";
}

template <class T>
class ColumnScanViews : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double, int16_t, uint8_t>;
TYPED_TEST_SUITE(ColumnScanViews, ElementTypes);

// Three runs with gaps between them; views of random spans, column counts, modes and
// whole-range flags drawn by two readers, one with the direct scan and one without, in
// the same order (a reader keeps its column width between calls). Index columns of 100
// samples, then of 5000: raw-scanned columns of thousands of samples, where both paths
// fold in lanes and the sign of a zero depends on the lane order.
TYPED_TEST(ColumnScanViews, EqualTheWindowedScanBitForBit) {
    using T = TypeParam;
    for (const uint64_t index_step : {100u, 5000u}) {
        SCOPED_TRACE(index_step);
        testing_support::TestWave<T> wave(TypeName<T>(), 1e-6, index_step);
        std::mt19937 random(static_cast<unsigned>(index_step + sizeof(T)));
        {
            WaveProducer<T> producer(*wave.dataset, 1e-6, 1e-6 * static_cast<double>(index_step));
            const double starts[] = {0.0, 0.0400, 0.0712};
            const uint64_t sizes[] = {30000, 25000, 20011};
            for (int run = 0; run < 3; ++run) {
                std::vector<T> samples(sizes[run]);
                for (T& v : samples) v = RandomSample<T>(random);
                ASSERT_TRUE(producer.Append(starts[run], samples.data(), samples.size()));
            }
        }
        std::unique_ptr<CBasicWaveReader<T>> direct(wave.dataset->CreateBasicWaveReader());
        std::unique_ptr<CBasicWaveReader<T>> windowed(wave.dataset->CreateBasicWaveReader());
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
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_TRUE(SameBits(got[i].min, want[i].min) && SameBits(got[i].max, want[i].max))
                    << "view " << view << " column " << i << ": " << got[i].min << " " << got[i].max << " vs "
                    << want[i].min << " " << want[i].max;
        }
        EXPECT_GT(raw_scans, views / 5);  // the comparison means something only if many views scanned raw
    }
}

}  // namespace
