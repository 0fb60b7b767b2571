// Dataset tools: axis look-ups and index periods, commands to the dataset, data offsets,
// the "WaveParam" record and the screen column flags.

#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/struct_type.h"

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

// The scope the tests register their types in; not the root scope, which the module
// entry reads to tell a first initialisation from a later one.
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

TEST_F(DataSetToolTest, DefaultIndexPeriodIsAPowerOfTenBelowAThousandSamples) {
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(1e-3), 0.1);  // 100 samples
    const double nano = IndexStepTimeFor(1e-9);      // reached only to floating accuracy
    EXPECT_NEAR(nano, 1e-7, 1e-21);
    EXPECT_NEAR(nano / 1e-9, 100.0, 1e-9);
    EXPECT_EQ(IndexStepTimeFor(2.0), 1000.0);  // capped: 500 samples
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(1.0), 100.0);  // 1000 s would be 1000 samples
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(-1e-3), 0.1);
    EXPECT_NEAR(IndexStepTimeFor(0.0), 1e-7, 1e-21);  // taken as 1 ns
    EXPECT_EQ(IndexStepTimeFor(std::nan("")), 1000.0);
}

TEST_F(DataSetToolTest, IndexStepOfTheAxisCountsSamples) {
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(1e-3, 100), 0.1);
    EXPECT_DOUBLE_EQ(IndexStepTimeFor(2.0, 7), 14.0);
}

TEST(DataSetToolWithoutAxes, AnswersDefaults) {
    CBaseItem dataset("plain");
    dataset.AddChildItem(new CBaseItem("dataAxis"), "dataAxis", true);  // not an axis
    dataset.AddChildItem(new CBaseItem("WaveParam"), "WaveParam", true);  // not parameters
    DataSetTool tool(&dataset);
    EXPECT_EQ(tool.SizeAxis(), nullptr);
    EXPECT_EQ(tool.DataAxis(), nullptr);
    EXPECT_EQ(tool.GetSampleTime(), 0.0);
    EXPECT_EQ(tool.GetIndexStepTime(), 1e-6);
    EXPECT_EQ(tool.GetSizeAxisInfo(), std::make_pair(0.0, 0.0));
    EXPECT_EQ(tool.GetDataAxisInfo(), std::make_pair(0.0, 0.0));
    EXPECT_EQ(tool.GetTimeRange(), std::make_pair(0.0, 0.0));
    EXPECT_EQ(tool.GetAxisState(), 0u);
    EXPECT_EQ(tool.GetDataParameters(), nullptr);
    double a = 4.0, b = 5.0;
    tool.ApplyDataOffset(&a, &b);
    EXPECT_EQ(a, 4.0);
    EXPECT_EQ(b, 5.0);

    DataSetTool none(nullptr);
    EXPECT_FALSE(none.Lock());
    EXPECT_FALSE(none.Command("Clear"));
    EXPECT_EQ(none.GetDataParameters(), nullptr);
}

TEST_F(DataSetToolTest, AnswersFromBothAxes) {
    IDatasetAxis* size = AddAxis("sizeAxis");
    IDatasetAxis* data = AddAxis("dataAxis");
    ASSERT_TRUE(size && data);
    ASSERT_TRUE(size->SetOffsetScale(3.0, 0.5));
    ASSERT_TRUE(data->SetOffsetScale(7.0, 2.0));
    DataSetTool tool(&dataset_);
    EXPECT_EQ(tool.SizeAxis(), size);
    EXPECT_EQ(tool.DataAxis(), data);
    EXPECT_EQ(tool.GetSizeAxisInfo(), std::make_pair(3.0, 0.5));  // (offset, width)
    EXPECT_EQ(tool.GetDataAxisInfo(), std::make_pair(2.0, 7.0));  // (width, offset)

    size->SetRatioOffset(1.0, 0.25);
    uint64_t scale = 4;
    size->SetScale(&scale);
    EXPECT_DOUBLE_EQ(tool.GetSampleTime(), 0.25);
    const auto [first, last] = tool.GetTimeRange();
    EXPECT_DOUBLE_EQ(first, 1.0);
    EXPECT_DOUBLE_EQ(last, 1.0 + 4 * 0.25);

    ASSERT_TRUE(dataset_.GetChildItem("dataAxis")->OnCMD("Lock", nullptr));
    EXPECT_EQ(tool.GetAxisState(), 0u);
    ASSERT_TRUE(dataset_.GetChildItem("sizeAxis")->OnCMD("Lock", nullptr));
    EXPECT_EQ(tool.GetAxisState(), 1u);
}

TEST_F(DataSetToolTest, CommandsGoToTheDatasetWithoutArgument) {
    DataSetTool tool(&dataset_);
    EXPECT_TRUE(tool.Lock());
    EXPECT_TRUE(tool.UnLock());
    dataset_.answer = false;
    EXPECT_FALSE(tool.Command("Clear"));
    ASSERT_EQ(dataset_.commands.size(), 3u);
    EXPECT_EQ(dataset_.commands[0].first, "lock");
    EXPECT_EQ(dataset_.commands[1].first, "unlock");
    EXPECT_EQ(dataset_.commands[2].first, "Clear");
    for (const auto& command : dataset_.commands) EXPECT_EQ(command.second, nullptr);
}

