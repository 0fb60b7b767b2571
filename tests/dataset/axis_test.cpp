// Axes: the linear mapping, the display-side info, the "AXIS" item with its "init"
// attribute, bound value items, commands and events.

#include "dataset/axis.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/struct_type.h"
#include "host/value_item.h"
#include "host/xml_items.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using testing_support::LogCapture;

// The scope the tests register "AXIS" in. Not the root scope: the module entry takes a
// root that knows "AXIS" for an earlier initialisation. Lives as long as the types.
ILocalSource* TypeScope() {
    static auto* scope = new CLocalSource("axis_test_types", GetRootLocal());
    return scope;
}

TEST(Mapping, RatioRoundsTo1e15AndLogsTinyRatiosInfoRangeIgnores1e13) {
    CRatio<double> ratio;
    ratio.SetRatioOffset(0.5, -3.0);
    Vellum::Var value, raw, out(7.0);
    ASSERT_TRUE(ratio.Translate(value, Vellum::Var(10.0)));
    EXPECT_DOUBLE_EQ(value.ToDouble(), 10.0 * 0.5 - 3.0);
    ASSERT_TRUE(ratio.ReverseTranslate(raw, value));
    EXPECT_DOUBLE_EQ(raw.ToDouble(), 10.0);
    EXPECT_FALSE(ratio.Translate(out, Vellum::Var("not a number")));

    ratio.SetRatioOffset(1.23456789012345e-9, 7.6e-15);
    EXPECT_DOUBLE_EQ(ratio.GetRatio(), 1.234568e-9);
    EXPECT_DOUBLE_EQ(ratio.GetOffset(), 8e-15);
    ratio.SetRatioOffset(1e300, -0.4e-15);  // too large to scale: kept, not infinite
    EXPECT_EQ(ratio.GetRatio(), 1e300);
    EXPECT_EQ(ratio.GetOffset(), 0.0);

    LogCapture log;
    ratio.SetRatioOffset(1e-9, 0.0);
    EXPECT_FALSE(log.ContainsSubstring("lfRatio"));
    ratio.SetRatioOffset(1e-10, 0.0);
    EXPECT_TRUE(log.Contains(LogLevel::Error, "设置的lfRatio太小了 =1e-10"));
    EXPECT_NEAR(ratio.GetRatio(), 1e-10, 1e-24);
    ratio.SetRatioOffset(0.0, 1.0);  // logged and kept: no inverse
    EXPECT_FALSE(ratio.ReverseTranslate(out, Vellum::Var(3.0)));
    EXPECT_EQ(out.ToDouble(), 7.0);

    CDataAxisInfo info;  // the display-side range: moves within 1e-12 are no change
    ASSERT_TRUE(info.SetRange(1.0, 2.0));
    EXPECT_FALSE(info.SetRange(1.0 + 1e-13, 2.0 - 1e-13));
    double begin = 0, end = 0;
    info.GetRange(&begin, &end);
    EXPECT_TRUE(begin == 1.0 && end == 2.0);
    EXPECT_TRUE(info.SetRange(1.0, 2.0 + 1e-11));
}

class AxisItemTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { RegisterAxisType(TypeScope()); }

    IBaseCtr* AddValue(const std::string& name, const std::string& text) {
        values_.emplace_back(Eval(text, &scope_));
        EXPECT_TRUE(values_.back()) << text;
        scope_.RegisterItem(name, values_.back().get(), false);
        return values_.back().get();
    }

    CDatasetAxis* MakeAxis(const std::string& init, const std::string& name = "sizeAxis") {
        auto items = CreateItemsFromXml(
            &scope_, "<items><item name=\"" + name + "\" type=\"AXIS\" init=\"" + init + "\"/></items>");
        EXPECT_EQ(items.size(), 1u);
        if (items.empty()) return nullptr;
        item_ = std::move(items.front());
        return QueryInterface<CDatasetAxis>(item_.get()).get();
    }

    static double Offset(IDatasetAxis* axis) {
        double offset = std::nan("");
        if (axis != nullptr) axis->GetRatioOffset(&offset, nullptr);
        return offset;
    }

    CLocalSource scope_{"axis_test", TypeScope()};
    std::vector<std::unique_ptr<IBaseCtr>> values_;
    std::unique_ptr<IBaseCtr> item_;
};

TEST_F(AxisItemTest, InitParsesLiteralsSignsAndBoundItems) {
    CDatasetAxis* axis = MakeAxis("ratio=1e-6,offset=-5,index_step=100");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis->GetIndexStep(), 100u);
    EXPECT_NEAR(axis->GetRatio(), 1e-6, 1e-20);
    EXPECT_NEAR(Offset(axis), -5.0 - 0.5e-6, 1e-12);  // -5 is the centre of one division
    // With 0 divisions Reset leaves the parsed offset as it is.
    const std::pair<const char*, double> signs[] = {
        {"offset=-5,count=0", -5.0}, {"offset=+5,count=0", 5.0}, {"offset:5;count:0", 5.0}, {"offset=--5,count=0", 5.0}};
    for (const auto& [init, offset] : signs) EXPECT_DOUBLE_EQ(Offset(MakeAxis(init, "s")), offset) << init;

    // A minus before a name binds the item without the sign, read at each query.
    IBaseCtr* centre = AddValue("centre", "DOUBLE = 2.0");
    axis = MakeAxis("offset=-centre,ratio=1e-3,count=0");
    EXPECT_DOUBLE_EQ(Offset(axis), 2.0);
    ASSERT_TRUE(centre->SetValue(Vellum::Var(3.0)));
    double offset = 0;
    axis->GetOffsetScale(&offset, nullptr);
    EXPECT_EQ(offset, 3.0);

    axis = MakeAxis("scale=abc,count=-3,index_step=1.5,colour=red,=7,;;", "bad");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis->GetScale(), 1u);
    EXPECT_EQ(axis->GetCount(), 1u);
    EXPECT_EQ(axis->GetIndexStep(), 0u);
    ASSERT_TRUE(axis->ScaleVar()->SetValue(Vellum::Var(5.0)));  // unparsed literal: unbound
    EXPECT_EQ(axis->GetScale(), 1u);
}

