#include "host/aligned_memory.h"
#include "host/path.h"
#include "host/time_span.h"
#include "host/vellum_time.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <fstream>

TEST(HostPath, NormalizeAndCreateExistsRemove) {
    EXPECT_EQ((Path("/p") / Path("x/../y")).Normalized().String(), "/p/y");
    EXPECT_EQ((Path("/p") / "/q").String(), "/q");  // an absolute part replaces
    const Path root = Path("/tmp") / ("host_path_test_" + std::to_string(::getpid()));
    const Path deep = root / "a" / "b", file = deep / "f.txt";
    ASSERT_TRUE(Path::CreateDirectories(deep));
    std::ofstream(file.String()) << "x";
    EXPECT_TRUE(file.Exists());
    EXPECT_FALSE(Path::CreateDirectories(file));          // a file is not a directory
    EXPECT_FALSE(Path::Remove(deep));                     // not empty
    EXPECT_TRUE(Path::Remove(file) && Path::Remove(file));  // the second: already gone
    EXPECT_TRUE(Path::Remove(deep) && Path::Remove(root / "a") && Path::Remove(root));
    EXPECT_FALSE(root.Exists());
    EXPECT_FALSE(Path::CreateDirectories(Path("")));
}

TEST(TimeSpanValue, ConversionsSaturationAndSleep) {
    EXPECT_EQ(TimeSpan::FromSeconds(-1.9999999999).Nanoseconds(), -1'999'999'999);  // toward zero
    EXPECT_EQ(TimeSpan::FromSeconds(std::nan("")).Nanoseconds(), 0);
    EXPECT_EQ(TimeSpan::FromSeconds(1e300).Nanoseconds(), INT64_MAX);
    EXPECT_EQ(TimeSpan::FromMilliseconds(INT64_MIN / 10).Nanoseconds(), INT64_MIN);
    const auto b = TimeSpan::FromMicroseconds(5);
    EXPECT_EQ((TimeSpan::FromNanoseconds(INT64_MAX) + b).Nanoseconds(), INT64_MAX);
    EXPECT_EQ((b - TimeSpan::FromNanoseconds(INT64_MIN)).Nanoseconds(), INT64_MAX);
    const TimeSpan start = MonotonicNow();
    SystemSleep(TimeSpan::FromMilliseconds(20));
    SystemSleep(TimeSpan::FromNanoseconds(INT64_MIN));  // returns at once
    const TimeSpan slept = MonotonicNow() - start;
    EXPECT_GE(slept, TimeSpan::FromMilliseconds(20));
    EXPECT_LT(slept, TimeSpan::FromSeconds(1.0));
}

TEST(VellumTimeValue, ValidityArithmeticOrder) {
    const VellumTime invalid;
    EXPECT_TRUE(std::isnan(invalid.Seconds()));
    const auto a = VellumTime::FromSeconds(2.5), b = VellumTime::FromNanoseconds(500'000'000);
    EXPECT_EQ((a - b).Nanoseconds(), 2'000'000'000);
    EXPECT_FALSE((a - invalid).valid());
    EXPECT_FALSE((VellumTime::FromNanoseconds(INT64_MAX) + b).valid());
    EXPECT_FALSE(VellumTime::FromSeconds(std::nan("")).valid() || VellumTime::FromSeconds(1e19).valid());
    EXPECT_TRUE(b < a && a >= a && invalid < VellumTime::FromNanoseconds(INT64_MIN + 1));
    EXPECT_EQ(VellumTime::FromNanoseconds(3) / VellumLevelTime(-12, 1), 3000.0);
    EXPECT_TRUE(std::isnan(invalid / VellumLevelTime(-6, 1)));
    EXPECT_TRUE(std::isnan(b / VellumLevelTime(-6, 0)));
}

TEST(VellumLevelTimeValue, PackMultiplyDivide) {
    const VellumLevelTime neg(127, -5), low(-128, VellumLevelTime::kMinCount);
    EXPECT_EQ(neg.Level(), 127);
    EXPECT_EQ(neg.Count(), -5);
    EXPECT_EQ(low.Count(), VellumLevelTime::kMinCount);
    EXPECT_EQ(VellumLevelTime(0, LLONG_MAX).Count(), VellumLevelTime::kMaxCount);  // clamped to 56 bits
    EXPECT_EQ((VellumLevelTime(-12, 1) * 1999).Nanoseconds(), 1);  // below ns: toward zero
    EXPECT_EQ((VellumLevelTime(-9, 1) * LLONG_MAX).Nanoseconds(), LLONG_MAX);
    EXPECT_FALSE((VellumLevelTime(0, 10) * 1'000'000'000'000).valid());  // beyond int64
    EXPECT_EQ(VellumLevelTime(-1, -25) / VellumLevelTime(0, 1), -2);  // toward zero
    EXPECT_EQ(VellumLevelTime(-3, 1) / VellumLevelTime(-3, 0), 0);  // zero period
    // Exact where a double would lose digits, and across wide level gaps.
    EXPECT_EQ(VellumLevelTime(2, VellumLevelTime::kMaxCount) / VellumLevelTime(0, 3),
              VellumLevelTime::kMaxCount * 100 / 3);
    EXPECT_EQ(VellumLevelTime(30, 1) / VellumLevelTime(0, VellumLevelTime::kMaxCount), 27755575615628);
    EXPECT_EQ(VellumLevelTime(127, 1) / VellumLevelTime(-128, 1), LLONG_MAX);  // saturates
}
