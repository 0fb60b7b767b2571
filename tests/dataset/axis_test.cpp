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

TEST(Ratio, DefaultsAndTranslation) {
    CRatio<double> ratio;
    EXPECT_EQ(static_cast<int>(ratio.GetVarType()), 9);
    EXPECT_EQ(ratio.GetRatio(), 1.0);
    EXPECT_EQ(ratio.GetOffset(), 0.0);
    ratio.SetRatioOffset(0.5, -3.0);
    Vellum::Var value, raw;
    ASSERT_TRUE(ratio.Translate(value, Vellum::Var(10.0)));
    EXPECT_DOUBLE_EQ(value.ToDouble(), 10.0 * 0.5 - 3.0);
    ASSERT_TRUE(ratio.ReverseTranslate(raw, value));
    EXPECT_DOUBLE_EQ(raw.ToDouble(), 10.0);

    Vellum::Var out(7.0);
    EXPECT_FALSE(ratio.Translate(out, Vellum::Var("not a number")));
    LogCapture log;
    ratio.SetRatioOffset(0.0, 1.0);  // too small, logged, kept: no inverse
    EXPECT_FALSE(ratio.ReverseTranslate(out, Vellum::Var(3.0)));
    EXPECT_EQ(out.ToDouble(), 7.0);
}

TEST(Ratio, StoresValuesRoundedTo1e15) {
    CRatio<double> ratio;
    ratio.SetRatioOffset(1.23456789012345e-9, 7.6e-15);
    EXPECT_DOUBLE_EQ(ratio.GetRatio(), 1.234568e-9);
    EXPECT_DOUBLE_EQ(ratio.GetOffset(), 8e-15);
    ratio.SetRatioOffset(1e300, -0.4e-15);  // too large to scale: kept, not infinite
    EXPECT_EQ(ratio.GetRatio(), 1e300);
    EXPECT_EQ(ratio.GetOffset(), 0.0);
}

TEST(Ratio, RatioBelow1e9IsLoggedAndUsed) {
    LogCapture log;
    CRatio<double> ratio;
    ratio.SetRatioOffset(1e-9, 0.0);
    EXPECT_FALSE(log.ContainsSubstring("lfRatio"));
    ratio.SetRatioOffset(1e-10, 0.0);
    EXPECT_TRUE(log.Contains(LogLevel::Error, "设置的lfRatio太小了 =1e-10"));
    EXPECT_NEAR(ratio.GetRatio(), 1e-10, 1e-24);
}

TEST(DataAxisInfo, RangeWithin1e12IsNoChange) {
    CDataAxisInfo info;
    ASSERT_TRUE(info.SetRange(1.0, 2.0));
    EXPECT_FALSE(info.SetRange(1.0 + 1e-13, 2.0 - 1e-13));
    double begin = 0, end = 0;
    info.GetRange(&begin, &end);
    EXPECT_EQ(begin, 1.0);
    EXPECT_EQ(end, 2.0);
    EXPECT_TRUE(info.SetRange(1.0, 2.0 + 1e-11));  // one end moving is a change
    info.GetRange(nullptr, &end);
    EXPECT_EQ(end, 2.0 + 1e-11);
}

class AxisItemTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { RegisterAxisType(TypeScope()); }

    // A named value item of the scope, kept by the test.
    IBaseCtr* AddValue(const std::string& name, const std::string& text) {
        values_.emplace_back(Eval(text, &scope_));
        EXPECT_TRUE(values_.back()) << text;
        scope_.RegisterItem(name, values_.back().get(), false);
        return values_.back().get();
    }

    // An axis item made from XML as a dataset definition makes it.
    CDatasetAxis* MakeAxis(const std::string& init, const std::string& name = "sizeAxis") {
        auto items = CreateItemsFromXml(
            &scope_, "<items><item name=\"" + name + "\" type=\"AXIS\" init=\"" + init + "\"/></items>");
        EXPECT_EQ(items.size(), 1u);
        if (items.empty()) return nullptr;
        item_ = std::move(items.front());
        return QueryInterface<CDatasetAxis>(item_.get()).get();
    }

    static double Offset(IDatasetAxis* axis) {
        if (axis == nullptr) return std::nan("");
        double offset = 0;
        axis->GetRatioOffset(&offset, nullptr);
        return offset;
    }

    CLocalSource scope_{"axis_test", TypeScope()};
    std::vector<std::unique_ptr<IBaseCtr>> values_;
    std::unique_ptr<IBaseCtr> item_;
};

