// Dataset tools: axes and index periods, commands, data offsets, "WaveParam", screen flags.

#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using __internal::DataFillingTool;
using __internal::DataSetTool;

// Not the root scope, which the module entry reads to tell a first initialisation.
ILocalSource* TypeScope() {
    static auto* scope = new CLocalSource("dataset_tool_test_types", GetRootLocal());
    return scope;
}

// A dataset stand-in: an item that records the commands it gets and answers as told.
class RecordingItem : public CBaseItem {
public:
    using CBaseItem::CBaseItem;
    bool OnCMD(const std::string& command, IBaseCtr* argument) override {
        commands.emplace_back(command, argument);
        return answer;
    }
    std::vector<std::pair<std::string, IBaseCtr*>> commands;
    bool answer = true;
};

class DataSetToolTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        RegisterAxisType(TypeScope());
        RegisterWaveDatasetParametersType(TypeScope());
    }

    // An "AXIS" child of the dataset; a child of the same name is replaced.
    IDatasetAxis* AddAxis(const std::string& name) {
        IBaseCtr* axis = CreateItemByType(TypeScope(), "AXIS", name);
        EXPECT_NE(axis, nullptr);
        dataset_.AddChildItem(axis, name, true);
        return QueryInterface<IDatasetAxis>(axis).get();
    }

    // The index period of a dataset whose size axis has the given sample period.
    double IndexStepTimeFor(double period, uint64_t index_step = 0) {
        IDatasetAxis* axis = AddAxis("sizeAxis");
        if (axis == nullptr) return std::nan("");
        axis->SetRatioOffset(0.0, period);
        axis->SetIndexStep(index_step);
        return DataSetTool(&dataset_).GetIndexStepTime();
    }

    RecordingItem dataset_{"wave"};
};

TEST_F(DataSetToolTest, IndexPeriodIsAPowerOfTenBelowAThousandSamplesOrTheAxisStep) {
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(1e-3), 0.1);  // 100 samples
    EXPECT_NEAR(IndexStepTimeFor(1e-9) / 1e-9, 100.0, 1e-9);  // reached only to floating accuracy
    EXPECT_EQ(IndexStepTimeFor(2.0), 1000.0);  // capped: 500 samples
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(1.0), 100.0);  // 1000 s would be 1000 samples
    EXPECT_NEAR(IndexStepTimeFor(0.0), 1e-7, 1e-21);  // taken as 1 ns
    EXPECT_EQ(IndexStepTimeFor(std::nan("")), 1000.0);
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(2.0, 7), 14.0);
}

TEST_F(DataSetToolTest, AnswersFromBothAxesAndSendsCommands) {
    IDatasetAxis* size = AddAxis("sizeAxis");
    IDatasetAxis* data = AddAxis("dataAxis");
    ASSERT_TRUE(size && data);
    ASSERT_TRUE(size->SetOffsetScale(3.0, 0.5));
    ASSERT_TRUE(data->SetOffsetScale(7.0, 2.0));
    DataSetTool tool(&dataset_);
    EXPECT_EQ(tool.GetSizeAxisInfo(), std::make_pair(3.0, 0.5));  // (offset, width)
    EXPECT_EQ(tool.GetDataAxisInfo(), std::make_pair(2.0, 7.0));  // (width, offset)

    size->SetRatioOffset(1.0, 0.25);
    uint64_t scale = 4;
    size->SetScale(&scale);
    EXPECT_EQ(tool.GetTimeRange(), std::make_pair(1.0, 1.0 + 4 * 0.25));

    ASSERT_TRUE(dataset_.GetChildItem("dataAxis")->OnCMD("Lock", nullptr));
    EXPECT_EQ(tool.GetAxisState(), 0u);
    ASSERT_TRUE(dataset_.GetChildItem("sizeAxis")->OnCMD("Lock", nullptr));
    EXPECT_EQ(tool.GetAxisState(), 1u);
    // Commands go to the dataset, without argument.
    EXPECT_TRUE(tool.Lock() && tool.UnLock());
    dataset_.answer = false;
    EXPECT_FALSE(tool.Command("Clear"));
    std::string sent;
    for (const auto& [command, argument] : dataset_.commands) sent += command + (argument ? "+arg " : " ");
    EXPECT_EQ(sent, "lock unlock Clear ");
}