TEST_F(DataSetToolTest, DataOffsetIsAppliedAndRemoved) {
    IDatasetAxis* axis = AddAxis("sizeAxis");
    ASSERT_NE(axis, nullptr);
    axis->SetDataOffset(2.5);
    DataSetTool tool(&dataset_);
    double a = 10.0, b = 20.0;
    tool.ApplyDataOffset(&a, &b);
    EXPECT_EQ(a, 7.5);
    EXPECT_EQ(b, 17.5);
    tool.RemoveDataOffset(&a, nullptr);
    EXPECT_EQ(a, 10.0);
    EXPECT_EQ(b, 17.5);

    axis->SetDataOffset(-1.25);
    double begin = 3.0, end = 8.0;
    {
        DataOffsetUtility guard(&begin, &end, axis);
        EXPECT_EQ(begin, 4.25);
        EXPECT_EQ(end, 9.25);
    }
    EXPECT_EQ(begin, 3.0);
    EXPECT_EQ(end, 8.0);
    {
        DataOffsetUtility guard(nullptr, &end, nullptr);
        EXPECT_EQ(end, 8.0);
    }
    EXPECT_EQ(end, 8.0);
}

TEST_F(DataSetToolTest, ParametersTypeHasThreeCountersAndReset) {
    IItemType* type = RegisterWaveDatasetParametersType(TypeScope());
    ASSERT_NE(type, nullptr);
    const char* names[] = {"raw_point_offset", "index_offset", "time_offset"};
    for (std::size_t i = 0; i < 3; ++i) {
        const StructField* field = type->AsStruct()->FindField(names[i]);
        ASSERT_NE(field, nullptr) << names[i];
        EXPECT_EQ(field->type, SysVarType::UINT64);
        EXPECT_EQ(field->offset, 8 * i);
    }

    std::unique_ptr<IBaseCtr> param(WaveDatasetParameters::InitStructInfo(TypeScope()));
    ASSERT_NE(param, nullptr);
    WaveDatasetParameters* parameters = QueryInterface<WaveDatasetParameters>(param.get()).get();
    ASSERT_NE(parameters, nullptr);
    *parameters = {1, 2, 3};
    ASSERT_TRUE(CallTypeFunction(param.get(), "Reset", {}));
    EXPECT_EQ(parameters->raw_point_offset, 0u);
    EXPECT_EQ(parameters->index_offset, 0u);
    EXPECT_EQ(parameters->time_offset, 0u);
}

TEST_F(DataSetToolTest, ParametersAreFoundOnceAndShareTheItemsMemory) {
    IBaseCtr* param = WaveDatasetParameters::InitStructInfo(TypeScope());
    ASSERT_NE(param, nullptr);
    EXPECT_EQ(param->GetName(), "WaveParam");
    dataset_.AddChildItem(param, "WaveParam", true);

    DataSetTool tool(&dataset_);
    WaveDatasetParameters* parameters = tool.GetDataParameters();
    ASSERT_NE(parameters, nullptr);
    ASSERT_TRUE(param->GetChildItem("raw_point_offset")->SetValue(Vellum::Var(12)));
    EXPECT_EQ(parameters->raw_point_offset, 12u);
    parameters->time_offset = 99;
    EXPECT_EQ(param->GetChildItem("time_offset")->GetValue().ToUInt64(), 99u);

    // Two threads at once find the same record.
    DataSetTool fresh(&dataset_);
    WaveDatasetParameters* seen[2] = {nullptr, nullptr};
    std::thread first([&] { seen[0] = fresh.GetDataParameters(); });
    std::thread second([&] { seen[1] = fresh.GetDataParameters(); });
    first.join();
    second.join();
    EXPECT_EQ(seen[0], parameters);
    EXPECT_EQ(seen[1], parameters);

    // Found once: later calls and copies answer the same record, even without the child.
    DataSetTool copy = tool;
    ASSERT_TRUE(dataset_.RemoveChildItem("WaveParam"));
    std::unique_ptr<IBaseCtr> detached(param);
    EXPECT_EQ(tool.GetDataParameters(), parameters);
    EXPECT_EQ(copy.GetDataParameters(), parameters);
    EXPECT_EQ(DataSetTool(&dataset_).GetDataParameters(), nullptr);
}

using Flags = std::vector<unsigned char>;

TEST(ScreenValidPoints, FlagsColumnsThatReachANewSample) {
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(4, 0.5, 0.0), (Flags{0, 0, 1, 0}));
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(6, 1.0 / 3.0, 0.5), (Flags{0, 0, 1, 0, 0, 1}));
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(2, 0.5, 1.0), (Flags{1, 0}));  // starts past sample 0
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(2, 0.5, 0.99), (Flags{0, 1}));
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(4, 2.5, 0.0), (Flags{0, 1, 1, 1}));
}

TEST(ScreenValidPoints, EmptyAndOddInputs) {
    EXPECT_TRUE(DataFillingTool::GetScreenValidPointVec(0, 0.5, 0.0).empty());
    // Columns before sample 0 stay on sample 0; past the range all are on the last one.
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(5, 1.0, -3.0), (Flags{0, 0, 0, 0, 1}));
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(3, std::nan(""), 0.0), (Flags{0, 0, 0}));
    const double huge = std::numeric_limits<double>::max();
    EXPECT_EQ(DataFillingTool::GetScreenValidPointVec(3, huge, 0.0), (Flags{0, 1, 0}));
}

}  // namespace
