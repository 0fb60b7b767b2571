// What InitDataSetModule registers: every type name makes its item from an XML
// definition and the item answers the queries of its class; the scopes the names land
// in; the script step; a second call that registers nothing.

#include "common/common_wave_dataset_init.h"
#include "common/common_wave_interfaces.h"
#include "common/xml_dataset.h"
#include "dataset/axis.h"
#include "dataset/dataset_base.h"
#include "dataset/dataset_base_ex.h"
#include "dataset/math_dataset_interface.h"
#include "dataset/type_source.h"
#include "host/func_item.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/xml_items.h"
#include "math/math_dataset.h"
#include "module/dataset_manager.h"
#include "module/module_entry.h"
#include "module_test_scope.h"
#include "reader/basic_wave_reader.h"
#include "reader/data_piece.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using module_tests::Scope;

template <class T>
bool Answers(IBaseCtr* item) {
    return static_cast<bool>(QueryInterface<T>(item));
}

struct Expected {
    const char* type;
    std::function<bool(IBaseCtr*)> answers;
};

TEST(TypeRegistration, EveryNameMakesItsItemFromXmlAndTheItemAnswersForItsClass) {
    const auto wave = [](IBaseCtr* item) { return Answers<DataSetBase>(item) && Answers<IBasicWaveReader>(item); };
    const auto trend = [](IBaseCtr* item) { return Answers<DataSetBase>(item); };
    const std::vector<Expected> expected = {
        {"AXIS", Answers<IDatasetAxis>},
        {"WAVEDATASET[FLOAT]", wave},
        {"WAVEDATASET[INT16]", wave},
        {"WAVEDATASET[DOUBLE]", wave},
        {"DEVWAVEDATASET[FLOAT]", wave},
        {"MATH[DOUBLE,+]", [&](IBaseCtr* item) { return wave(item) && Answers<IMathDataSet>(item); }},
        {"MATH[DOUBLE,-]", [&](IBaseCtr* item) { return wave(item) && Answers<IMathDataSet>(item); }},
        {"MATH[FLOAT,+]", [&](IBaseCtr* item) { return wave(item) && Answers<IMathDataSet>(item); }},
        {"MATH[FLOAT,-]", [&](IBaseCtr* item) { return wave(item) && Answers<IMathDataSet>(item); }},
        {"BASIC_TREND[FLOAT]", trend},
        {"BASIC_TREND[DOUBLE]", trend},
        {"BASIC_TREND[UINT8]", trend},
        {"BASIC_TREND[UINT16]", trend},
        {"BASIC_TREND[UINT32]", trend},
        {"BASIC_TREND[UINT64]", trend},
        {"BASIC_TREND[INT8]", trend},
        {"BASIC_TREND[INT16]", trend},
        {"BASIC_TREND[INT32]", trend},
        {"BASIC_TREND[INT64]", trend},
        {"WaveDataset", Answers<IDataSetEx>},
        {"WaveDatasetInit", Answers<CommonWaveDataSetInit>},
        {"_DataSetEx_",
         [](IBaseCtr* item) {
             return Answers<DataSetBaseEx>(item) && Answers<IDataSetBase>(item) && Answers<ISerializable>(item);
         }},
        {"_DataSetMgrEx_", Answers<IVellumDataSetMgrEx>},
        {"PieceDataset", Answers<Vellum::DataPieceWrapper>},
        {"TypeSource", Answers<CTypeSource>},
        {"dataset", Answers<XmlDataset>},
    };
    for (const Expected& e : expected) {
        const std::string xml = std::string("<items><item name=\"made\" type=\"") + e.type + "\"/></items>";
        std::vector<std::unique_ptr<IBaseCtr>> items = CreateItemsFromXml(&Scope(), xml);
        ASSERT_EQ(items.size(), 1u) << e.type;
        EXPECT_TRUE(e.answers(items[0].get())) << e.type;
    }
}

TEST(TypeRegistration, NamesLandInTheirScopesAndOnlyTheNamedElementTypesHaveNames) {
    CLocalSource& scope = Scope();
    ILocalSource* root = GetCPPTypeManager()->Root();
    for (const char* name : {"WAVEDATASET[FLOAT]", "DEVWAVEDATASET[FLOAT]", "WaveDataset", "_DataSetMgrEx_",
                             "PieceDataset", "TypeSource", "dataset", "ValidDataArea", "LogicResult", "FindEdgeResult"})
        EXPECT_NE(scope.GetLocalItemType(name, false), nullptr) << name;
    for (const char* name : {"AXIS", "BASIC_TREND[FLOAT]", "BASIC_TREND[INT64]", "_DataSetEx_"}) {
        EXPECT_EQ(scope.GetLocalItemType(name, false), nullptr) << name;
        EXPECT_NE(root->GetLocalItemType(name, false), nullptr) << name;
    }
    EXPECT_EQ(scope.GetLocalItemType("WAVEDATASET[INT32]", true), nullptr);
    // The operators as mapped: "+" is instance 2 (the mean), "-" instance 1.
    std::unique_ptr<IBaseCtr> plus(CreateItemByType(&scope, "MATH[DOUBLE,+]", "plus"));
    std::unique_ptr<IBaseCtr> minus(CreateItemByType(&scope, "MATH[FLOAT,-]", "minus"));
    EXPECT_TRUE((QueryInterface<MathDataSet<double, 2>>(plus.get())));
    EXPECT_TRUE((QueryInterface<MathDataSet<float, 1>>(minus.get())));
    EXPECT_TRUE(GetRootFuncManager()->Has("dataset"));

    // The static manager: an item of the scope and the published interface, one object.
    IBaseCtr* manager = scope.GetItem("_DataSetMgrEx_", false);
    ASSERT_NE(manager, nullptr);
    Ctr<IVellumDataSetMgrEx> from_item = QueryInterface<IVellumDataSetMgrEx>(manager);
    ASSERT_TRUE(from_item);
    EXPECT_EQ(Vellum::MagicCast<IVellumDataSetMgrEx>(GetStaticInterface(VellumTypeOf<IVellumDataSetMgrEx>())),
              from_item.get());
}

TEST(TypeRegistration, ASecondInitRegistersNothing) {
    CLocalSource& scope = Scope();
    const std::vector<std::string> before = scope.ItemTypeNames();
    const std::vector<std::string> items_before = scope.ItemNames();
    CLocalSource other("second", GetRootLocal());
    EXPECT_TRUE(InitDataSetModule(&scope, 4, 8, 2, 5));
    EXPECT_EQ(scope.ItemTypeNames(), before);
    EXPECT_EQ(scope.ItemNames(), items_before);
    // "AXIS" is known through the root, so another scope gets nothing either.
    EXPECT_TRUE(InitDataSetModule(&other, 4, 8, 2, 5));
    EXPECT_TRUE(other.ItemTypeNames().empty());
    EXPECT_TRUE(other.ItemNames().empty());
}

}  // namespace
