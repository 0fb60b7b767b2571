// Items, events, commands, interface queries and the binding glue.

#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/value_item.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

struct Animal {
    virtual ~Animal() = default;
    virtual std::string Sound() const = 0;
};
struct Dog : Animal { std::string Sound() const override { return "woof"; } };
struct Unrelated {};

}  // namespace

VELLUM_BASES(Dog, Animal);

namespace {

TEST(Events, OrderArgsSilenceRemovalOnceReplaceAndSelfRemoval) {
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

    int count = 0;
    auto handler = MakeEventHandler([&](IBaseCtr*) { ++count; });
    item.SubscribeEvent("E", handler);
    EventPublishHelper::SetSilenceMode(&item, true);
    EventPublishHelper::FireObjectEvent(&item, "E");
    EventPublishHelper::SetSilenceMode(&item, false);
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(count, 1);  // the silenced event reached nobody
    EXPECT_TRUE(item.RemoveSubscribeEvent("E", handler));
    EXPECT_FALSE(item.RemoveSubscribeEvent("E", handler));
    item.SubscribeEvent("E", MakeEventHandler([&](IBaseCtr*) { count += 10; }), SubscribeExtras{true});
    EventPublishHelper::FireObjectEvent(&item, "E");
    EventPublishHelper::FireObjectEvent(&item, "E");
    EXPECT_EQ(count, 11);  // the removed handler is gone, the once handler ran once

    item.SubscribeEvent("R", MakeEventHandler([&](IBaseCtr*) { count += 100; }));
    item.ReplaceEventHandler("R", MakeEventHandler([&](IBaseCtr*) { count += 1; }));
    EventPublishHelper::FireObjectEvent(&item, "R");
    EXPECT_EQ(count, 12);
    EventPublishHelper::FireObjectEvent(nullptr, "E");  // no item: nothing happens

    // A handler may unsubscribe itself and subscribe others while it runs.
    int self_calls = 0;
    EventHandlerPtr self;
    self = MakeEventHandler([&](IBaseCtr* from) {
        ++self_calls;
        from->RemoveSubscribeEvent("S", self);
        from->SubscribeEvent("S", MakeEventHandler([&](IBaseCtr*) { self_calls += 100; }));
    });
    item.SubscribeEvent("S", self);
    EventPublishHelper::FireObjectEvent(&item, "S");
    EXPECT_EQ(self_calls, 1);  // the handler added during the call waits for the next event
    EventPublishHelper::FireObjectEvent(&item, "S");
    EXPECT_EQ(self_calls, 101);
}

TEST(Children, DestroyFiresAndOwnedChildrenAreDeletedAndReplacedByName) {
    std::vector<std::string> destroyed;  // names read in the Destroy event: the item is still whole
    auto watch = [&](IBaseCtr* item) {
        item->SubscribeEvent("Destroy", MakeEventHandler([&](IBaseCtr* from) { destroyed.push_back(from->GetName()); }));
        return item;
    };
    CBaseItem borrowed("borrowed");
    {
        CBaseItem parent("parent");
        EXPECT_TRUE(parent.AddChildItem(watch(new CBaseItem("a")), "a", true));
        EXPECT_TRUE(parent.AddChildItem(&borrowed, "b", false));
        EXPECT_TRUE(parent.AddChildItem(watch(new CBaseItem("a2")), "a", true));  // replaces and deletes "a"
        EXPECT_EQ(destroyed, std::vector<std::string>{"a"});
        EXPECT_FALSE(parent.AddChildItem(nullptr, "n", true));
        EXPECT_EQ(parent.GetChildren(), (std::vector<std::string>{"a", "b"}));
        EXPECT_EQ(parent.GetChildItem("a")->GetName(), "a2");
        EXPECT_EQ(parent.GetChildItem("missing"), nullptr);
    }
    EXPECT_EQ(destroyed, (std::vector<std::string>{"a", "a2"}));
    EXPECT_EQ(borrowed.GetName(), "borrowed");  // not owned: still alive
}

TEST(Queries, NullForUnknownTypesBaseCastsAndOwnedHandles) {
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

    // An owned handle deletes the object with its last copy.
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
    bool Record(std::string call) { return calls.push_back(std::move(call)), true; }
    bool InitItem(IBaseCtr* item) { return Record("InitItem:" + item->GetName()); }
    bool SetLinkItem(IBaseCtr* item, const std::string& name) {
        return Record("SetLinkItem:" + name + "=" + (item ? item->GetName() : "null"));
    }
    bool FinishConfig(ILocalSource*, IBaseCtr*, const std::string& config) { return Record("FinishConfig:" + config); }
    bool OnCMD(const std::string& command, IBaseCtr*) { return Record("OnCMD:" + command) && command == "mine"; }
    std::string GetAttribute(const std::string& name) const { return name == "ElementType" ? "f32" : ""; }
    void SetCycle(unsigned long long bytes) { cycle = bytes; }
    double Twice(double v) { return 2 * v; }
};

TEST(Binding, CreationCommandsAttributesTypeFunctionsFieldsAndDynamicItems) {
    static CLocalSource scope("recorder-tests", GetRootLocal());
    IItemType* type = RegisterClassType<Recorder>("RECORDER", &scope);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(RegisterClassType<Recorder>("OTHER NAME", nullptr), type);  // a class is registered once
    std::unique_ptr<IBaseCtr> item(CreateItemByType(type->Source(), "RECORDER", "r1"));
    ASSERT_TRUE(item);
    Ctr<Recorder> object = QueryInterface<Recorder>(item.get());
    ASSERT_TRUE(object);
    EXPECT_EQ(object->calls, (std::vector<std::string>{"InitItem:r1", "FinishConfig:"}));
    EXPECT_EQ(item->GetItemType(), type);
    EXPECT_EQ(type->GetEventNames(), (std::vector<std::string>{"DataComes"}));

    // Commands go to the object, then to the generic handling.
    int updates = 0;
    item->SubscribeEvent("Update", MakeEventHandler([&](IBaseCtr*) { ++updates; }));
    EXPECT_TRUE(item->OnCMD("mine", nullptr));
    EXPECT_EQ(updates, 0);
    EXPECT_TRUE(item->OnCMD("update", nullptr));  // the object declines, the generic command fires
    EXPECT_EQ(updates, 1);
    EXPECT_FALSE(item->OnCMD("nobody", nullptr));
    EXPECT_EQ(object->calls.back(), "OnCMD:nobody");

    item->SetAttribute("exportable", "1");
    EXPECT_EQ(item->GetAttribute("ElementType"), "f32");
    EXPECT_EQ(item->GetAttribute("exportable"), "1");  // the object has no answer: the item's own
    EXPECT_EQ(item->GetAttribute("missing"), "");

    EXPECT_TRUE(CallTypeFunction(item.get(), "SetCycle", {Vellum::Var(1073741824ull)}));
    EXPECT_EQ(object->cycle, 1073741824u);
    EXPECT_FALSE(CallTypeFunction(item.get(), "SetCycle", {}));                 // wrong count
    EXPECT_FALSE(CallTypeFunction(item.get(), "SetCycle", {Vellum::Var(-1)}));  // does not convert
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

    // A dynamic item is made on first use, with its link and config.
    type->RegisterDynamicItem("ValidReader", type, {{"config", "TYPE=ValidReader,DataType=ValidDataArea"}},
                              VellumTypeOf<Dog>());
    IBaseCtr* dynamic = item->GetChildItem("ValidReader");
    ASSERT_NE(dynamic, nullptr);
    EXPECT_EQ(item->GetChildItem("ValidReader"), dynamic);  // the same item the second time
    EXPECT_EQ(dynamic->GetAttribute("config"), "TYPE=ValidReader,DataType=ValidDataArea");
    EXPECT_EQ(QueryInterface<Recorder>(dynamic)->calls,
              (std::vector<std::string>{"InitItem:ValidReader", "SetLinkItem:__LinkData=r1",
                                        "FinishConfig:TYPE=ValidReader,DataType=ValidDataArea"}));
}

IItemType* NoTypeFromXml(pugi::xml_node, ILocalSource*) { return nullptr; }
IItemType* OtherNoTypeFromXml(pugi::xml_node, ILocalSource*) { return nullptr; }
IItemType* NoTypeFromName(const std::string&, ILocalSource*) { return nullptr; }

TEST(Scopes, TypeCreatorsAreFoundByKindAndNameAndReplacedOnRegistration) {
    CLocalSource parent("parent");
    CLocalSource child("child", &parent);
    EXPECT_FALSE(parent.RegisterTypeCreator("t", nullptr));
    EXPECT_TRUE(parent.RegisterTypeCreator("t", &NoTypeFromXml));
    EXPECT_TRUE(parent.RegisterTypeCreatorEx("t", &NoTypeFromName));
    EXPECT_EQ(child.GetTypeCreator("t", true), &NoTypeFromXml);
    EXPECT_EQ(child.GetTypeCreator("t", false), nullptr);
    EXPECT_EQ(child.GetTypeCreatorEx("t", true), &NoTypeFromName);
    EXPECT_EQ(parent.GetTypeCreatorEx("u", true), nullptr);
    EXPECT_TRUE(parent.RegisterTypeCreator("t", &OtherNoTypeFromXml));  // a second registration replaces
    EXPECT_EQ(parent.GetTypeCreator("t", false), &OtherNoTypeFromXml);
    parent.Clear();
    EXPECT_EQ(child.GetTypeCreator("t", true), nullptr);
    EXPECT_EQ(child.GetTypeCreatorEx("t", true), nullptr);
}

}  // namespace