TEST_F(AxisItemTest, TypeFieldsAddressTheAxis) {
    IItemType* type = RegisterAxisType(&scope_);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(scope_.GetLocalItemType("AXIS", false), type);
    EXPECT_EQ(RegisterAxisType(TypeScope()), type);
    const StructField* aync = type->AsStruct()->FindField("aync");
    ASSERT_NE(aync, nullptr);
    EXPECT_EQ(aync->type, SysVarType::BOOL);

    CDatasetAxis* axis = MakeAxis("");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(item_->GetChildItem("hasdata")->GetValue().ToUInt64(), 1u);
    axis->SetTrigPos(2.5);
    axis->SetAsync(true);
    EXPECT_EQ(item_->GetChildItem("trig_pos")->GetValue().ToDouble(), 2.5);
    EXPECT_TRUE(item_->GetChildItem("aync")->GetValue().ToBool());
    ASSERT_TRUE(item_->GetChildItem("axisstate")->SetValue(Vellum::Var(1)));
    EXPECT_EQ(axis->GetAxisState(), 1u);
}

TEST_F(AxisItemTest, InitLiteralsAndOffsetSigns) {
    CDatasetAxis* axis = MakeAxis("ratio=1e-6,offset=-5,index_step=100");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis->GetIndexStep(), 100u);
    EXPECT_NEAR(axis->GetRatio(), 1e-6, 1e-20);
    // Reset took -5 as the centre of one division of 1e-6.
    EXPECT_NEAR(Offset(axis), -5.0 - 0.5e-6, 1e-12);
    // With 0 divisions Reset leaves the parsed offset as it is.
    EXPECT_DOUBLE_EQ(Offset(MakeAxis("offset=-5,count=0", "a")), -5.0);
    EXPECT_DOUBLE_EQ(Offset(MakeAxis("offset=+5,count=0", "b")), 5.0);
    EXPECT_DOUBLE_EQ(Offset(MakeAxis("offset:5;count:0", "c")), 5.0);
    EXPECT_DOUBLE_EQ(Offset(MakeAxis("offset=--5,count=0", "d")), 5.0);
}

TEST_F(AxisItemTest, OffsetWithMinusAndNameBindsTheItemUnsigned) {
    IBaseCtr* centre = AddValue("centre", "DOUBLE = 2.0");
    CDatasetAxis* axis = MakeAxis("offset=-centre,ratio=1e-3,count=0");
    ASSERT_NE(axis, nullptr);
    EXPECT_DOUBLE_EQ(Offset(axis), 2.0);
    ASSERT_TRUE(centre->SetValue(Vellum::Var(3.0)));
    double offset = 0;
    axis->GetOffsetScale(&offset, nullptr);
    EXPECT_EQ(offset, 3.0);  // read at the query, still without a sign
}

