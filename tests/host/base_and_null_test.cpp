// The item's "__base" child, the null state of a struct item, and interface queries
// answered by a new instance of a dynamic item.

#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/item_type.h"
#include "host/struct_type.h"

#include <gtest/gtest.h>

namespace {

struct Counter {
    int value = 0;
    IBaseCtr* linked = nullptr;
    bool SetLinkItem(IBaseCtr* item, const std::string& name) {
        if (name == "__LinkData") linked = item;
        return true;
    }
};

TEST(ItemBase, TheBaseChildIsTheItemUnlessOneWasAdded) {
    CBaseItem item("x");
    EXPECT_EQ(item.GetChildItem("__base"), &item);
    auto* other = new CBaseItem("other");
    item.AddChildItem(other, "__base", true);
    EXPECT_EQ(item.GetChildItem("__base"), other);
}

TEST(StructNull, UnbindingMakesTheItemNullUntilMemoryIsBound) {
    IStructType* type = nullptr;
    StructBuilder(type, GetRootLocal(), "NullProbe").AddVar("a", "UINT32", {0, 4});
    std::unique_ptr<IBaseCtr> item(type->CreateItem("probe"));
    Ctr<CStruct> record = QueryInterface<CStruct>(item.get());
    ASSERT_TRUE(record);
    EXPECT_FALSE(record->IsNull());
    record->Bind(nullptr);
    EXPECT_TRUE(record->IsNull());
    uint32_t memory = 5;
    record->Bind(&memory);
    EXPECT_FALSE(record->IsNull());
    EXPECT_EQ(item->GetChildItem("a")->GetValue().ToUInt32(), 5u);
}

TEST(DynamicItemQuery, ANewInstanceOwnedByTheAnswer) {
    CLocalSource scope("dynamic-query", GetRootLocal());
    IItemType* counter = RegisterClassType<Counter>("Counter", &scope);
    CStructType owner_type("Owner", &scope);
    owner_type.RegisterDynamicItem("Count", counter, {{"config", ""}}, VellumTypeOf<Counter>());
    CBaseItem owner("owner", &owner_type);
    Ctr<Counter> first = QueryInterface<Counter>(&owner, "Count");
    Ctr<Counter> second = QueryInterface<Counter>(&owner, "Count");
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->linked, &owner);
    EXPECT_TRUE(owner.GetChildren().empty());  // not a child
    EXPECT_FALSE(QueryInterface<Counter>(&owner, "Other"));
    EXPECT_FALSE(QueryInterface<CBaseItem>(&owner, "Count"));  // not its interface
}

}  // namespace
