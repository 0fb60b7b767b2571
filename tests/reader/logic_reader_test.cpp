// Logic runs: a square wave walked both ways, areas without edges, the placement at a
// time, and the skipping of stale edges (through an edge reader that plays a script).

#include "support/derived_wave.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <deque>
#include <tuple>

namespace {

constexpr double kTolerance = 1e-8;

LogicResult ResultOf(IDataReader& reader) {
    LogicResult result{};
    reader.GetResult(&result);
    return result;
}

testing::AssertionResult IsRun(const LogicResult& run, int level, double begin, double end) {
    if (run.m_bValue == level && std::fabs(run.dBeginTime - begin) < kTolerance &&
        std::fabs(run.dEndTime - end) < kTolerance)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "run " << int(run.m_bValue) << " " << run.dBeginTime << " .. "
                                       << run.dEndTime << ", expected " << level << " " << begin << " .. " << end;
}

TEST(LogicReader, ASquareWaveIsWalkedRunByRun) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, Square(20, 3, 0.0, 10.0)}});
    auto logic = wave.Logic(5.0, 1.0);
    EXPECT_FALSE(logic->GetNextData());  // not placed yet
    EXPECT_FALSE(logic->GetPrevData());
    ASSERT_TRUE(logic->GetBeginData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 0, 1.000, 1.020));
    for (int i = 1; i < 6; ++i) {
        ASSERT_TRUE(logic->GetNextData());
        EXPECT_TRUE(IsRun(ResultOf(*logic), i % 2, 1.000 + 0.020 * i, 1.000 + 0.020 * (i + 1) - (i == 5 ? 0.001 : 0)));
    }
    EXPECT_FALSE(logic->GetNextData());
    EXPECT_FALSE(logic->GetEndData());  // one area has no end record
}

TEST(LogicReader, PlacedAtATimeAndSteppedBack) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, Square(20, 3, 0.0, 10.0)}});
    auto logic = wave.Logic(5.0, 1.0);
    // Before the first edge of the area: the run begins at the time asked.
    for (auto [time, level, begin, end, value] : {std::tuple{1.005, 0, 1.005, 1.020, 0.0}, {1.030, 1, 1.020, 1.040, 10.0}}) {
        ASSERT_TRUE(logic->GetAppointTimeData(time));
        EXPECT_TRUE(IsRun(ResultOf(*logic), level, begin, end));
        EXPECT_EQ(double{ResultOf(*logic).curValue}, value);
    }
    // A step back sets both internal times to the begin of the run it gives.
    ASSERT_TRUE(logic->GetPrevData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 0, 1.000, 1.020));
    EXPECT_EQ(logic->EndNs(), logic->BeginNs());
    EXPECT_EQ(double{ResultOf(*logic).curValue}, 10.0);  // only a placement writes the value
}

TEST(LogicReader, AreasWithoutEdgesAreOneRunEach) {
    // The level of such a run comes from the value at the area's duration taken as a
    // time: 0.099 s lies in the first area, at -1, for both areas.
    DerivedWave<double> wave;
    wave.Runs({{0.0, std::vector<double>(100, -1.0)}, {2.0, std::vector<double>(100, 3.0)}});
    auto logic = wave.Logic(5.0, 1.0);
    ASSERT_TRUE(logic->GetBeginData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 1, 0.0, 0.099));
    ASSERT_TRUE(logic->GetNextData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 1, 2.0, 2.099));
    EXPECT_FALSE(logic->GetNextData());
    ASSERT_TRUE(logic->GetEndData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 1, 2.0, 2.099));
    ASSERT_TRUE(logic->GetPrevData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 1, 0.0, 0.099));

    DerivedWave<double> positive;
    positive.Runs({{0.0, std::vector<double>(100, 3.0)}});
    auto high = positive.Logic(5.0, 1.0);
    ASSERT_TRUE(high->GetBeginData());
    EXPECT_EQ(int{ResultOf(*high).m_bValue}, 0);  // above the zero level of 0: low
}

// An edge reader that plays given edges.
class ScriptedEdges : public CEdgeDataReader<double> {
public:
    ScriptedEdges() : CEdgeDataReader<double>(nullptr, nullptr) {}
    std::deque<FindEdgeResult> begin, next, prev;
    FindEdgeResult current{};

    bool GetBeginData() override { return Pop(begin); }
    bool GetNextData() override { return Pop(next); }
    bool GetPrevData() override { return Pop(prev); }
    void GetResult(void* record) override { *static_cast<FindEdgeResult*>(record) = current; }

private:
    bool Pop(std::deque<FindEdgeResult>& edges) {
        if (edges.empty()) return false;
        current = edges.front();
        edges.pop_front();
        return true;
    }
};

TEST(LogicReader, StaleEdgesAreSkippedFiveAtMost) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, std::vector<double>(100, 0.0)}});
    auto make = [&](ScriptedEdges*& edges) {
        edges = new ScriptedEdges;
        auto logic = std::make_unique<CLogicDataReader<double>>(edges, CreateValidReader(*wave.dataset),
                                                                wave.dataset->CreateBasicWaveReader());
        edges->begin = {{1.0625, 2}};
        return logic;
    };
    ScriptedEdges* edges = nullptr;
    auto logic = make(edges);
    ASSERT_TRUE(logic->GetBeginData());
    EXPECT_TRUE(IsRun(ResultOf(*logic), 1, 1.0, 1.0625));
    edges->next = {{1.03125, 1}, {1.03125, 2}, {1.0625, 1}, {1.0, 2}, {1.015625, 1}, {1.09375, 1}};
    {
        testing_support::LogCapture log(LogLevel::Info);
        EXPECT_FALSE(logic->GetNextData());
        int stale = 0;
        for (const auto& [level, text] : log.Lines())
            if (level == LogLevel::Info && text.starts_with("Find EdgeTime less Current LogicTime!!!")) ++stale;
        EXPECT_EQ(stale, 5);
        EXPECT_TRUE(log.Contains(LogLevel::Info, "Find EdgeTime less Current LogicTime!!!1031250000"));
    }

    // Four stale edges and a fifth that lies behind the run.
    auto second = make(edges);
    ASSERT_TRUE(second->GetBeginData());
    edges->next = {{1.03125, 1}, {1.03125, 2}, {1.0625, 1}, {1.0, 2}, {1.09375, 1}};
    ASSERT_TRUE(second->GetNextData());
    EXPECT_TRUE(IsRun(ResultOf(*second), 0, 1.0625, 1.09375));  // before a rising edge: low
    // Backward the message differs.
    edges->prev = {{1.09375, 1}};
    testing_support::LogCapture log(LogLevel::Info);
    ASSERT_TRUE(second->GetPrevData());  // one stale edge, then none: back to the area start
    EXPECT_TRUE(log.Contains(LogLevel::Info, "Find EdgeTime big Current LogicTime!!! 1093750000"));
    EXPECT_TRUE(IsRun(ResultOf(*second), 1, 1.0, 1.0625));
}

}  // namespace
