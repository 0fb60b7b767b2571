#pragma once
// XmlDataset: a dataset whose storages, readers and writers are declared in XML (see
// xml_dataset_definition.h) rather than fixed by a class. It keeps no samples beyond its
// declared storages; its work is to build the declarations at the right time and to
// answer for them in the item protocol:
//  - FinishConfig builds the storages of the type's definition and of its parents, for
//    keys that the dataset doesn't hold yet, and files an IReader for each;
//  - GetExtendCtr(type, flag, key) for a declared type gives the extension of the item
//    declared under key, made through its factory and Init-ed at the first request;
//  - it is saved and loaded as every dataset is (serialization_helper.h); after a load
//    it keeps the item's child "__dataset_info__".
//
// Log lines: "Unknown Storage Type: {}", "Reader {} already defined, skipped!" (readers
// and writers alike) while parsing; "cannot create storage: {}" while building.

#include "common/xml_dataset_definition.h"
#include "dataset/dataset_base.h"
#include "host/xml_items.h"

#include <cstdint>
#include <memory>
#include <string>

class IBaseCtr;
class IItemType;
class ILocalSource;

class XmlDataset : public DataSetBase, public IItemXmlInit {
public:
    XmlDataset();
    ~XmlDataset() override;

    bool InitItem(IBaseCtr* item);
    // Reads the node's declarations into the definition of the item's type. Gives true
    // (see the .cpp for why), also for a node without children, which declares nothing.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;
    // The dataset's init step: the base's configuration, then the building.
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    // Builds the storages of the definition chain and takes its reader, writer and flag
    // declarations. Keys that exist are skipped, so a second call builds nothing.
    void Build(ILocalSource* source);

    // The definition this dataset builds from: its item type's, or one of its own.
    XmlDatasetDefinition& Definition() { return *definition_; }
    void SetDefinition(XmlDatasetDefinition* definition) { definition_ = definition; }
    uint64_t Flags() const { return flags_; }
    const XmlItemMap& Readers() const { return readers_; }
    const XmlItemMap& Writers() const { return writers_; }
    IBaseCtr* Item() const { return owner_; }
    // Set by a project load: the stored item's child "__dataset_info__", null without one.
    IBaseCtr* DatasetInfo() const { return dataset_info_; }
    // The end of a project load: takes the stored item and its child "__dataset_info__".
    void OnLoaded();
    // The key of the storage declared main, empty without one.
    std::string MainStorageKey() const;

private:
    std::shared_ptr<IDeviceChannel> MakeChannel(ILocalSource* source, const XmlStorageDeclaration& declaration) const;
    std::shared_ptr<CtrVar> ItemExtension(XmlItemDeclaration& declaration, const VellumTypeID& type, bool flag,
                                          bool reader);

    XmlDatasetDefinition* definition_;
    XmlItemMap readers_;
    XmlItemMap writers_;
    uint64_t flags_ = 0;
    IBaseCtr* owner_ = nullptr;
    IBaseCtr* item_ = nullptr;          // the stored item, set at load
    IBaseCtr* dataset_info_ = nullptr;  // a child of item_, which owns it
    std::unique_ptr<XmlDatasetDefinition> own_definition_;
};

// The type creator "dataset": a new item type named by the node's "name", of XmlDataset
// items that share the definition read from the node. "base" names a type whose
// definition this one extends. Null (with an error logged) without a name.
IItemType* CreateXmlDatasetType(pugi::xml_node node, ILocalSource* source);
// Registers the type "dataset" (forced) and its type creator of the same name in source.
void RegisterXmlDatasetType(ILocalSource* source);