TEST_F(DataSetToolTest, DataOffsetIsAppliedAndRemoved) {
    IDatasetAxis* axis = AddAxis("sizeAxis");
    ASSERT_NE(axis, nullptr);
    axis->SetDataOffset(2.5);
    DataSetTool tool(&dataset_);
    double a = 10.0, b = 20.0;
    tool.ApplyDataOffset(&a, &b);
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(7.5, 17.5));
    tool.RemoveDataOffset(&a, nullptr);
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(10.0, 17.5));

    axis->SetDataOffset(-1.25);
    double begin = 3.0, end = 8.0;
    {
        DataOffsetUtility guard(&begin, &end, axis);
        EXPECT_EQ(std::make_pair(begin, end), std::make_pair(4.25, 9.25));
    }
    EXPECT_EQ(std::make_pair(begin, end), std::make_pair(3.0, 8.0));
    { DataOffsetUtility guard(nullptr, &end, nullptr); }
    EXPECT_EQ(end, 8.0);
}

TEST_F(DataSetToolTest, ParametersAreFoundOnceShareTheItemsMemoryAndReset) {
    IBaseCtr* param = WaveDatasetParameters::InitStructInfo(TypeScope());
    ASSERT_NE(param, nullptr);
    dataset_.AddChildItem(param, "WaveParam", true);

    DataSetTool tool(&dataset_);
    WaveDatasetParameters* parameters = tool.GetDataParameters();
    ASSERT_NE(parameters, nullptr);
    ASSERT_TRUE(param->GetChildItem("raw_point_offset")->SetValue(Vellum::Var(12)));
    EXPECT_EQ(parameters->raw_point_offset, 12u);
    parameters->time_offset = 99;
    EXPECT_EQ(param->GetChildItem("time_offset")->GetValue().ToUInt64(), 99u);
    ASSERT_TRUE(CallTypeFunction(param, "Reset", {}));
    EXPECT_EQ(parameters->raw_point_offset + parameters->index_offset + parameters->time_offset, 0u);

    // Two threads at once find the same record.
    DataSetTool fresh(&dataset_);
    WaveDatasetParameters* seen[2] = {nullptr, nullptr};
    std::thread first([&] { seen[0] = fresh.GetDataParameters(); });
    seen[1] = fresh.GetDataParameters();
    first.join();
    EXPECT_EQ(std::make_pair(seen[0], seen[1]), std::make_pair(parameters, parameters));

    // Found once: later calls and copies answer the same record, even without the child.
    DataSetTool copy = tool;
    ASSERT_TRUE(dataset_.RemoveChildItem("WaveParam"));
    std::unique_ptr<IBaseCtr> detached(param);
    EXPECT_EQ(tool.GetDataParameters(), parameters);
    EXPECT_EQ(copy.GetDataParameters(), parameters);
    EXPECT_EQ(DataSetTool(&dataset_).GetDataParameters(), nullptr);
}

TEST(ScreenValidPoints, FlagsColumnsThatReachANewSample) {
    using Flags = std::vector<unsigned char>;
    const double huge = std::numeric_limits<double>::max();
    struct { std::size_t columns; double step, start; Flags flags; } cases[] = {
        {4, 0.5, 0.0, {0, 0, 1, 0}},
        {6, 1.0 / 3.0, 0.5, {0, 0, 1, 0, 0, 1}},
        {2, 0.5, 1.0, {1, 0}},  // starts past sample 0
        {2, 0.5, 0.99, {0, 1}},
        {4, 2.5, 0.0, {0, 1, 1, 1}},
        {0, 0.5, 0.0, {}},
        {5, 1.0, -3.0, {0, 0, 0, 0, 1}},  // columns before sample 0 stay on it
        {3, std::nan(""), 0.0, {0, 0, 0}},
        {3, huge, 0.0, {0, 1, 0}},  // past the range all are on the last one
    };
    for (const auto& c : cases)
        EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(c.columns, c.step, c.start), c.flags) << c.columns << " " << c.step << " " << c.start;
}

}  // namespace