TEST_F(AxisItemTest, ResetTurnsDivisionsIntoSamplesAndGuardsItsResult) {
    IBaseCtr* div = AddValue("div", "DOUBLE = 0.01");
    const std::pair<const char*, const char*> values[] = {
        {"centre", "DOUBLE = 1.0"}, {"spd", "UINT64 = 100"}, {"ndiv", "UINT32 = 10"}, {"tiny", "DOUBLE = 1e-20"}};
    for (const auto& [name, text] : values) AddValue(name, text);
    CDatasetAxis* axis = MakeAxis("ratio=div,offset=centre,scale=spd,count=ndiv");
    ASSERT_NE(axis, nullptr);
    // 10 divisions of 0.01 s around 1.0, 100 samples each.
    EXPECT_NEAR(axis->GetRatio(), 0.01 / 100, 1e-15);
    EXPECT_NEAR(Offset(axis), 1.0 - 10 * 0.01 * 0.5, 1e-12);
    double begin = 0, end = 0;
    axis->GetRange(&begin, &end);
    EXPECT_NEAR(begin, 0.95, 1e-12);
    EXPECT_NEAR(end, 1.05, 1e-12);
    ASSERT_TRUE(div->SetValue(Vellum::Var(0.02)));
    EXPECT_TRUE(item_->OnCMD("Reset", nullptr));
    EXPECT_NEAR(axis->GetRatio(), 0.02 / 100, 1e-15);
    EXPECT_NEAR(Offset(axis), 1.0 - 10 * 0.02 * 0.5, 1e-12);

    LogCapture log;
    EXPECT_EQ(MakeAxis("ratio=tiny,count=0", "tiny_axis")->GetRatio(), 1e-15);
    EXPECT_TRUE(log.Contains(LogLevel::Error, "设置的lfRatio太小了 =1e-15"));
    // No samples per division: the parsed mapping stands, the command still answers true.
    axis = MakeAxis("ratio=0.5,offset=3,scale=0", "noscale");
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.5);
    EXPECT_DOUBLE_EQ(Offset(axis), 3.0);
    EXPECT_FALSE(axis->Reset());
    EXPECT_TRUE(item_->OnCMD("Reset", nullptr));

    // Locked: Reset only re-reads bound items; unbound, each Reset divides again.
    axis = MakeAxis("ratio=0.5,offset=3,scale=2,count=0", "locked");
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.25);
    ASSERT_TRUE(item_->OnCMD("Lock", nullptr));
    EXPECT_FALSE(axis->Reset());
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.25);
    ASSERT_TRUE(item_->OnCMD("UnLock", nullptr));
    EXPECT_TRUE(axis->Reset());
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.125);
    axis = MakeAxis("ratio=div,offset=0,scale=1,count=0", "bound");
    ASSERT_TRUE(item_->OnCMD("Lock", nullptr));
    ASSERT_TRUE(div->SetValue(Vellum::Var(0.75)));
    EXPECT_TRUE(axis->Reset());
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.75);
}

TEST_F(AxisItemTest, CommandsLogAndSetState) {
    CDatasetAxis* axis = MakeAxis("ratio=1e-3");
    ASSERT_NE(axis, nullptr);
    const double offset_before = Offset(axis), ratio_before = axis->GetRatio();
    LogCapture log;
    EXPECT_TRUE(item_->OnCMD("Lock", nullptr));
    EXPECT_TRUE(log.Contains(LogLevel::Info, fmt::format("axisstate lock : {}", fmt::ptr(axis))));
    EXPECT_EQ(item_->GetChildItem("axisstate")->GetValue().ToUInt64(), 1u);
    EXPECT_TRUE(axis->GetRatio() == ratio_before && Offset(axis) == offset_before);  // nothing else written
    EXPECT_TRUE(item_->OnCMD("UnLock", nullptr));
    EXPECT_TRUE(log.Contains(LogLevel::Info, fmt::format("axisstate unlock :{}", fmt::ptr(axis))));
    EXPECT_EQ(axis->GetAxisState(), 0u);
    EXPECT_TRUE(item_->OnCMD("DataPre", nullptr));
    EXPECT_EQ(item_->GetChildItem("hasdata")->GetValue().ToUInt64(), 0u);
    EXPECT_TRUE(item_->OnCMD("DataFinish", nullptr));
    EXPECT_TRUE(axis->HasData());
    // Names compare exactly; the rest goes to the item's generic commands.
    for (const char* other : {"lock", "DATAPRE"}) EXPECT_FALSE(item_->OnCMD(other, nullptr)) << other;
    EXPECT_EQ(axis->GetAxisState(), 0u);
    EXPECT_TRUE(axis->HasData());
    int updates = 0;
    item_->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr* from) { updates += from == item_.get(); }));
    EXPECT_TRUE(item_->OnCMD("Update", nullptr));
    axis->SetRatioOffset(-2.0, 4e-3);  // offset first
    axis->SetDataOffset(1.5);
    EXPECT_EQ(updates, 3);
    double offset = 0, ratio = 0;
    axis->GetRatioOffset(&offset, &ratio);
    EXPECT_DOUBLE_EQ(offset, -2.0);
    EXPECT_DOUBLE_EQ(ratio, 4e-3);
}

}  // namespace
