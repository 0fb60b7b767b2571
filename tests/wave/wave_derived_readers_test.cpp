// The derived readers as the host sees them: the wave dataset's interface queries, and the
// dynamic items "ValidReader", "EdgeReader" and "LogicReader" walked as iterators with
// a bound record item.

#include "support/derived_wave.h"
#include "host/struct_type.h"
#include "reader/infor_iterator_reader.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

template <class I>
Ctr<I> Query(IBaseCtr* item, const std::string& name = {}) {
    return QueryInterface<I>(item, name);
}

TEST(DerivedReaderItems, TheDatasetAnswersEachQueryWithANewReader) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, Square(20, 2, 0.0, 10.0)}});
    IBaseCtr* item = wave.item.get();
    // The answers are piece readers, so that a piece can place them.
    for (const VellumTypeID& type : {VellumTypeOf<IBasicLevelInformation>(), VellumTypeOf<CBasicLevelInformation<double>>(),
                                     VellumTypeOf<IBasicEdgeInformation>(), VellumTypeOf<CBasicEdgeInformation<double>>()})
        EXPECT_NE(Vellum::MagicCast<IPieceReader>(item->GetExtendCtr(type, false, "")), nullptr) << type.Name();
    EXPECT_FALSE(Query<CBasicLevelInformation<float>>(item));  // another element type
    auto levels = Query<IBasicLevelInformation>(item);
    LevelResult result;
    levels->Calc(1.0, 1.079, result);
    EXPECT_EQ(result.maximum, 10.0);

    auto first = Query<IDataReader>(item, "EdgeReader");
    auto second = Query<IDataReader>(item, "EdgeReader");
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get());
    EXPECT_TRUE(Query<IDataReader>(item, "LogicReader"));
    auto areas = Query<IDataReader>(item, "ValidReader");
    ASSERT_TRUE(areas);
    EXPECT_EQ(areas->GetCount(), 1u);
    EXPECT_FALSE(Query<IDataReader>(item, "Trend"));
    EXPECT_FALSE(Query<IDataReader>(item));
}

TEST(DerivedReaderItems, TheValidReaderItemWalksTheAreasThroughItsRecord) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, std::vector<double>(100, 1.0)}, {2.0, std::vector<double>(100, 2.0)}});
    IBaseCtr* iterator_item = wave.item->GetChildItem("ValidReader");
    ASSERT_NE(iterator_item, nullptr);
    EXPECT_EQ(iterator_item->GetAttribute("config"), "TYPE=ValidReader,DataType=ValidDataArea");
    auto iterator = Query<CInforIteratorReader>(iterator_item);
    ASSERT_TRUE(iterator);
    ASSERT_NE(iterator->DataReader(), nullptr);
    EXPECT_EQ(Query<IDataReader>(iterator_item).get(), iterator->DataReader());
    EXPECT_EQ(iterator->GetCount(), 2u);

    IBaseCtr* record = iterator->GetIteratorVar();
    ASSERT_NE(record, nullptr);
    const auto start = [&] { return record->GetChildItem("start_time")->GetValue().ToInt64(); };
    ASSERT_TRUE(iterator->GotoBegin());
    EXPECT_FALSE(iterator->IsNull());
    EXPECT_EQ(start(), 1000000000);
    EXPECT_TRUE(iterator->Next());
    EXPECT_EQ(record->GetChildItem("wave_beg_pos")->GetValue().ToUInt64(), 100u);
    EXPECT_EQ(iterator->GetKey().ToUInt64(), 1u);
    EXPECT_FALSE(iterator->Next());
    EXPECT_TRUE(iterator->IsNull());  // no record after a failed step
    EXPECT_TRUE(iterator->GotoEnd());
    EXPECT_EQ(start(), 2000000000);
    EXPECT_TRUE(iterator->Goto("Time", Vellum::Var(1.05)));
    EXPECT_EQ(start(), 1000000000);
    EXPECT_FALSE(iterator->Goto("INDEX", Vellum::Var(1)));
    EXPECT_TRUE(iterator->IsNull());
    EXPECT_FALSE(iterator->Goto("Time", Vellum::Var(std::string("soon"))));
}

TEST(DerivedReaderItems, EdgeAndLogicItemsTakeTheirParametersThroughTheIterator) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, Square(20, 2, 0.0, 10.0)}});
    auto edges = Query<CInforIteratorReader>(wave.item->GetChildItem("EdgeReader"));
    ASSERT_TRUE(edges);
    EdgeSearchParam edge_param{5.0, 1.0, 3};
    edges->SetupParame(&edge_param);
    IBaseCtr* edge = edges->GetIteratorVar();
    std::vector<uint32_t> types;
    for (bool ok = edges->GotoBegin(); ok; ok = edges->Next())
        types.push_back(edge->GetChildItem("u32EdgeType")->GetValue().ToUInt32());
    EXPECT_EQ(types, (std::vector<uint32_t>{1, 2, 1}));
    EXPECT_EQ(edges->GetCount(), 0u);

    auto logic = Query<CInforIteratorReader>(wave.item->GetChildItem("LogicReader"));
    ASSERT_TRUE(logic);
    LogicSearchParam logic_param{5.0, 1.0, 0};
    logic->SetupParame(&logic_param);
    ASSERT_TRUE(logic->GotoBegin());
    IBaseCtr* run = logic->GetIteratorVar();
    EXPECT_EQ(run->GetChildItem("m_bValue")->GetValue().ToInt64(), 0);
    EXPECT_NEAR(run->GetChildItem("dEndTime")->GetValue().ToDouble(), 1.020, 1e-8);
    ASSERT_TRUE(logic->Next());
    EXPECT_EQ(run->GetChildItem("m_bValue")->GetValue().ToInt64(), 1);
}

TEST(DerivedReaderItems, AnIteratorWithoutAReaderWalksNothing) {
    // A configuration that names no known reader leaves the iterator empty.
    DerivedWave<double> wave;  // registers the wave types, and with them the iterator
    IItemType* type = GetCPPTypeManager()->Find(VellumTypeOf<CInforIteratorReader>());
    ASSERT_NE(type, nullptr);
    std::unique_ptr<IBaseCtr> item(type->CreateItem("custom"));
    item->SetLinkItem(wave.item.get(), "__LinkData");
    item->FinishConfig(&testing_support::ModuleScope(), "TYPE=Nothing,DataType=FindEdgeResult");
    auto iterator = Query<CInforIteratorReader>(item.get());
    ASSERT_TRUE(iterator);
    EXPECT_EQ(iterator->DataReader(), nullptr);
    EXPECT_NE(iterator->GetIteratorVar(), nullptr);
    EXPECT_FALSE(iterator->Next() || iterator->GotoBegin());
    EXPECT_EQ(iterator->GetCount() + iterator->GetKey().ToUInt64(), 0u);
    EXPECT_FALSE(item->SetLinkItem(nullptr, "__LinkData"));

    // A record type smaller than the reader's records: the record shows their first bytes.
    wave.Runs({{1.0, Square(20, 2, 0.0, 10.0)}});
    std::unique_ptr<IBaseCtr> narrow(type->CreateItem("narrow"));
    narrow->SetLinkItem(wave.item.get(), "__LinkData");
    narrow->FinishConfig(&testing_support::ModuleScope(), "TYPE=LogicReader,DataType=FindEdgeResult");
    auto runs = Query<CInforIteratorReader>(narrow.get());
    LogicSearchParam param{5.0, 1.0, 0};
    runs->SetupParame(&param);
    ASSERT_TRUE(runs->GotoBegin());
    EXPECT_FALSE(runs->IsNull());
}

}  // namespace
