// Declared datasets: the declaration parser, its log lines, building storages once, and
// the items and readers handed out by key.

#include "common/xml_dataset.h"
#include "common/xml_dataset_definition.h"
#include "common_test_scope.h"
#include "host/base_ctr.h"
#include "host/configuration.h"
#include "host/serialization.h"
#include "host/value_item.h"
#include "reader/simple_reader.h"
#include "storage/storage_base.h"
#include "support/log_capture.h"
#include "wave/struct_reader.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

using common_tests::Scope;
using testing_support::LogCapture;

XmlDatasetDefinition Parse(const std::string& xml) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(xml.c_str()));
    XmlDatasetDefinition definition;
    ParseXmlDatasetDeclarations(document.document_element(), &Scope(), definition);
    return definition;
}

// A dataset type from the type creator, and one item of it.
std::unique_ptr<IBaseCtr> DeclaredItem(const std::string& type_xml, const std::string& item_xml) {
    pugi::xml_document type_document;
    EXPECT_TRUE(type_document.load_string(type_xml.c_str()));
    ILocalSource::TypeCreator creator = Scope().GetTypeCreator("dataset", true);
    EXPECT_NE(creator, nullptr);
    if (creator == nullptr || creator(type_document.document_element(), &Scope()) == nullptr) return nullptr;
    pugi::xml_document item_document;
    EXPECT_TRUE(item_document.load_string(item_xml.c_str()));
    return std::unique_ptr<IBaseCtr>(CreateItemByXmlNote(&Scope(), item_document.document_element()));
}

TEST(XmlDatasetDeclarations, FlagWordsAddUp) {
    EXPECT_EQ(ParseDataFlags("basic_wave|image;tree"), 1281u);
    EXPECT_EQ(ParseDataFlags("logic_wave;unknown|decode_wave"), 6u);
    EXPECT_EQ(ParseDataFlags(""), 0u);
    EXPECT_EQ(Parse(R"(<d><DATA_FLAGS flags="list"/><data_flags flags="basic_wave"/></d>)").flags, 513u);
}

TEST(XmlDatasetDeclarations, StoragesFirstMainWinsAndKeysAreUnique) {
    LogCapture log;
    const XmlDatasetDefinition definition = Parse(R"(<d><Storages>
        <file key="a" vtype="FLOAT" main=""/>
        <EXT_FILE key="b" vtype="DOUBLE" main="yes" init="path=x"/>
        <buffer key="c" vtype="ValidDataArea" init="bind=m"/>
        <file key="a" vtype="INT8"/>
        <file vtype="INT8"/>
        <tape key="d" vtype="INT8"/>
      </Storages></d>)");
    ASSERT_EQ(definition.storage_defs.size(), 4u);
    EXPECT_TRUE(definition.storage_defs.at("a").is_main);
    EXPECT_FALSE(definition.storage_defs.at("b").is_main);
    EXPECT_EQ(definition.storage_defs.at("a").device, XmlStorageDeclaration::kFile);
    EXPECT_EQ(UnitSizeOfType(definition.storage_defs.at("a").item_type), 4u);  // the first "a" stays
    EXPECT_EQ(definition.storage_defs.at("b").device, XmlStorageDeclaration::kExtFile);
    EXPECT_EQ(definition.storage_defs.at("b").init, "path=x");
    EXPECT_EQ(definition.storage_defs.at("c").device, XmlStorageDeclaration::kBuffer);
    EXPECT_EQ(UnitSizeOfType(definition.storage_defs.at("c").item_type), 48u);
    EXPECT_EQ(definition.storage_defs.at("d").device, XmlStorageDeclaration::kUnknown);
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "Unknown Storage Type: tape"));
}

