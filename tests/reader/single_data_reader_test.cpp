// The iterator over a plain reader of records: links, positions at both ends, the sort
// key and the source id read by field name, and the source item's events.

#include "host/item_binding.h"
#include "host/struct_type.h"
#include "reader/single_data_reader.h"
#include "support/test_wave.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

// Records in memory.
class Records : public IReader {
public:
    std::vector<ValidDataArea> areas;
    uint64_t Count() override { return areas.size(); }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override {
        if (pos >= areas.size()) return 0;
        const uint64_t n = std::min<uint64_t>(count, areas.size() - pos);
        std::memcpy(out, &areas[pos], n * sizeof(ValidDataArea));
        return n;
    }
};

IStructType* FieldType(const char* name, const char* field, StructBuilder::Slot slot) {
    IStructType* type = nullptr;
    StructBuilder(type, &testing_support::ModuleScope(), name).AddVar(field, "UINT64", slot);
    return type;
}

struct Fixture {
    Records records;
    std::unique_ptr<IBaseCtr> source = std::make_unique<CBasePointItem<IReader>>("source", &records);
    std::unique_ptr<IBaseCtr> owner;
    SingleDataReader* reader = nullptr;

    Fixture() {
        for (int i = 0; i < 3; ++i) {
            ValidDataArea area{};
            area.start_time = 1000 * (i + 1);
            area.end_time = 1000 * (i + 1) + 500;
            area.index_id = 7 + static_cast<uint64_t>(i);
            records.areas.push_back(area);
        }
        IItemType* type = RegisterClassType<SingleDataReader>("SingleDataReader", &testing_support::ModuleScope());
        owner.reset(type->CreateItem("single"));
        reader = QueryInterface<SingleDataReader>(owner.get()).get();
        std::unique_ptr<IBaseCtr> record_type(
            testing_support::ModuleScope().GetLocalItemType("ValidDataArea", true)->CreateItem("t"));
        owner->SetLinkItem(record_type.get(), "type");
        owner->SetLinkItem(source.get(), "DataSource");
    }
};

TEST(SingleDataReader, WalksTheRecordsAndUnbindsAfterAFailedStep) {
    Fixture f;
    SingleDataReader& r = *f.reader;
    EXPECT_EQ(r.GetCount(), 3u);
    EXPECT_EQ(r.GetContainerCount(), 3u);
    ASSERT_TRUE(r.GotoBegin());
    IBaseCtr* record = r.GetIteratorVar();
    ASSERT_NE(record, nullptr);
    const auto start = [&] { return record->GetChildItem("start_time")->GetValue().ToInt64(); };
    EXPECT_EQ(start(), 1000);
    EXPECT_EQ(r.GetChildItem("end_time")->GetValue().ToInt64(), 1500);
    // Back from 0 asks for the position all ones: nothing, unbound, the index stays.
    EXPECT_FALSE(r.Prev());
    EXPECT_TRUE(r.IsNull());
    EXPECT_EQ(r.GetKey().ToUInt64(), 0u);
    ASSERT_TRUE(r.GotoEnd());
    EXPECT_FALSE(r.IsNull());
    EXPECT_EQ(start(), 3000);
    EXPECT_FALSE(r.Next());
    EXPECT_EQ(r.CurrentIndex(), 2u);
    EXPECT_TRUE(r.Goto("index", Vellum::Var(1)));
    EXPECT_EQ(start(), 2000);
    EXPECT_TRUE(r.Goto("__KEY__", Vellum::Var(0)));
    EXPECT_FALSE(r.Goto("Time", Vellum::Var(0)));
    EXPECT_EQ(QueryInterface<IStructDataSetReader>(f.owner.get()).get(), &r);
    EXPECT_EQ(QueryInterface<IReader>(f.owner.get()).get(), &f.records);
}

TEST(SingleDataReader, SortKeyAndSourceIdComeFromLinkedFieldNames) {
    Fixture f;
    SingleDataReader& r = *f.reader;
    EXPECT_EQ(r.GetSortKeyGen()(&f.records.areas[1]) + r.GetSourceId()(&f.records.areas[1]), 0u);  // without the links
    std::unique_ptr<IBaseCtr> sort(FieldType("SortByEnd", "nano_time", {8, 8})->CreateItem("s"));
    std::unique_ptr<IBaseCtr> id(FieldType("IdByIndex", "source_id", {16, 8})->CreateItem("i"));
    f.owner->SetLinkItem(sort.get(), "SORT");
    f.owner->SetLinkItem(id.get(), "sourceid");
    EXPECT_EQ(r.GetSortKeyGen()(&f.records.areas[1]), 2500u);
    EXPECT_EQ(r.GetSourceId()(&f.records.areas[2]), 9u);
}

TEST(SingleDataReader, ForwardsUpdatesAndForgetsADestroyedSource) {
    Fixture f;
    int updates = 0;
    auto handler = MakeEventHandler([&](IBaseCtr*) { ++updates; });
    f.owner->SubscribeEvent("Update", handler);
    EventPublishHelper::FireObjectEvent(f.source.get(), "Update");
    EXPECT_EQ(updates, 1);
    f.source.reset();  // fires "Destroy"
    EXPECT_EQ(f.reader->SourceItem(), nullptr);
    EXPECT_EQ(f.reader->GetCount(), 0u);
    EXPECT_FALSE(f.reader->GotoBegin());
}

}  // namespace
