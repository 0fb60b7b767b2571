// The cycle entry of a wave dataset's configuration and what FinishConfig makes of it.

#include "support/test_wave.h"
#include "wave/basic_wave_cycler.h"
#include "wave/cycle_setting.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>
#include <vector>

namespace {

using testing_support::ModuleScope;
using testing_support::TestWave;

TEST(CycleSetting, KeyUnitsAndArguments) {
    EXPECT_TRUE(IsCycleKey("cycle") && IsCycleKey("CYCLE"));
    EXPECT_FALSE(IsCycleKey("cycles") || IsCycleKey(""));
    for (auto [text, kind, limit, step] : {std::tuple{"SIZE(1G,100M)", CycleSetting::Kind::kSize, 1073741824.0, 104857600.0},
                                           {"TIME(10M,1)", CycleSetting::Kind::kTime, 600.0, 1.0}}) {
        auto setting = ParseCycleSetting(text);
        ASSERT_TRUE(setting);
        EXPECT_EQ(std::make_tuple(setting->kind, setting->limit, setting->step), std::make_tuple(kind, limit, step));
    }
    // Units are case sensitive ("M" minutes, "m" milliseconds); an unknown unit counts 1.
    const std::vector<std::pair<const char*, double>> times = {
        {"5n", 5e-9}, {"2u", 2e-6}, {"3m", 0.003}, {"1.5h", 5400}, {"1d", 86400}, {"7", 7}, {"7H", 7}};
    for (const auto& [text, seconds] : times) EXPECT_DOUBLE_EQ(ReadCycleTime(text), seconds) << text;
    EXPECT_EQ(ReadCycleSize("2K"), 2048.0);
    EXPECT_EQ(ReadCycleSize("3 M"), 3145728.0);
    EXPECT_EQ(ReadCycleSize("2k"), 2.0);
}

// 0.25 s per sample, 2 samples per column: both steps are whole columns already.
TEST(WaveConfig, TheCycleEntryMakesTheCyclerChildOrNothing) {
    for (auto [config, type, step] : {std::tuple{"cycle=SIZE(1G,100M)", BasicWaveCycler::kSize, 104857600.0},
                                      {"disable_throttle,CYCLE=TIME(10M,1)", BasicWaveCycler::kTime, 1.0}}) {
        TestWave<float> wave("WAVEDATASET[FLOAT]", 0.25, 2);
        ASSERT_TRUE(wave.item->FinishConfig(&ModuleScope(), config));
        auto cycler = QueryInterface<BasicWaveCycler>(wave.item->GetChildItem("CircleTool"));
        ASSERT_TRUE(cycler) << config;
        EXPECT_EQ(std::make_pair(cycler->Type(), cycler->Step()), std::make_pair(type, step)) << config;
    }
    for (const char* config : {"cycle=FOO(1,2)", "cycles=SIZE(1K,1K)"}) {  // an unknown kind or key
        TestWave<float> wave("WAVEDATASET[FLOAT]", 0.25, 2);
        ASSERT_TRUE(wave.item->FinishConfig(&ModuleScope(), config));
        EXPECT_EQ(wave.item->GetChildItem("CircleTool"), nullptr) << config;
        int fired = 0;  // nor a size check
        wave.item->SubscribeEvent("OutLimit:Size", MakeEventHandler([&](IBaseCtr*) { ++fired; }));
        const std::vector<float> samples(4096, 1.0f);
        wave.dataset->Push(samples.data(), samples.size());
        EXPECT_EQ(fired, 0) << config;
    }
    for (const char* config : {"cycle=SIZE(lots,1M)", "cycle=SIZE(1M)", "cycle=TIME(1M,x)"}) {  // text without number
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
