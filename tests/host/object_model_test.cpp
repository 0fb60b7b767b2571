// Items, events, commands, interface queries and the binding glue.

#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/value_item.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

struct Animal {
    virtual ~Animal() = default;
    virtual std::string Sound() const = 0;
};
struct Dog : Animal {
    std::string Sound() const override { return "woof"; }
};
struct Unrelated {};

}  // namespace

VELLUM_BASES(Dog, Animal);

namespace {

TEST(Events, HandlersRunInSubscriptionOrderOnTheFiringThread) {
    CBaseItem item("item");
    std::vector<std::string> calls;
    const auto thread = std::this_thread::get_id();
    item.SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr* from) {
                            EXPECT_EQ(from, &item);
                            EXPECT_EQ(std::this_thread::get_id(), thread);
                            calls.push_back("first:" + EventPublishHelper::CurrentArgs());
                        }));
    item.SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { calls.push_back("second"); }));
    item.SubscribeEvent("Other", MakeEventHandler([&](IBaseCtr*) { calls.push_back("other"); }));

    EventPublishHelper::FireObjectEvent(&item, "Update", "args");
    EXPECT_EQ(calls, (std::vector<std::string>{"first:args", "second"}));
    EXPECT_EQ(EventPublishHelper::CurrentArgs(), "");
}

TEST(Events, SilenceRemovalOnceAndReplace) {
    CBaseItem item("item");
    int count = 0;
    auto handler = MakeEventHandler([&](IBaseCtr*) { ++count; });
    item.SubscribeEvent("E", handler);

    EventPublishHelper::SetSilenceMode(&item, true);
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(count, 0);
    EventPublishHelper::SetSilenceMode(&item, false);
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(count, 1);

    EXPECT_TRUE(item.RemoveSubscribeEvent("E", handler));
    EXPECT_FALSE(item.RemoveSubscribeEvent("E", handler));
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(count, 1);

    int once = 0;
    item.SubscribeEvent("E", MakeEventHandler([&](IBaseCtr*) { ++once; }), SubscribeExtras{true});
    EventPublishHelper::FireObjectEvent(&item, "E");
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(once, 1);

    int replaced = 0;
    item.SubscribeEvent("R", MakeEventHandler([&](IBaseCtr*) { replaced += 10; }));
    item.ReplaceEventHandler("R", MakeEventHandler([&](IBaseCtr*) { replaced += 1; }));
    EventPublishHelper::FireObjectEvent(&item, "R");
    EXPECT_EQ(replaced, 1);

    EventPublishHelper::FireObjectEvent(nullptr, "E");  // no item: nothing happens
}

TEST(Events, HandlerMayUnsubscribeItselfAndOthersWhileFiring) {
    CBaseItem item("item");
    int calls = 0;
    EventHandlerPtr self;
    self = MakeEventHandler([&](IBaseCtr* from) {
        ++calls;
        from->RemoveSubscribeEvent("E", self);
        from->SubscribeEvent("E", MakeEventHandler([&](IBaseCtr*) { calls += 100; }));
    });
    item.SubscribeEvent("E", self);
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(calls, 1);  // the handler added during the call waits for the next event
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(calls, 101);
}

TEST(Events, DestroyFiresBeforeTheItemGoes) {
    std::string seen;
    {
        CBaseItem item("doomed");
        item.SubscribeEvent("Destroy", MakeEventHandler([&](IBaseCtr* from) { seen = from->GetName(); }));
    }
    EXPECT_EQ(seen, "doomed");
}

TEST(Children, OwnedChildrenAreDeletedAndReplacedByName) {
    int destroyed = 0;
    auto watch = [&](IBaseCtr* item) {
        item->SubscribeEvent("Destroy", MakeEventHandler([&](IBaseCtr*) { ++destroyed; }));
        return item;
    };
    CBaseItem borrowed("borrowed");
    {
        CBaseItem parent("parent");
        EXPECT_TRUE(parent.AddChildItem(watch(new CBaseItem("a")), "a", true));
        EXPECT_TRUE(parent.AddChildItem(&borrowed, "b", false));
        EXPECT_TRUE(parent.AddChildItem(watch(new CBaseItem("a2")), "a", true));  // replaces and deletes "a"
        EXPECT_EQ(destroyed, 1);
        EXPECT_FALSE(parent.AddChildItem(nullptr, "n", true));
        EXPECT_EQ(parent.GetChildren(), (std::vector<std::string>{"a", "b"}));
        EXPECT_EQ(parent.GetChildItem("a")->GetName(), "a2");
        EXPECT_EQ(parent.GetChildItem("missing"), nullptr);
    }
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(borrowed.GetName(), "borrowed");  // not owned: still alive
}