TEST_F(AxisItemTest, ResetTurnsDivisionsIntoSamples) {
    IBaseCtr* div = AddValue("div", "DOUBLE = 0.01");
    AddValue("centre", "DOUBLE = 1.0");
    AddValue("spd", "UINT64 = 100");
    AddValue("ndiv", "UINT32 = 10");
    CDatasetAxis* axis = MakeAxis("ratio=div,offset=centre,scale=spd,count=ndiv");
    ASSERT_NE(axis, nullptr);
    // 10 divisions of 0.01 s around 1.0, 100 samples each.
    EXPECT_NEAR(axis->GetRatio(), 0.01 / 100, 1e-15);
    EXPECT_NEAR(Offset(axis), 1.0 - 10 * 0.01 * 0.5, 1e-12);
    double begin = 0, end = 0, offset = 0, width = 0;
    axis->GetRange(&begin, &end);
    EXPECT_NEAR(begin, 0.95, 1e-12);
    EXPECT_NEAR(end, 1.05, 1e-12);
    axis->GetOffsetScale(&offset, &width);
    EXPECT_EQ(offset, 1.0);
    EXPECT_NEAR(width, 0.1, 1e-15);

    ASSERT_TRUE(div->SetValue(Vellum::Var(0.02)));
    EXPECT_TRUE(item_->OnCMD("Reset", nullptr));
    EXPECT_NEAR(axis->GetRatio(), 0.02 / 100, 1e-15);
    EXPECT_NEAR(Offset(axis), 1.0 - 10 * 0.02 * 0.5, 1e-12);
}

TEST_F(AxisItemTest, ResetGuardsItsResult) {
    AddValue("tiny", "DOUBLE = 1e-20");
    LogCapture log;
    CDatasetAxis* axis = MakeAxis("ratio=tiny,count=0");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis->GetRatio(), 1e-15);
    EXPECT_TRUE(log.Contains(LogLevel::Error, "设置的lfRatio太小了 =1e-15"));

    // No samples per division: the parsed mapping stands, the command still answers true.
    axis = MakeAxis("ratio=0.5,offset=3,scale=0", "noscale");
    ASSERT_NE(axis, nullptr);
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.5);
    EXPECT_DOUBLE_EQ(Offset(axis), 3.0);
    EXPECT_FALSE(axis->Reset());
    EXPECT_TRUE(item_->OnCMD("Reset", nullptr));
}

TEST_F(AxisItemTest, LockedAxisResetsOnlyWithBoundItems) {
    CDatasetAxis* axis = MakeAxis("ratio=0.5,offset=3,scale=2,count=0");
    ASSERT_NE(axis, nullptr);
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.25);
    ASSERT_TRUE(item_->OnCMD("Lock", nullptr));
    EXPECT_FALSE(axis->Reset());
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.25);
    ASSERT_TRUE(item_->OnCMD("UnLock", nullptr));
    EXPECT_TRUE(axis->Reset());
    EXPECT_DOUBLE_EQ(axis->GetRatio(), 0.125);  // unbound: each Reset divides again

    IBaseCtr* div = AddValue("div", "DOUBLE = 0.5");
    axis = MakeAxis("ratio=div,offset=0,scale=1,count=0", "bound");
    ASSERT_NE(axis, nullptr);
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
    EXPECT_EQ(axis->GetAxisState(), 1u);
    EXPECT_EQ(axis->GetRatio(), ratio_before);  // locking writes nothing else
    EXPECT_EQ(Offset(axis), offset_before);
    EXPECT_TRUE(axis->HasData());
    EXPECT_TRUE(item_->OnCMD("UnLock", nullptr));
    EXPECT_TRUE(log.Contains(LogLevel::Info, fmt::format("axisstate unlock :{}", fmt::ptr(axis))));
    EXPECT_EQ(axis->GetAxisState(), 0u);
    EXPECT_TRUE(item_->OnCMD("DataPre", nullptr));
    EXPECT_FALSE(axis->HasData());
    EXPECT_EQ(item_->GetChildItem("hasdata")->GetValue().ToUInt64(), 0u);
    EXPECT_TRUE(item_->OnCMD("DataFinish", nullptr));
    EXPECT_TRUE(axis->HasData());

    // Names compare exactly; the rest goes to the item's generic commands.
    EXPECT_FALSE(item_->OnCMD("lock", nullptr));
    EXPECT_FALSE(item_->OnCMD("DATAPRE", nullptr));
    EXPECT_EQ(axis->GetAxisState(), 0u);
    EXPECT_TRUE(axis->HasData());
    int updates = 0;
    item_->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { ++updates; }));
    EXPECT_TRUE(item_->OnCMD("Update", nullptr));
    EXPECT_EQ(updates, 1);
}

