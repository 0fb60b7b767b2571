// The script step "dataset": axes and ranges set from lists of numbers and named
// values, children, state values, the calculation range with its skip rule, and the
// commands handed on to the dataset.

#include "dataset/axis.h"
#include "dataset/math_dataset_interface.h"
#include "host/func_item.h"
#include "host/item_binding.h"
#include "host/value_item.h"
#include "host/xml_items.h"
#include "module/dataset_ctr_func.h"
#include "module_test_scope.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using module_tests::Scope;

// A calculated dataset that records what the step asks of it.
class FakeMath : public IMathDataSet {
public:
    std::vector<std::pair<double, double>> calculated;
    std::vector<std::pair<std::string, IBaseCtr*>> commands;
    double last_start = 0, last_end = 0;

    void CalcRange(double start, double end) override {
        calculated.emplace_back(start, end);
        last_start = start;
        last_end = end;
    }
    void GetLastRange(double& start, double& end) override {
        start = last_start;
        end = last_end;
    }
    bool OnCMD(const std::string& command, IBaseCtr* argument) {
        commands.emplace_back(command, argument);
        if (command == "Clear") last_start = last_end = 0;
        return command == "Known";
    }
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
        if (type == VellumTypeOf<IMathDataSet>()) return MakeCtrVar<IMathDataSet>(this);
        return {};
    }
};

bool RunSteps(const std::string& steps) {
    pugi::xml_document document;
    document.load_string(("<script>" + steps + "</script>").c_str());
    return RunScript(&Scope(), document.document_element());
}

// Items made from XML and registered in the scope under their names for one test.
struct Items {
    std::vector<std::unique_ptr<IBaseCtr>> items;
    explicit Items(const std::string& xml) : items(CreateItemsFromXml(&Scope(), "<items>" + xml + "</items>")) {}
    ~Items() {
        for (auto& item : items) Scope().UnregisterItem(item->GetName(), item.get());
    }
    IBaseCtr* operator[](std::size_t i) const { return items.at(i).get(); }
};

std::pair<double, double> OffsetRange(IBaseCtr* dataset, const char* axis) {
    std::pair<double, double> range{-1, -1};
    QueryInterface<IDatasetAxis>(dataset->GetChildItem(axis))->GetOffsetRange(&range.first, &range.second);
    return range;
}

std::pair<double, double> ScaleRange(IBaseCtr* dataset, const char* axis) {
    std::pair<double, double> range{-1, -1};
    QueryInterface<IDatasetAxis>(dataset->GetChildItem(axis))->GetScaleRange(&range.first, &range.second);
    return range;
}

TEST(DataSetCtrFunc, AxesTakeTheirItemsAndRangesFromNumbersAndNamedValues) {
    Items items(R"(<item name="ds" type="WAVEDATASET[FLOAT]"/>
                   <item name="sx" type="AXIS"/><item name="dx" type="AXIS"/>
                   <item name="seven" type="DOUBLE" value="7"/>
                   <item name="pair" type="STRING" value="3 4"/>)");
    ASSERT_EQ(items.items.size(), 5u);
    IBaseCtr* ds = items[0];
    EXPECT_FALSE(RunSteps(R"(<dataset id="nothere" ctr="setSizeAxis" value="sx"/>)"));
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds" ctr="setSizeAxis" value="nothere"/>)"));
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="setSizeAxis" value="sx"/><dataset id="ds" ctr="setDataAxis" value="dx"/>)"));
    EXPECT_EQ(ds->GetChildItem("sizeAxis"), items[1]);
    EXPECT_EQ(ds->GetChildItem("dataAxis"), items[2]);

    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="setSizeOffsetRange" value="1.5,seven"/>)"));
    EXPECT_EQ(OffsetRange(ds, "sizeAxis"), std::make_pair(1.5, 7.0));
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="setDataScaleRange" value="" args="lo:-2,hi:seven"/>)"));
    EXPECT_EQ(ScaleRange(ds, "dataAxis"), std::make_pair(-2.0, 7.0));
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="SETSIZESCALERANGE" value="5"/>)"));  // a missing value is 0
    EXPECT_EQ(ScaleRange(ds, "sizeAxis"), std::make_pair(5.0, 0.0));

    // "a b" texts: the data axis takes the halves the other way round.
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="setSizeOffsetRangeStr" value="pair"/>)"));
    EXPECT_EQ(OffsetRange(ds, "sizeAxis"), std::make_pair(3.0, 4.0));
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="setDataOffsetRangeStr" value="pair"/>)"));
    EXPECT_EQ(OffsetRange(ds, "dataAxis"), std::make_pair(4.0, 3.0));
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds" ctr="setDataOffsetRangeStr" value="seven"/>)"));  // one number only

    // An explicit size range; an empty wave has no valid range to reset to.
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds" ctr="ResetSizeAxisRange" value="0.25,seven"/>)"));
    EXPECT_EQ(ScaleRange(ds, "sizeAxis"), std::make_pair(0.25, 7.0));
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds" ctr="ResetSizeAxisRange"/>)"));
    EXPECT_EQ(ScaleRange(ds, "sizeAxis"), std::make_pair(0.25, 7.0));
}