TEST(Queries, UnknownTypesGiveNullAndBasesCastThroughTheirList) {
    CBaseItem item("item");
    EXPECT_FALSE(QueryInterface<Unrelated>(&item));
    EXPECT_FALSE(QueryInterface<Unrelated>(nullptr));
    EXPECT_EQ(QueryInterface<IBaseCtr>(&item).get(), &item);

    Dog dog;
    auto var = MakeCtrVar<Dog>(&dog);
    EXPECT_EQ(Vellum::MagicCast<Dog>(var), &dog);
    Animal* animal = Vellum::MagicCast<Animal>(var);
    ASSERT_NE(animal, nullptr);
    EXPECT_EQ(animal->Sound(), "woof");
    EXPECT_EQ(Vellum::MagicCast<Unrelated>(var), nullptr);
    EXPECT_EQ(Vellum::MagicCast<Dog>(std::shared_ptr<CtrVar>()), nullptr);
}

TEST(Queries, OwnedHandleDeletesTheObjectWithTheLastCopy) {
    CBaseItem* raw = new CBaseItem("owned");
    bool destroyed = false;
    raw->SubscribeEvent("Destroy", MakeEventHandler([&](IBaseCtr*) { destroyed = true; }));
    auto handle = MakeOwnedCtrVar<IBaseCtr>(std::unique_ptr<IBaseCtr>(raw));
    Ctr<IBaseCtr> typed(handle);
    handle.reset();
    EXPECT_FALSE(destroyed);
    typed = Ctr<IBaseCtr>();
    EXPECT_TRUE(destroyed);
}

// A class bound as an item type; it records the calls it gets.
struct Recorder {
    std::vector<std::string> calls;
    uint64_t cycle = 0;
    double trig_pos = 0;
    uint32_t state = 7;

    static bool InitType(IItemType* type, const std::string&) {
        type->RegisterEvent("DataComes", "");
        RegisterMemberFunction(type, "SetCycle", &Recorder::SetCycle);
        RegisterMemberFunction(type, "Twice", &Recorder::Twice);
        IStructType* fields = type->AsStruct();
        StructBuilder(fields, nullptr)
            .AddVar("trig_pos", "DOUBLE", {MemberOffset(&Recorder::trig_pos), 8})
            .AddVar("state", "UINT32", {MemberOffset(&Recorder::state), 4});
        return true;
    }
    bool InitItem(IBaseCtr* item) {
        calls.push_back("InitItem:" + item->GetName());
        return true;
    }
    bool SetLinkItem(IBaseCtr* item, const std::string& name) {
        calls.push_back("SetLinkItem:" + name + "=" + (item ? item->GetName() : "null"));
        return true;
    }
    bool FinishConfig(ILocalSource*, IBaseCtr*, const std::string& config) {
        calls.push_back("FinishConfig:" + config);
        return true;
    }
    bool OnCMD(const std::string& command, IBaseCtr*) {
        calls.push_back("OnCMD:" + command);
        return command == "mine";
    }
    std::string GetAttribute(const std::string& name) const { return name == "ElementType" ? "f32" : ""; }
    void SetCycle(unsigned long long bytes) { cycle = bytes; }
    double Twice(double v) { return 2 * v; }
};

IItemType* RecorderType() {
    static CLocalSource scope("recorder-tests", GetRootLocal());
    return RegisterClassType<Recorder>("RECORDER", &scope);
}

TEST(Binding, CreationByTypeRunsInitItemThenFinishConfigWithEmptyText) {
    IItemType* type = RecorderType();
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(RegisterClassType<Recorder>("OTHER NAME", nullptr), type);  // a class is registered once

    std::unique_ptr<IBaseCtr> item(CreateItemByType(type->Source(), "RECORDER", "r1"));
    ASSERT_TRUE(item);
    Ctr<Recorder> object = QueryInterface<Recorder>(item.get());
    ASSERT_TRUE(object);
    EXPECT_EQ(object->calls, (std::vector<std::string>{"InitItem:r1", "FinishConfig:"}));
    EXPECT_EQ(item->GetItemType(), type);
    EXPECT_EQ(type->GetEventNames(), (std::vector<std::string>{"DataComes"}));
}