TEST_F(AxisItemTest, RegistersTheAxisEvents) {
    ASSERT_NE(MakeAxis(""), nullptr);
    const std::vector<std::string> names = item_->Events().RegisteredNames();
    for (const char* event : {"BackReadScaleOffset", "GroupUpdate", "ScrollUpdate", "AutoScroll", "ScrollChanged"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), event), names.end()) << event;
        EXPECT_EQ(item_->Events().Signature(event), "");
    }
}

TEST_F(AxisItemTest, SetRatioOffsetAndDataOffsetFireUpdate) {
    CDatasetAxis* axis = MakeAxis("");
    ASSERT_NE(axis, nullptr);
    int updates = 0;
    item_->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr* from) { updates += from == item_.get(); }));
    axis->SetRatioOffset(-2.0, 4e-3);  // offset first
    EXPECT_EQ(updates, 1);
    double offset = 0, ratio = 0;
    axis->GetRatioOffset(&offset, &ratio);
    EXPECT_DOUBLE_EQ(offset, -2.0);
    EXPECT_DOUBLE_EQ(ratio, 4e-3);
    axis->SetDataOffset(1.5);
    EXPECT_EQ(updates, 2);
    EXPECT_EQ(axis->GetDataOffset(), 1.5);
}

TEST_F(AxisItemTest, SetOffsetScaleWritesChangesAndTellsTheLocalValues) {
    CDatasetAxis* axis = MakeAxis("count=4,scale=1");
    ASSERT_NE(axis, nullptr);
    int ratio_changes = 0, offset_changes = 0;
    axis->RatioVar()->SubscribeEvent("ValueChanged", MakeEventHandler([&](IBaseCtr*) { ++ratio_changes; }));
    axis->OffsetVar()->SubscribeEvent("ValueChanged", MakeEventHandler([&](IBaseCtr*) { ++offset_changes; }));
    EXPECT_TRUE(axis->SetOffsetScale(10.0, 2.0));
    EXPECT_EQ(axis->RatioVar()->GetValue().ToDouble(), 0.5);
    EXPECT_EQ(axis->OffsetVar()->GetValue().ToDouble(), 10.0);
    EXPECT_TRUE(axis->SetOffsetScale(10.0 + 1e-13, 2.0));  // within 1e-12: nothing
    EXPECT_EQ(ratio_changes, 1);
    EXPECT_EQ(offset_changes, 1);
    double offset = 0, width = 0;
    axis->GetOffsetScale(&offset, &width);
    EXPECT_EQ(offset, 10.0);
    EXPECT_EQ(width, 2.0);

    axis = MakeAxis("count=0", "nodiv");  // no division width: nothing written
    ASSERT_NE(axis, nullptr);
    EXPECT_FALSE(axis->SetOffsetScale(1.0, 2.0));
    EXPECT_EQ(axis->OffsetVar()->GetValue().ToDouble(), 0.0);
    double begin = 1.0, end = 3.0;
    axis->SetRange(&begin, &end);
    EXPECT_EQ(axis->RatioVar()->GetValue().ToDouble(), 1.0);
}

TEST_F(AxisItemTest, SetRangeWritesDivisionAndCentre) {
    IBaseCtr* div = AddValue("div", "DOUBLE = 1.0");
    IBaseCtr* centre = AddValue("centre", "DOUBLE = 0.0");
    CDatasetAxis* axis = MakeAxis("ratio=div,offset=centre,count=8");
    ASSERT_NE(axis, nullptr);
    double begin = 2.0, end = 6.0;
    axis->SetRange(&begin, &end);
    EXPECT_EQ(div->GetValue().ToDouble(), 0.5);
    EXPECT_EQ(centre->GetValue().ToDouble(), 4.0);
}