TEST(XmlDatasetDeclarations, ReadersAndWritersNeedATypeAndAFactory) {
    LogCapture log;
    const XmlDatasetDefinition definition = Parse(R"(<d>
        <readers>
          <r key="one" type="IBasicWaveReader" factory="BasicWaveReader_f32" options="wave=W"/>
          <r key="one" type="IBasicWaveReader" factory="BasicWaveReader_f64"/>
          <r key="nofactory" type="IBasicWaveReader"/>
          <r key="badtype" type="NoSuchType" factory="BasicWaveReader_f32"/>
          <r key="badfactory" type="IBasicWaveReader" factory="NoSuchFactory"/>
        </readers>
        <writers><w key="w" type="BasicWaveWriter_u8" factory="BasicWaveWriter_u8"/>
                 <w key="w" type="BasicWaveWriter_u8" factory="BasicWaveWriter_u8"/></writers>
        <comment/></d>)");
    ASSERT_EQ(definition.reader_map.size(), 1u);
    const auto& readers = definition.reader_map.begin()->second;
    ASSERT_EQ(readers.size(), 1u);
    EXPECT_EQ(readers.at("one").options, "wave=W");
    EXPECT_EQ(readers.at("one").factory->TypeName(), "BasicWaveReader_f32");
    EXPECT_EQ(definition.writer_map.begin()->second.size(), 1u);
    // Duplicates are logged with the reader's words, also for a writer; the rest is silent.
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "Reader one already defined, skipped!"));
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "Reader w already defined, skipped!"));
    EXPECT_FALSE(log.ContainsSubstring("nofactory"));
}

TEST(XmlDataset, BuildsStoragesOnceAndLogsTheOnesItCannotMake) {
    LogCapture log;
    auto path_item = std::unique_ptr<IBaseCtr>(Eval("STRING", &Scope()));
    ASSERT_TRUE(path_item);
    Scope().RegisterItem("emptyPath", path_item.get(), true);
    auto item = DeclaredItem(R"(<dataset name="XDS_BUILD"><storages>
          <file key="w" vtype="FLOAT" init="version=1"/>
          <file key="v0" vtype="FLOAT" init="version=x"/>
          <ext_file key="e" vtype="FLOAT" init="path=@emptyPath"/>
          <ext_file key="none" vtype="FLOAT"/>
          <buffer key="b" vtype="FLOAT" init="bind=noSuchBuffer"/>
          <file key="u" vtype="NoSuchType"/>
          <disk key="k" vtype="FLOAT"/>
        </storages><data_flags flags="tree"/></dataset>)",
                             R"(<item name="xb" type="XDS_BUILD"/>)");
    ASSERT_TRUE(item);
    Ctr<XmlDataset> dataset = QueryInterface<XmlDataset>(item.get());
    ASSERT_TRUE(dataset);
    EXPECT_EQ(dataset->Storages().size(), 2u);
    EXPECT_NE(dataset->GetStorage("w"), nullptr);
    EXPECT_NE(dataset->GetStorage("v0"), nullptr);
    for (const char* key : {"e", "none", "b", "u", "k"})
        EXPECT_TRUE(log.Contains(LogLevel::Warning, std::string("cannot create storage: ") + key)) << key;
    EXPECT_EQ(dataset->Flags(), 1024u);

    // A second init step finds the keys taken and builds nothing.
    auto storage = dataset->GetStorage("w");
    dataset->Build(&Scope());
    EXPECT_EQ(dataset->GetStorage("w"), storage);
    EXPECT_EQ(dataset->Storages().size(), 2u);
    Scope().UnregisterItem("emptyPath", path_item.get());
}

