// The cycle entry of a wave dataset's configuration and what FinishConfig makes of it.

#include "support/test_wave.h"
#include "wave/basic_wave_cycler.h"
#include "wave/cycle_setting.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace {

using testing_support::ModuleScope;
using testing_support::TestWave;

TEST(CycleSetting, KeyUnitsAndArguments) {
    EXPECT_TRUE(IsCycleKey("cycle") && IsCycleKey("CYCLE"));
    EXPECT_FALSE(IsCycleKey("cycles") || IsCycleKey(""));
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
    // Units are case sensitive ("M" minutes, "m" milliseconds); an unknown unit counts 1.
    const std::vector<std::pair<const char*, double>> times = {
        {"5n", 5e-9}, {"2u", 2e-6}, {"3m", 0.003}, {"1.5h", 5400}, {"1d", 86400}, {"7", 7}, {"7H", 7}};
    for (const auto& [text, seconds] : times) EXPECT_DOUBLE_EQ(ReadCycleTime(text), seconds) << text;
    EXPECT_EQ(ReadCycleSize("2K"), 2048.0);
    EXPECT_EQ(ReadCycleSize("3 M"), 3145728.0);
    EXPECT_EQ(ReadCycleSize("2k"), 2.0);
}

TEST(WaveConfig, CycleEntryMakesTheCyclerChild) {
    // 0.25 s per sample, 2 samples per column: both steps are whole columns already.
    TestWave<float> size_wave("WAVEDATASET[FLOAT]", 0.25, 2);
    ASSERT_TRUE(size_wave.item->FinishConfig(&ModuleScope(), "cycle=SIZE(1G,100M)"));
    auto cycler = QueryInterface<BasicWaveCycler>(size_wave.item->GetChildItem("CircleTool"));
    ASSERT_TRUE(cycler);
    EXPECT_EQ(cycler->Type(), BasicWaveCycler::kSize);
    EXPECT_EQ(cycler->Step(), 104857600.0);

    TestWave<float> time_wave("WAVEDATASET[FLOAT]", 0.25, 2);
    ASSERT_TRUE(time_wave.item->FinishConfig(&ModuleScope(), "disable_throttle,CYCLE=TIME(10M,1)"));
    cycler = QueryInterface<BasicWaveCycler>(time_wave.item->GetChildItem("CircleTool"));
    ASSERT_TRUE(cycler);
    EXPECT_EQ(cycler->Type(), BasicWaveCycler::kTime);
    EXPECT_EQ(cycler->Step(), 1.0);
}

TEST(WaveConfig, UnknownKindOrKeyMakesNoCycler) {
    for (const char* config : {"cycle=FOO(1,2)", "cycles=SIZE(1K,1K)"}) {
        TestWave<float> wave("WAVEDATASET[FLOAT]", 0.25, 2);
        ASSERT_TRUE(wave.item->FinishConfig(&ModuleScope(), config));
        EXPECT_EQ(wave.item->GetChildItem("CircleTool"), nullptr) << config;
        int fired = 0;
        wave.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
        const std::vector<float> samples(4096, 1.0f);
        wave.dataset->Push(samples.data(), samples.size());
        EXPECT_EQ(fired, 0) << config;
    }
}

TEST(WaveConfig, TextWithoutNumberThrowsBadArgumentOutOfFinishConfig) {
    for (const char* config : {"cycle=SIZE(lots,1M)", "cycle=SIZE(1M)", "cycle=TIME(1M,x)"}) {
        TestWave<float> wave("WAVEDATASET[FLOAT]", 0.25, 2);
        try {
            wave.item->FinishConfig(&ModuleScope(), config);
            ADD_FAILURE() << config << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "bad argument!!") << config;
        }
        EXPECT_EQ(wave.item->GetChildItem("CircleTool"), nullptr) << config;
    }
}

}  // namespace