TEST_F(AxisItemTest, LimitsAndScaleFollowTheirItems) {
    IBaseCtr* max_scale = AddValue("maxs", "DOUBLE = 100.0");
    IBaseCtr* spd = AddValue("spd", "UINT64 = 10");
    CDatasetAxis* axis = MakeAxis("maxscaling=maxs,minscaling=0.5,maxoffset=9,minoffset=-9,scale=spd");
    ASSERT_NE(axis, nullptr);
    double min = 0, max = 0;
    axis->GetOffsetRange(&min, &max);
    EXPECT_EQ(min, -9.0);
    EXPECT_EQ(max, 9.0);
    ASSERT_TRUE(max_scale->SetValue(Vellum::Var(200.0)));
    axis->GetScaleRange(&min, &max);
    EXPECT_EQ(min, 0.5);
    EXPECT_EQ(max, 200.0);
    double new_min = 1.0, new_max = 300.0;
    axis->SetScaleRange(&new_min, &new_max);
    EXPECT_EQ(max_scale->GetValue().ToDouble(), 300.0);

    ASSERT_TRUE(spd->SetValue(Vellum::Var(25)));
    EXPECT_EQ(axis->GetScale(), 25u);
    uint64_t scale = 40;
    axis->SetScale(&scale);
    EXPECT_EQ(spd->GetValue().ToUInt64(), 40u);
}

TEST_F(AxisItemTest, BadInitTextKeepsFields) {
    CDatasetAxis* axis = MakeAxis("scale=abc,count=-3,index_step=1.5,colour=red,=7,;;");
    ASSERT_NE(axis, nullptr);
    EXPECT_EQ(axis->GetScale(), 1u);
    EXPECT_EQ(axis->GetCount(), 1u);
    EXPECT_EQ(axis->GetIndexStep(), 0u);
    // A literal that doesn't parse still unbinds the local value.
    ASSERT_TRUE(axis->ScaleVar()->SetValue(Vellum::Var(5.0)));
    EXPECT_EQ(axis->GetScale(), 1u);
}

TEST(BareAxis, WorksWithoutItem) {
    CDatasetAxis axis;
    EXPECT_EQ(axis.RatioVar(), nullptr);
    int updates = 0;
    axis.EventItem()->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { ++updates; }));
    axis.SetRatioOffset(1.0, 2e-3);
    EXPECT_EQ(updates, 1);
    double offset = 0, width = 0;  // nothing bound: the window comes from the mapping
    axis.GetOffsetScale(&offset, &width);
    EXPECT_DOUBLE_EQ(offset, 1.0);
    EXPECT_DOUBLE_EQ(width, 2e-3);

    axis.ApplyInit("ratio=2e-3,offset=-1,count=2", nullptr);
    axis.GetRatioOffset(&offset, nullptr);
    EXPECT_NEAR(offset, -1.0 - 2 * 2e-3 * 0.5, 1e-12);

    EXPECT_EQ(Vellum::MagicCast<IDatasetAxis>(axis.GetExtendCtr(VellumTypeOf<IDatasetAxis>(), false, "")),
              static_cast<IDatasetAxis*>(&axis));
    auto* display = Vellum::MagicCast<IOstraAxisInterface>(
        axis.GetExtendCtr(VellumTypeOf<IOstraAxisInterface>(), false, ""));
    ASSERT_NE(display, nullptr);
    EXPECT_EQ(display->GetRatio(), axis.GetRatio());  // one GetRatio answers both interfaces
    auto* mapping = Vellum::MagicCast<ITranslate>(axis.GetExtendCtr(VellumTypeOf<ITranslate>(), false, ""));
    Vellum::Var value;
    ASSERT_TRUE(mapping != nullptr && mapping->Translate(value, Vellum::Var(1.0)));
    EXPECT_DOUBLE_EQ(value.ToDouble(), axis.GetRatio() + offset);
    EXPECT_EQ(axis.GetExtendCtr(VellumTypeOf<CValueItem>(), false, ""), nullptr);

    ASSERT_TRUE(axis.InitItem(nullptr));
    ASSERT_NE(axis.CountVar(), nullptr);
    EXPECT_EQ(axis.CountVar()->GetValue().ToDouble(), 1.0);
    EXPECT_EQ(axis.EventItem()->Events().RegisteredNames().size(), 5u);
}

}  // namespace
