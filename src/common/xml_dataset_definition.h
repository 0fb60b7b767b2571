#pragma once
// The declarations of an XML-declared dataset type, and their parser.
//
//   <storages>                                  one node per storage, named by device:
//     <file key="Wave" vtype="FLOAT" init="version=1" main=""/>     a managed cache file
//     <ext_file key="Ext" vtype="FLOAT" init="path=@pathItem"/>     an external file
//     <buffer key="Area" vtype="ValidDataArea" init="bind=areaMem"/> host memory
//   </storages>
//   <readers><reader type="IBasicWaveReader" factory="BasicWaveReader_f32" key="r" options="wave=Wave"/></readers>
//   <writers><writer type="BasicWaveWriter_f32" factory="BasicWaveWriter_f32" key="w"/></writers>
//   <data_flags flags="basic_wave|image;tree"/>
//
// Node names compare without regard to case; other nodes are passed over. One
// definition exists per item type, filled when the type's XML is read; items of the
// type build from it.

#include "host/type_id.h"

#include <pugixml.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class IBaseCtr;
class IItemType;
class ILocalSource;

struct XmlStorageDeclaration {
    static constexpr uint32_t kFile = 0;
    static constexpr uint32_t kExtFile = 1;
    static constexpr uint32_t kBuffer = 2;
    static constexpr uint32_t kUnknown = ~uint32_t{0};

    IItemType* item_type = nullptr;  // the unit's type, from "vtype"; null if unknown
    bool is_main = false;
    uint32_t device = kUnknown;
    std::string init;
};

struct XmlItemDeclaration {
    std::string key;
    IItemType* factory = nullptr;          // the type that makes the item
    const VellumTypeID* type = nullptr;    // the public type it answers
    std::string options;
    std::shared_ptr<IBaseCtr> item;        // made at the first request
    uint64_t unit_size = 0;                // storage readers only
};

struct TypeIdLess {
    bool operator()(const VellumTypeID* a, const VellumTypeID* b) const {
        if (a->Hash() != b->Hash()) return a->Hash() < b->Hash();
        return a->Name() < b->Name();
    }
};

using XmlItemMap = std::map<const VellumTypeID*, std::map<std::string, XmlItemDeclaration>, TypeIdLess>;

struct XmlDatasetDefinition {
    XmlDatasetDefinition* parent = nullptr;
    std::map<std::string, XmlStorageDeclaration> storage_defs;
    XmlItemMap reader_map;
    XmlItemMap writer_map;
    uint64_t flags = 0;
};

// The flag words and their bits: "basic_wave" 1, "logic_wave" 2, "decode_wave" 4,
// "image" 256, "list" 512, "tree" 1024.
const std::map<std::string, uint64_t>& DataFlagWords();
// The sum of the bits of the words of a list split at ';' and '|'; unknown words count 0.
uint64_t ParseDataFlags(const std::string& text);
// The device of a storage node's name, kUnknown (with "Unknown Storage Type: {}" logged)
// for any other name.
uint32_t StorageDeviceOfNode(const std::string& name);
// Bytes of one unit of the type: a struct type's size, a value type's width; 0 otherwise.
uint64_t UnitSizeOfType(IItemType* type);

// Reads the declarations of node's children into definition; names resolve in source.
void ParseXmlDatasetDeclarations(const pugi::xml_node& node, ILocalSource* source, XmlDatasetDefinition& definition);

// The definition of an item type, made on first use and kept for the process.
XmlDatasetDefinition& DefinitionOfType(const IItemType* type);
