#pragma once
// Wave dataset types described by configuration, made at run time by two type creators:
// "WaveDatasetType" from an XML node, "WaveDatasetTypeEx" from a name alone.
//
//   <WaveType name="FloatWave">                 the node given to "WaveDatasetType"
//     <__main__ dtype="FLOAT" step="100">       a CommonWaveDataSetInit definition
//       <storage><Wave type="File;"/></storage>
//     </__main__>
//     <PublicAttr unit="V"/>
//   </WaveType>
//
// The rules of such a type:
//  - It is named by the node's "name" and registered in the source given. Its items are
//    CommonWaveDataSets.
//  - The type keeps one CommonWaveDataSetInit item, named "__main__", made from the
//    whole node and registered in the type's own scope under that name.
//  - Every item of the type gets that init item as its child "__InitObject__" (not
//    owned) and is configured by it as it is made, with the type's source: items made
//    by type and items made from XML are alike, and an item's own XML definition is
//    skipped.
//  - The public attributes of the definition become attributes of the type.
//  - "WaveDatasetTypeEx" reads the element type from the name: the text in brackets
//    ("WAVE[UINT32]"), or the whole name ("UINT32"). Its datasets have the default
//    storages (managed files) and the default main indexer.
//  - A name that is a wave dataset type already gives that type unchanged; a second
//    XML definition under the name is logged and not read.
//  - Null, with an error logged: no name or no source, a name taken by a type of
//    another kind, an element type that "WaveDatasetTypeEx" doesn't know, or an init
//    item type that is not registered.

#include "host/struct_type.h"

#include <pugixml.hpp>

#include <memory>
#include <string>

class CommonWaveDataSetInit;
class ILocalSource;

class CommonWaveDatasetType final : public CStructType {
public:
    CommonWaveDatasetType(std::string name, ILocalSource* source, std::unique_ptr<IBaseCtr> init_item);
    ~CommonWaveDatasetType() override;

    const VellumTypeID* ObjectType() const override;
    // A dataset item configured by the type's init item.
    IBaseCtr* CreateItem(const std::string& name) override;

    // The init item "__main__" and its object.
    IBaseCtr* MainItem() const { return init_item_.get(); }
    CommonWaveDataSetInit* MainObject() const { return init_; }

private:
    std::unique_ptr<IBaseCtr> init_item_;
    CommonWaveDataSetInit* init_;
};

// The type creator "WaveDatasetType".
IItemType* CreateWaveDatasetType(pugi::xml_node node, ILocalSource* source);
// The type creator "WaveDatasetTypeEx".
IItemType* CreateWaveDatasetTypeEx(const std::string& name, ILocalSource* source);

// Registers in source, in this order: "WaveDataset" (CommonWaveDataSet), the type
// creators "WaveDatasetType" and "WaveDatasetTypeEx", then "WaveDatasetInit"
// (CommonWaveDataSetInit) and "WaveDatasetPublicAttr" (WaveDatasetPublicAttr).
void RegisterCommonWaveTypes(ILocalSource* source);
