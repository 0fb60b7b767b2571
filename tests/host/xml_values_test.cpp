// Items from XML definitions, value items, struct types and Var conversions.

#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/value_item.h"
#include "host/xml_items.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

// Records the configuration steps it gets, including its XML node.
struct Configured : IItemXmlInit {
    std::vector<std::string> calls;
    bool InitItem(IBaseCtr*) {
        calls.push_back("InitItem");
        return true;
    }
    bool SetLinkItem(IBaseCtr* item, const std::string& name) {
        calls.push_back("SetLinkItem:" + name + "=" + item->GetName());
        return true;
    }
    bool InitItemByXML(ILocalSource*, IBaseCtr* item, const pugi::xml_node& node) override {
        calls.push_back(std::string("InitItemByXML:") + node.attribute("init").value() + ":children=" +
                        std::to_string(item->GetChildren().size()));
        return true;
    }
    bool FinishConfig(ILocalSource*, IBaseCtr*, const std::string& config) {
        calls.push_back("FinishConfig:" + config);
        return true;
    }
};

class XmlItems : public ::testing::Test {
protected:
    void SetUp() override { RegisterClassType<Configured>("CONFIGURED", GetCPPTypeManager()->Root()); }
    CLocalSource scope{"xml-tests", GetRootLocal()};
};

TEST_F(XmlItems, StepsRunInOrderWithChildrenLinksAndConfig) {
    auto items = CreateItemsFromXml(&scope, R"xml(
        <items>
          <item name="source" type="DOUBLE" value="2.5"/>
          <item name="ds" type="CONFIGURED" config="cycle=SIZE(1G,100M)" init="a=1" exportable="1">
            <item name="sizeAxis" type="UINT64" value="7"/>
            <link name="left" item="source"/>
          </item>
        </items>)xml");
    ASSERT_EQ(items.size(), 2u);
    IBaseCtr* ds = items[1].get();
    EXPECT_EQ(scope.GetItem("ds", false), ds);
    EXPECT_EQ(ds->GetAttribute("exportable"), "1");
    EXPECT_EQ(ds->GetChildItem("sizeAxis")->GetValue().ToUInt64(), 7u);
    EXPECT_EQ(QueryInterface<Configured>(ds)->calls,
              (std::vector<std::string>{"InitItem", "SetLinkItem:left=source", "InitItemByXML:a=1:children=1",
                                        "FinishConfig:cycle=SIZE(1G,100M)"}));
    items.clear();
    EXPECT_EQ(scope.GetItem("ds", false), nullptr);  // deleted items leave the scope
}

TEST_F(XmlItems, FailuresGiveNullAndAClearError) {
    testing_support::LogCapture log;
    EXPECT_TRUE(CreateItemsFromXml(&scope, "<items><item name='a' type='NO_SUCH_TYPE'/></items>").empty());
    EXPECT_TRUE(log.ContainsSubstring("unknown type \"NO_SUCH_TYPE\""));
    EXPECT_TRUE(CreateItemsFromXml(&scope, "<items><item name='b' type='CONFIGURED'><link name='l' item='ghost'/>"
                                           "</item></items>")
                    .empty());
    EXPECT_TRUE(log.ContainsSubstring("unknown item \"ghost\""));
    EXPECT_TRUE(CreateItemsFromXml(&scope, "<items><item name='c' type='DOUBLE' value='abc'/></items>").empty());
    EXPECT_TRUE(CreateItemsFromXml(&scope, "<items><unclosed></items>").empty());
    EXPECT_TRUE(log.ContainsSubstring("XML error"));
    EXPECT_EQ(scope.GetItem("b", false), nullptr);
}

TEST(ValueItems, EvalParsesTypeAndLiteral) {
    std::unique_ptr<IBaseCtr> ratio(Eval("DOUBLE = 1.0", nullptr));
    ASSERT_TRUE(ratio);
    EXPECT_DOUBLE_EQ(ratio->GetValue().ToDouble(), 1.0);
    std::unique_ptr<IBaseCtr> count(Eval(" uint32 =42 ", nullptr));
    ASSERT_TRUE(count);
    EXPECT_EQ(count->GetValue().ToUInt32(), 42u);
    std::unique_ptr<IBaseCtr> zero(Eval("INT16", nullptr));
    ASSERT_TRUE(zero);
    EXPECT_EQ(zero->GetValue().ToInt64(), 0);

    EXPECT_EQ(Eval("DOUBLE = x", nullptr), nullptr);
    EXPECT_EQ(Eval("UINT8 = 256", nullptr), nullptr);
    EXPECT_EQ(Eval("COMPLEX = 1", nullptr), nullptr);
    EXPECT_EQ(Eval("", nullptr), nullptr);
}

