// The value table read from XML: attributes per key, formats found in the scope or as
// base formats, values read from memory as the key's type and shown through the format.

#include "dataset/type_source.h"
#include "host/item_binding.h"
#include "host/value_format.h"
#include "host/xml_items.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

TEST(TypeSource, KeysKeepTheirAttributesAndShowValuesThroughTheirFormat) {
    static CLocalSource scope("type_source_test", GetRootLocal());
    RegisterClassType<CTypeSource>("TypeSource", &scope);
    RegisterBaseFormat("TS_HEX", "0x{:X}");
    CFormatItem local("TS_FIXED", "{:.2f}");
    scope.RegisterItem("TS_FIXED", &local, false);

    auto items = CreateItemsFromXml(&scope, R"(<items><item name="table" type="TypeSource">
        <state num="1" vtype="UINT16" caption="Running" color="#00FF00" format="TS_HEX"/>
        <state num="2" vtype="DOUBLE" caption="Level" split="|" format="TS_FIXED"/>
        <state num="3" vtype="INT8"/>
        <state num="4" vtype="NOSUCHTYPE" format="TS_HEX"/>
        <state caption="no number"/>
    </item></items>)");
    ASSERT_EQ(items.size(), 1u);
    Ctr<CTypeSource> table = QueryInterface<CTypeSource>(items[0].get());
    ASSERT_TRUE(table);
    EXPECT_FALSE(table->GetExtendCtr(VellumTypeOf<IItemXmlInit>(), false, {}));  // its own answer: itself only

    std::map<std::string, std::string> attributes;
    ASSERT_TRUE(table->GetKeySource(1, attributes));
    EXPECT_EQ(attributes, (std::map<std::string, std::string>{
                              {"caption", "Running"}, {"color", "#00FF00"}, {"split", ""}, {"vtype", "UINT16"}}));
    EXPECT_FALSE(table->GetKeySource(9, attributes));

    uint16_t word = 0xBEEF;
    double level = 3.14159;
    int8_t small = -5;
    EXPECT_EQ(table->GetValue(1, &word), "0xBEEF");
    EXPECT_EQ(table->GetValue(2, &level), "3.14");
    EXPECT_EQ(table->GetValue(3, &small), "-5");  // no format: the plain text
    EXPECT_EQ(table->GetValue(4, &word), "");     // no such value type
    EXPECT_EQ(table->GetValue(9, &word), "");
    EXPECT_EQ(table->GetValue(1, nullptr), "");
    scope.UnregisterItem("table", items[0].get());
    scope.UnregisterItem("TS_FIXED", &local);
}

}  // namespace