TEST(XmlDataset, HandsOutStorageReadersAndThrowsForAKeyItLost) {
    auto item = DeclaredItem(R"(<dataset name="XDS_READ"><storages><file key="s" vtype="DOUBLE" main=""/>
        </storages></dataset>)",
                             R"(<item name="xr" type="XDS_READ"/>)");
    ASSERT_TRUE(item);
    Ctr<XmlDataset> dataset = QueryInterface<XmlDataset>(item.get());
    EXPECT_EQ(dataset->MainStorageKey(), "s");
    EXPECT_EQ(dataset->MainStorageId(), "");  // the base's answer, main or not
    const double values[3] = {1, 2, 3};
    dataset->GetStorage("s")->Write(values, 3);
    Ctr<IReader> reader = QueryInterface<IReader>(item.get(), "s");
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->Count(), 3u);
    double back = 0;
    EXPECT_EQ(reader->Read(2, &back, 1), 1u);
    EXPECT_EQ(back, 3.0);
    EXPECT_FALSE(QueryInterface<IReader>(item.get(), "nothere"));
    EXPECT_TRUE(QueryInterface<DataSetBase>(item.get()));

    // The lookup behind the reader throws for a key that no storage has.
    EXPECT_THROW(SimpleReader(dataset->Storages(), "gone", 8), std::out_of_range);
}

TEST(XmlDataset, TypesExtendTheirBaseAndItemsShareTheirTypesDefinition) {
    auto first = DeclaredItem(R"(<dataset name="XDS_BASE"><storages><file key="shared" vtype="INT8"/></storages>
        <data_flags flags="image"/></dataset>)",
                              R"(<item name="xbase" type="XDS_BASE"/>)");
    auto second = DeclaredItem(R"(<dataset name="XDS_DERIVED" base="XDS_BASE"><storages><file key="own" vtype="INT16"/>
        </storages></dataset>)",
                               R"(<item name="xderived" type="XDS_DERIVED"/>)");
    ASSERT_TRUE(first && second);
    Ctr<XmlDataset> derived = QueryInterface<XmlDataset>(second.get());
    EXPECT_NE(derived->GetStorage("own"), nullptr);
    EXPECT_NE(derived->GetStorage("shared"), nullptr);
    EXPECT_EQ(derived->Flags(), 256u);  // its own are 0, so the base's count

    // A type whose name is another kind of type is refused.
    pugi::xml_document document;
    document.load_string(R"(<dataset name="WaveDataset"/>)");
    LogCapture log;
    EXPECT_EQ(CreateXmlDatasetType(document.document_element(), &Scope()), nullptr);
    EXPECT_EQ(CreateXmlDatasetType(pugi::xml_node(), &Scope()), nullptr);
}

TEST(XmlDataset, AProjectLoadKeepsTheDatasetInfoChildOfTheItem) {
    auto with = DeclaredItem(R"(<dataset name="XDS_INFO"><storages><file key="v" vtype="INT8"/></storages></dataset>)",
                             R"(<item name="xinfo" type="XDS_INFO"><item name="__dataset_info__" type="DOUBLE"/></item>)");
    auto without = DeclaredItem(R"(<dataset name="XDS_INFO"/>)", R"(<item name="xnoinfo" type="XDS_INFO"/>)");
    ASSERT_TRUE(with && without);
    Ctr<XmlDataset> dataset = QueryInterface<XmlDataset>(with.get());
    EXPECT_EQ(dataset->DatasetInfo(), nullptr);  // only a load takes it

    Configuration config;  // a project without a record of this dataset
    auto context = std::make_shared<SerializeContext>(SerializeContext{&config, "project/xinfo"});
    Ctr<ISerializable> loading = QueryInterface<ISerializable>(with.get());
    ASSERT_TRUE(loading);
    EXPECT_FALSE(loading->Deserialize(context));  // no files to bind
    EXPECT_EQ(dataset->DatasetInfo(), with->GetChildItem("__dataset_info__"));
    EXPECT_NE(dataset->DatasetInfo(), nullptr);
    EXPECT_NE(dataset->GetStorage("v"), nullptr);  // the declared storage stays

    QueryInterface<ISerializable>(without.get())->Deserialize(context);
    EXPECT_EQ(QueryInterface<XmlDataset>(without.get())->DatasetInfo(), nullptr);
}

}  // namespace