TEST(Binding, CommandsGoToTheObjectThenToTheGenericHandling) {
    std::unique_ptr<IBaseCtr> item(CreateItemByType(RecorderType()->Source(), "RECORDER", "r2"));
    int updates = 0;
    item->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { ++updates; }));

    EXPECT_TRUE(item->OnCMD("mine", nullptr));
    EXPECT_EQ(updates, 0);
    EXPECT_TRUE(item->OnCMD("update", nullptr));  // the object declines, the generic command fires
    EXPECT_EQ(updates, 1);
    EXPECT_FALSE(item->OnCMD("nobody", nullptr));
    auto calls = QueryInterface<Recorder>(item.get())->calls;
    EXPECT_EQ(calls.back(), "OnCMD:nobody");
}

TEST(Binding, AttributesTypeFunctionsAndFields) {
    std::unique_ptr<IBaseCtr> item(CreateItemByType(RecorderType()->Source(), "RECORDER", "r3"));
    item->SetAttribute("exportable", "1");
    EXPECT_EQ(item->GetAttribute("ElementType"), "f32");
    EXPECT_EQ(item->GetAttribute("exportable"), "1");  // the object has no answer: the item's own
    EXPECT_EQ(item->GetAttribute("missing"), "");

    EXPECT_TRUE(CallTypeFunction(item.get(), "SetCycle", {Vellum::Var(1073741824ull)}));
    Ctr<Recorder> object = QueryInterface<Recorder>(item.get());
    EXPECT_EQ(object->cycle, 1073741824u);
    EXPECT_FALSE(CallTypeFunction(item.get(), "SetCycle", {}));                      // wrong count
    EXPECT_FALSE(CallTypeFunction(item.get(), "SetCycle", {Vellum::Var(-1)}));       // does not convert
    EXPECT_FALSE(CallTypeFunction(item.get(), "NoSuchFunction", {}));
    Vellum::Var result;
    EXPECT_TRUE(CallTypeFunction(item.get(), "Twice", {Vellum::Var(2.5)}, &result));
    EXPECT_DOUBLE_EQ(result.ToDouble(), 5.0);

    // Field items address the object itself.
    IBaseCtr* trig = item->GetChildItem("trig_pos");
    ASSERT_NE(trig, nullptr);
    EXPECT_TRUE(trig->SetValue(Vellum::Var(0.25)));
    EXPECT_DOUBLE_EQ(object->trig_pos, 0.25);
    EXPECT_EQ(item->GetChildItem("state")->GetValue().ToUInt32(), 7u);
}

TEST(DynamicItems, MadeOnFirstUseWithLinkAndConfig) {
    IItemType* owner_type = RecorderType();
    owner_type->RegisterDynamicItem("ValidReader", RecorderType(),
                                    {{"config", "TYPE=ValidReader,DataType=ValidDataArea"}}, VellumTypeOf<Dog>());

    std::unique_ptr<IBaseCtr> owner(CreateItemByType(owner_type->Source(), "RECORDER", "owner"));
    IBaseCtr* dynamic = owner->GetChildItem("ValidReader");
    ASSERT_NE(dynamic, nullptr);
    EXPECT_EQ(owner->GetChildItem("ValidReader"), dynamic);  // the same item the second time
    EXPECT_EQ(dynamic->GetAttribute("config"), "TYPE=ValidReader,DataType=ValidDataArea");
    EXPECT_EQ(QueryInterface<Recorder>(dynamic)->calls,
              (std::vector<std::string>{"InitItem:ValidReader", "SetLinkItem:__LinkData=owner",
                                        "FinishConfig:TYPE=ValidReader,DataType=ValidDataArea"}));
}

TEST(Scopes, LookupsClimbToParentsOnlyWhenAsked) {
    CLocalSource parent("parent");
    CLocalSource child("child", &parent);
    CBaseItem item("x");
    EXPECT_TRUE(parent.RegisterItem("x", &item, false));
    EXPECT_FALSE(parent.RegisterItem("x", &item, false));
    EXPECT_EQ(child.GetItem("x", true), &item);
    EXPECT_EQ(child.GetItem("x", false), nullptr);
    EXPECT_EQ(child.GetLocalItemType("AXIS", true), nullptr);
    EXPECT_EQ(child.GetRootLocalSource(), &parent);
    EXPECT_NE(GetRootLocal()->GetLocalItemType("DOUBLE", false), nullptr);
    EXPECT_TRUE(parent.UnregisterItem("x", &item));
    EXPECT_EQ(child.GetItem("x", true), nullptr);
}

}  // namespace