TEST(DataSetCtrFunc, ChildrenAndStateValues) {
    Items items(R"(<item name="ds2" type="WAVEDATASET[DOUBLE]"/>
                   <item name="x1" type="DOUBLE" value="1"/><item name="x2" type="UINT32" value="2"/>
                   <item name="size" type="UINT64" value="4096"/>)");
    ASSERT_EQ(items.items.size(), 4u);
    IBaseCtr* ds = items[0];
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds2" ctr="setParent" value="a:x1,b:x2"/>)"));
    EXPECT_EQ(ds->GetChildItem("a"), items[1]);
    EXPECT_EQ(ds->GetChildItem("b"), items[2]);
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds2" ctr="setParent" value="c:nothere"/>)"));

    // The estimated size is made under "__base" on first use, then set again.
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds2" ctr="SetEstDataSize" value="size"/>)"));
    IBaseCtr* estimate = ds->GetChildItem("__base")->GetChildItem("EstDataSize");
    ASSERT_NE(estimate, nullptr);
    EXPECT_EQ(estimate->GetValue().ToUInt64(), 4096u);
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds2" ctr="SetEstDataSize" value="100"/>)"));
    EXPECT_EQ(ds->GetChildItem("__base")->GetChildItem("EstDataSize"), estimate);
    EXPECT_EQ(estimate->GetValue().ToUInt64(), 100u);

    // The data state is only set where it exists.
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds2" ctr="SetDataState" value="3"/>)"));
    ds->AddChildItem(Eval("UINT32 = 0", &Scope()), "ST_DataState", true);
    ASSERT_TRUE(RunSteps(R"(<dataset id="ds2" ctr="SetDataState" value="3"/>)"));
    EXPECT_EQ(ds->GetChildItem("ST_DataState")->GetValue().ToUInt64(), 3u);
}

TEST(DataSetCtrFunc, SystemBaseTimeIsCopiedIntoTheParent) {
    Items items(R"(<item name="base_time" type="DOUBLE" value="12.5"/>)");
    auto parent = CreateEventCtr();
    IBaseCtr* target = Eval("DOUBLE = 0", &Scope());
    parent->AddChildItem(target, "SystemBaseTime", true);
    IBaseCtr* ds = CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "ds3");
    parent->AddChildItem(ds, "ds3", true);
    Scope().RegisterItem("ds3", ds, false);
    EXPECT_TRUE(RunSteps(R"(<dataset id="ds3" ctr="SetSystemBaseTime" value="base_time"/>)"));
    EXPECT_EQ(target->GetValue().ToDouble(), 12.5);
    EXPECT_FALSE(RunSteps(R"(<dataset id="ds3" ctr="SetSystemBaseTime" value="nothere"/>)"));
    Scope().UnregisterItem("ds3", ds);
}

class CalcRange : public ::testing::Test {
protected:
    static void SetUpTestSuite() { RegisterClassType<FakeMath>("FAKE_MATH", &Scope()); }
    Items items{R"(<item name="math" type="FAKE_MATH"/><item name="two" type="DOUBLE" value="2"/>)"};
    FakeMath& math = *QueryInterface<FakeMath>(items[0]);

    bool Calc(const std::string& value) { return RunSteps(R"(<dataset id="math" ctr="setCalcRange" value=")" + value + "\"/>"); }
    int Clears() const {
        int n = 0;
        for (const auto& command : math.commands) n += command.first == "Clear";
        return n;
    }
};

TEST_F(CalcRange, ClearsAndCalculatesUnlessTheRangeLiesStrictlyInsideTheLastOne) {
    ASSERT_TRUE(Calc("start=0:end=10"));
    EXPECT_EQ(math.calculated, (std::vector<std::pair<double, double>>{{0, 10}}));
    EXPECT_EQ(Clears(), 1);
    ASSERT_TRUE(Calc("start=two:end=5"));  // inside: nothing to do
    EXPECT_EQ(math.calculated.size(), 1u);
    EXPECT_EQ(Clears(), 1);
    ASSERT_TRUE(Calc("a=0:b=5"));  // shares the start: calculated again
    EXPECT_EQ(math.calculated.back(), std::make_pair(0.0, 5.0));
    ASSERT_TRUE(Calc("a=two:b=20"));  // reaches beyond the end
    EXPECT_EQ(math.calculated.back(), std::make_pair(2.0, 20.0));
    ASSERT_TRUE(Calc("a=1:b="));  // a piece without a value leaves 0
    EXPECT_EQ(math.calculated.back(), std::make_pair(1.0, 0.0));
    EXPECT_EQ(Clears(), 4);

    // An empty argument does nothing; a dataset without the interface fails.
    ASSERT_TRUE(RunSteps(R"(<dataset id="math" ctr="setCalcRange"/>)"));
    EXPECT_EQ(math.calculated.size(), 4u);
    EXPECT_FALSE(RunSteps(R"(<dataset id="two" ctr="setCalcRange" value="a=1:b=2"/>)"));
}

TEST_F(CalcRange, OtherCommandsGoToTheDatasetWithTheNamedArgument) {
    EXPECT_TRUE(RunSteps(R"(<dataset id="math" ctr="Known" value="two"/>)"));
    ASSERT_EQ(math.commands.size(), 1u);
    EXPECT_EQ(math.commands[0], std::make_pair(std::string("Known"), items[1]));
    EXPECT_FALSE(RunSteps(R"(<dataset id="math" ctr="Unknown"/>)"));
    EXPECT_EQ(math.commands.back(), std::make_pair(std::string("Unknown"), static_cast<IBaseCtr*>(nullptr)));
}

TEST(DataSetCtrFunc, ListsSplitIntoPairsAndSingles) {
    using E = CDataSetCtrFunc::Element;
    EXPECT_EQ(CDataSetCtrFunc::SplitList("a:1, 2 ,b:x"), (std::vector<E>{{"a", "1"}, {"", "2"}, {"b", "x"}}));
    EXPECT_TRUE(CDataSetCtrFunc::SplitList("").empty());
    EXPECT_EQ(CDataSetCtrFunc::ValueOf(nullptr, "2.5"), 2.5);
    EXPECT_EQ(CDataSetCtrFunc::ValueOf(nullptr, "abc"), 0.0);
}

}  // namespace
