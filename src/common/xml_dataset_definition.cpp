#include "common/xml_dataset_definition.h"

#include "host/item_type.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "host/struct_type.h"
#include "host/value_item.h"

#include <mutex>

namespace {

bool NameIs(const pugi::xml_node& node, const char* name) { return StringCompare(node.name(), name, true) == 0; }

const VellumTypeID* ResolveType(ILocalSource* source, const std::string& name) {
    IItemType* type = source ? source->GetLocalItemType(name, true) : nullptr;
    return type ? type->ObjectType() : nullptr;
}

bool KeyDeclared(const XmlItemMap& map, const std::string& key) {
    for (const auto& entry : map)
        if (entry.second.count(key) != 0) return true;
    return false;
}

void ParseStorages(const pugi::xml_node& node, ILocalSource* source, XmlDatasetDefinition& definition) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        const std::string key = child.attribute("key").value();
        const std::string vtype = child.attribute("vtype").value();
        XmlStorageDeclaration declaration;
        declaration.init = child.attribute("init").value();
        bool main_taken = false;
        for (const auto& entry : definition.storage_defs) main_taken = main_taken || entry.second.is_main;
        declaration.is_main = !main_taken && child.attribute("main");
        if (key.empty() || definition.storage_defs.count(key) != 0) continue;
        declaration.item_type = source ? source->GetLocalItemType(vtype, true) : nullptr;
        declaration.device = StorageDeviceOfNode(child.name());
        definition.storage_defs.emplace(key, std::move(declaration));
    }
}

// Readers and writers alike; the message names a reader for both.
void ParseItems(const pugi::xml_node& node, ILocalSource* source, XmlItemMap& map) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        const std::string key = child.attribute("key").value();
        if (KeyDeclared(map, key)) {
            CLogger::DefaultLogger().Warning("Reader {} already defined, skipped!", key);
            continue;
        }
        const pugi::xml_attribute type_name = child.attribute("type");
        const pugi::xml_attribute factory_name = child.attribute("factory");
        if (!type_name || !factory_name) continue;
        const VellumTypeID* type = ResolveType(source, type_name.value());
        if (type == nullptr) continue;
        IItemType* factory = source ? source->GetLocalItemType(factory_name.value(), true) : nullptr;
        if (factory == nullptr) continue;
        XmlItemDeclaration declaration;
        declaration.key = key;
        declaration.factory = factory;
        declaration.type = type;
        declaration.options = child.attribute("options").value();
        map[type].emplace(key, std::move(declaration));
    }
}

}  // namespace

const std::map<std::string, uint64_t>& DataFlagWords() {
    static const std::map<std::string, uint64_t> words = {
        {"basic_wave", 1}, {"logic_wave", 2}, {"decode_wave", 4}, {"image", 256}, {"list", 512}, {"tree", 1024},
    };
    return words;
}

uint64_t ParseDataFlags(const std::string& text) {
    uint64_t flags = 0;
    for (const std::string& word : SplitString(text, ";|")) {
        auto it = DataFlagWords().find(word);
        if (it != DataFlagWords().end()) flags += it->second;
    }
    return flags;
}

uint32_t StorageDeviceOfNode(const std::string& name) {
    if (StringCompare(name, "file", true) == 0) return XmlStorageDeclaration::kFile;
    if (StringCompare(name, "ext_file", true) == 0) return XmlStorageDeclaration::kExtFile;
    if (StringCompare(name, "buffer", true) == 0) return XmlStorageDeclaration::kBuffer;
    CLogger::DefaultLogger().Warning("Unknown Storage Type: {}", name);
    return XmlStorageDeclaration::kUnknown;
}

uint64_t UnitSizeOfType(IItemType* type) {
    if (type == nullptr) return 0;
    if (IStructType* record = type->AsStruct()) return record->StructSize();
    if (auto* value = dynamic_cast<CValueType*>(type)) return VarTypeSize(value->ValueType());
    return 0;
}

void ParseXmlDatasetDeclarations(const pugi::xml_node& node, ILocalSource* source, XmlDatasetDefinition& definition) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        if (NameIs(child, "storages")) {
            ParseStorages(child, source, definition);
        } else if (NameIs(child, "readers")) {
            ParseItems(child, source, definition.reader_map);
        } else if (NameIs(child, "writers")) {
            ParseItems(child, source, definition.writer_map);
        } else if (NameIs(child, "data_flags")) {
            definition.flags += ParseDataFlags(child.attribute("flags").value());
        }
    }
}

XmlDatasetDefinition& DefinitionOfType(const IItemType* type) {
    static std::mutex mutex;
    static auto* definitions = new std::map<const IItemType*, std::unique_ptr<XmlDatasetDefinition>>;
    std::lock_guard lock(mutex);
    auto& slot = (*definitions)[type];
    if (!slot) slot = std::make_unique<XmlDatasetDefinition>();
    return *slot;
}
