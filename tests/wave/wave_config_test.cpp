// The wave dataset's configuration: the cycle entry and its units, and what
// FinishConfig makes of it on an item.

#include "host/item_type.h"
#include "support/test_wave.h"
#include "wave/basic_wave_cycler.h"
#include "wave/cycle_setting.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing_support::TestWave;

// Periods that stay exact on the axis: 0.25 s per sample, 2 samples (0.5 s) per column.
constexpr double kPeriod = 0.25;
constexpr uint64_t kIndexStep = 2;

TEST(CycleSetting, KeyIsCycleInAnyCaseAndNothingElse) {
    EXPECT_TRUE(IsCycleKey("cycle"));
    EXPECT_TRUE(IsCycleKey("CYCLE"));
    EXPECT_TRUE(IsCycleKey("Cycle"));
    EXPECT_FALSE(IsCycleKey("cycles"));
    EXPECT_FALSE(IsCycleKey("cycl"));
    EXPECT_FALSE(IsCycleKey(""));
}

TEST(CycleSetting, SizeAndTimeArgumentsWithTheirUnits) {
    auto size = ParseCycleSetting("SIZE(1G,100M)");
    ASSERT_TRUE(size);
    EXPECT_EQ(size->kind, CycleSetting::Kind::kSize);
    EXPECT_EQ(size->limit, 1073741824.0);
    EXPECT_EQ(size->step, 104857600.0);

    auto time = ParseCycleSetting("TIME(10M,1)");
    ASSERT_TRUE(time);
    EXPECT_EQ(time->kind, CycleSetting::Kind::kTime);
    EXPECT_EQ(time->limit, 600.0);
    EXPECT_EQ(time->step, 1.0);

    EXPECT_FALSE(ParseCycleSetting("FOO(1,2)"));

    // Units are case sensitive: "M" is minutes, "m" milliseconds; an unknown unit is 1.
    EXPECT_DOUBLE_EQ(ReadCycleTime("5n"), 5e-9);
    EXPECT_DOUBLE_EQ(ReadCycleTime("2u"), 2e-6);
    EXPECT_DOUBLE_EQ(ReadCycleTime("3m"), 0.003);
    EXPECT_DOUBLE_EQ(ReadCycleTime("2M"), 120.0);
    EXPECT_DOUBLE_EQ(ReadCycleTime("1.5h"), 5400.0);
    EXPECT_DOUBLE_EQ(ReadCycleTime("1d"), 86400.0);
    EXPECT_DOUBLE_EQ(ReadCycleTime("7"), 7.0);
    EXPECT_DOUBLE_EQ(ReadCycleTime("7H"), 7.0);
    EXPECT_DOUBLE_EQ(ReadCycleSize("2K"), 2048.0);
    EXPECT_DOUBLE_EQ(ReadCycleSize("3 M"), 3145728.0);
    EXPECT_DOUBLE_EQ(ReadCycleSize("2k"), 2.0);
    EXPECT_DOUBLE_EQ(ReadCycleSize("512"), 512.0);
}

TEST(CycleSetting, TextWithoutNumberThrowsBadArgument) {
    for (const char* text : {"SIZE(abc,1M)", "SIZE(1M)", "TIME(,1)", "TIME(1M,x)"}) {
        try {
            ParseCycleSetting(text);
            ADD_FAILURE() << text << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "bad argument!!") << text;
        }
    }
}

BasicWaveCycler* CircleTool(IBaseCtr* item) {
    return QueryInterface<BasicWaveCycler>(item->GetChildItem("CircleTool")).get();
}

TEST(WaveConfig, CycleEntryMakesTheCyclerChildWithItsStep) {
    TestWave<float> size_wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    ASSERT_TRUE(size_wave.item->FinishConfig(&testing_support::ModuleScope(), "cycle=SIZE(1G,100M)"));
    BasicWaveCycler* cycler = CircleTool(size_wave.item.get());
    ASSERT_NE(cycler, nullptr);
    EXPECT_EQ(cycler->Type(), BasicWaveCycler::kSize);
    EXPECT_EQ(cycler->Step(), 104857600.0);  // already whole columns of 2 floats

    TestWave<float> time_wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    ASSERT_TRUE(time_wave.item->FinishConfig(&testing_support::ModuleScope(), "disable_throttle,CYCLE=TIME(10M,1)"));
    cycler = CircleTool(time_wave.item.get());
    ASSERT_NE(cycler, nullptr);
    EXPECT_EQ(cycler->Type(), BasicWaveCycler::kTime);
    EXPECT_EQ(cycler->Step(), 1.0);  // two columns of 0.5 s
    for (const auto& [id, storage] : time_wave.dataset->Storages()) EXPECT_TRUE(storage) << id;
}

TEST(WaveConfig, UnknownKindOrKeyMakesNoCycler) {
    for (const char* config : {"cycle=FOO(1,2)", "cycles=SIZE(1K,1K)", "other=1"}) {
        TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
        ASSERT_TRUE(wave.item->FinishConfig(&testing_support::ModuleScope(), config));
        EXPECT_EQ(wave.item->GetChildItem("CircleTool"), nullptr) << config;
        int fired = 0;
        wave.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
        const std::vector<float> samples(4096, 1.0f);
        wave.dataset->Push(samples.data(), samples.size());
        EXPECT_EQ(fired, 0) << config;
    }
}

TEST(WaveConfig, BadNumberThrowsOutOfFinishConfig) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    try {
        wave.item->FinishConfig(&testing_support::ModuleScope(), "cycle=SIZE(lots,1M)");
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "bad argument!!");
    }
    EXPECT_EQ(wave.item->GetChildItem("CircleTool"), nullptr);
}

TEST(WaveConfig, ConfiguredSizeLimitIsCheckedOnPush) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    // 1 KiB limit: 256 floats are exactly at it, the 257th passes it.
    ASSERT_TRUE(wave.item->FinishConfig(&testing_support::ModuleScope(), "cycle=SIZE(1K,2K)"));
    int fired = 0;
    wave.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
    const std::vector<float> samples(256, 2.0f);
    wave.dataset->Push(samples.data(), samples.size());
    EXPECT_EQ(fired, 0);
    wave.dataset->Push(samples.data(), 1);
    EXPECT_EQ(fired, 1);
}

TEST(WaveConfig, TypeDeclaresTheEventsAndCycleFunctions) {
    TestWave<float> wave("WAVEDATASET[FLOAT]", kPeriod, kIndexStep);
    IItemType* type = wave.item->GetItemType();
    ASSERT_NE(type, nullptr);
    const std::vector<std::string> events = type->GetEventNames();
    EXPECT_EQ(events, (std::vector<std::string>{"DataComes", "IndexComes", "AreaComes", "PostClear", "AfterClear"}));
    for (const char* function : {"SetCycleSize", "SetCycleTime", "DisableCycle"})
        EXPECT_NE(type->GetTypeFunction(function), nullptr) << function;
}

}  // namespace