TEST(ValueItems, SetValueConvertsOrRefusesAndBindingFollowsMemory) {
    CValueItem small("small", SysVarType::INT8);
    EXPECT_TRUE(small.SetValue(Vellum::Var(-128)));
    EXPECT_FALSE(small.SetValue(Vellum::Var(128)));
    EXPECT_EQ(small.GetValue().ToInt64(), -128);  // unchanged by the refused value

    double memory = 3.0;
    CValueItem bound("bound", SysVarType::DOUBLE);
    bound.Bind(&memory);
    EXPECT_DOUBLE_EQ(bound.GetValue().ToDouble(), 3.0);
    EXPECT_TRUE(bound.SetValue(Vellum::Var(std::string("4.5"))));
    EXPECT_DOUBLE_EQ(memory, 4.5);

    CLocalSource scope("values", GetRootLocal());
    CValueItem source_item("rate", SysVarType::DOUBLE);
    source_item.SetValue(Vellum::Var(1e6));
    scope.RegisterItem("rate", &source_item, false);
    EXPECT_TRUE(SetItemValue(&bound, "rate", &scope, nullptr));
    EXPECT_DOUBLE_EQ(memory, 1e6);
    EXPECT_TRUE(SetItemValue(&bound, "-2", &scope, nullptr));
    EXPECT_DOUBLE_EQ(memory, -2.0);
    EXPECT_FALSE(SetItemValue(&bound, "nonsense", &scope, nullptr));
}

TEST(StructTypes, FieldsAreBoundValueItemsOfTheBlock) {
    IStructType* type = nullptr;
    {
        StructBuilder builder(type, GetRootLocal(), "Pair");
        builder.AddVar("a", "UINT32", {0, 4}).AddVar("b", "DOUBLE", {8, 8});
        EXPECT_TRUE(builder.Ok());
        builder.AddVar("a", "UINT32", {0, 4});      // duplicate name
        EXPECT_FALSE(builder.Ok());
    }
    {
        StructBuilder wrong(type, GetRootLocal());
        wrong.AddVar("c", "UINT32", {16, 8});  // width does not match the type
        EXPECT_FALSE(wrong.Ok());
    }
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->StructSize(), 16u);

    std::unique_ptr<IBaseCtr> record(type->CreateItem("record"));
    Ctr<CStruct> block = QueryInterface<CStruct>(record.get());
    ASSERT_TRUE(block);
    EXPECT_EQ(record->GetChildItem("a")->GetValue().ToUInt32(), 0u);  // zeroed
    record->GetChildItem("b")->SetValue(Vellum::Var(1.5));
    double b;
    std::memcpy(&b, static_cast<char*>(block->Data()) + 8, 8);
    EXPECT_DOUBLE_EQ(b, 1.5);

    unsigned char other[16] = {};
    other[0] = 9;
    block->Bind(other);
    EXPECT_EQ(record->GetChildItem("a")->GetValue().ToUInt32(), 9u);
    EXPECT_EQ(record->GetChildItem("nope"), nullptr);
}

TEST(Var, ConversionsReportErrors) {
    bool error = false;
    EXPECT_EQ(Vellum::Var(std::string("12")).ToUInt64(&error), 12u);
    EXPECT_FALSE(error);
    Vellum::Var(std::string("abc")).ToDouble(&error);
    EXPECT_TRUE(error);
    EXPECT_EQ(Vellum::Var(4294967296ull).ToUInt32(&error), 0u);
    EXPECT_TRUE(error);
    EXPECT_EQ(Vellum::Var(-1).ToUInt64(&error), 0u);
    EXPECT_TRUE(error);
    EXPECT_EQ(Vellum::Var(2.9).ToUInt64(&error), 2u);
    EXPECT_FALSE(error);
    Vellum::Var(std::numeric_limits<double>::quiet_NaN()).ToInt64(&error);
    EXPECT_TRUE(error);
    Vellum::Var(1e30).ToUInt64(&error);
    EXPECT_TRUE(error);
    EXPECT_TRUE(Vellum::Var(std::string("true")).ToBool());
    EXPECT_EQ(Vellum::Var(true).ToString(), "1");
    EXPECT_EQ(Vellum::Var().ToString(&error), "");
    EXPECT_TRUE(error);
}

TEST(Var, TypeWordsAndNumbers) {
    SysVarType type;
    ASSERT_TRUE(StrVarType("uint32", type));  // words are case-blind
    EXPECT_EQ(static_cast<int>(type), 6);
    EXPECT_FALSE(StrVarType("REAL", type));
    for (int t = 0; t <= static_cast<int>(SysVarType::STRING); ++t) {
        SysVarType back;
        ASSERT_TRUE(StrVarType(VarTypeStr(static_cast<SysVarType>(t)), back));
        EXPECT_EQ(static_cast<int>(back), t);
    }

    uint64_t u = 0;
    EXPECT_TRUE(SysStringToValue(7, "18446744073709551615", &u));
    EXPECT_EQ(u, std::numeric_limits<uint64_t>::max());
    uint32_t u32 = 5;
    EXPECT_FALSE(SysStringToValue(6, "4294967296", &u32));
    EXPECT_EQ(u32, 5u);
    double d = 0;
    EXPECT_TRUE(SysStringToValue(9, " 1e-3 ", &d));
    EXPECT_DOUBLE_EQ(d, 1e-3);
    EXPECT_FALSE(SysStringToValue(9, "1e-3x", &d));
    EXPECT_FALSE(SysStringToValue(99, "1", &d));
}

}  // namespace
