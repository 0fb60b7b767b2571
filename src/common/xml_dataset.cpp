#include "common/xml_dataset.h"

#include "common/common_wave_interfaces.h"
#include "common/dataset_item_interfaces.h"
#include "dataset/serialization_helper.h"
#include "host/base_ctr.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "reader/simple_reader.h"
#include "storage/device_channels.h"

#include <map>
#include <set>

namespace {

// "key=value;key=value": pieces at ';', each split at its first '='.
std::map<std::string, std::string> ParseInit(const std::string& text) {
    std::map<std::string, std::string> options;
    for (const std::string& piece : SplitString(text, ";")) {
        std::string key, value;
        SplitString(piece, "=", key, value);
        if (!key.empty()) options[key] = value;
    }
    return options;
}

std::string Option(const std::map<std::string, std::string>& options, const char* key) {
    auto it = options.find(key);
    return it == options.end() ? std::string() : it->second;
}

void TakeDeclarations(const XmlItemMap& from, XmlItemMap& to) {
    for (const auto& [type, declarations] : from) {
        auto& taken = to[type];
        for (const auto& [key, declaration] : declarations) taken.emplace(key, declaration);
    }
}

// The saving of every dataset, and after a load the dataset's own step.
class XmlDatasetSerialization final : public DataSetSerializationHelper {
public:
    XmlDatasetSerialization(IBaseCtr* owner, XmlDataset* dataset) : DataSetSerializationHelper(owner), dataset_(dataset) {}
    bool Deserialize(std::shared_ptr<SerializeContext> context) override {
        const bool loaded = DataSetSerializationHelper::Deserialize(context);
        dataset_->OnLoaded();
        return loaded;
    }

private:
    XmlDataset* dataset_;
};

}  // namespace

XmlDataset::XmlDataset() : own_definition_(std::make_unique<XmlDatasetDefinition>()) {
    definition_ = own_definition_.get();
}

XmlDataset::~XmlDataset() {
    // Reader and writer items hold storages of this dataset: they go first.
    readers_.clear();
    writers_.clear();
}

bool XmlDataset::InitItem(IBaseCtr* item) {
    owner_ = item;
    SetSerialization(std::make_unique<XmlDatasetSerialization>(item, this));
    if (IItemType* type = item ? item->GetItemType() : nullptr) definition_ = &DefinitionOfType(type);
    return true;
}

bool XmlDataset::InitItemByXML(ILocalSource* source, IBaseCtr*, const pugi::xml_node& node) {
    // The declarations land in the definition that every item of the type shares. The
    // entry answers true on both paths: this host drops an item whose XML entry says
    // false, and a declared dataset is not refused for declaring nothing.
    if (node.first_child().empty()) return true;
    ParseXmlDatasetDeclarations(node, source, *definition_);
    return true;
}

void XmlDataset::OnLoaded() {
    item_ = owner_;
    dataset_info_ = item_ ? item_->GetChildItem("__dataset_info__") : nullptr;
}

bool XmlDataset::FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config) {
    if (owner_ == nullptr) owner_ = item;
    Build(source);
    return DataSetBase::FinishConfig(source, item, config);
}

std::shared_ptr<IDeviceChannel> XmlDataset::MakeChannel(ILocalSource* source,
                                                        const XmlStorageDeclaration& declaration) const {
    const auto options = ParseInit(declaration.init);
    switch (declaration.device) {
        case XmlStorageDeclaration::kFile: {
            int64_t version = 0;
            if (!SysParseI64(Option(options, "version"), version) || version < INT32_MIN || version > INT32_MAX)
                version = 0;
            return CreateLocalFileCache(static_cast<int>(version));
        }
        case XmlStorageDeclaration::kExtFile: {
            std::string path = Option(options, "path");
            if (!path.empty() && path.front() == '@') {
                IBaseCtr* holder = source ? GetLocalItem(source, owner_, path.substr(1)) : nullptr;
                path = holder ? holder->GetValue().ToString() : std::string();
            }
            if (path.empty()) return nullptr;
            return CreateExternFileCache(path);
        }
        case XmlStorageDeclaration::kBuffer: {
            IBaseCtr* holder = source ? GetLocalItem(source, owner_, Option(options, "bind")) : nullptr;
            Ctr<IMemoryBuffer> buffer = QueryInterface<IMemoryBuffer>(holder);
            if (!buffer) return nullptr;
            return CreateMemCache(buffer->Data(), buffer->Length());
        }
        default:
            return nullptr;
    }
}

void XmlDataset::Build(ILocalSource* source) {
    auto& log = CLogger::DefaultLogger();
    // A definition that extends itself, directly or through others, is walked once.
    std::set<const XmlDatasetDefinition*> seen;
    for (XmlDatasetDefinition* definition = definition_; definition && seen.insert(definition).second;
         definition = definition->parent) {
        for (const auto& [key, declaration] : definition->storage_defs) {
            if (storages_.count(key) != 0) continue;
            std::shared_ptr<IDeviceChannel> channel = MakeChannel(source, declaration);
            // A unit of no bytes (an unknown "vtype") could hold nothing.
            const uint64_t unit = UnitSizeOfType(declaration.item_type);
            if (!channel || unit == 0) {
                log.Warning("cannot create storage: {}", key);
                continue;
            }
            BindCustomStorage(key, channel, unit, kDefaultGroup);
            XmlItemDeclaration reader;
            reader.key = key;
            reader.type = &VellumTypeOf<IReader>();
            reader.unit_size = unit;
            readers_[reader.type].emplace(key, std::move(reader));
        }
        TakeDeclarations(definition->reader_map, readers_);
        TakeDeclarations(definition->writer_map, writers_);
        if (flags_ == 0) flags_ = definition->flags;
    }
}

std::string XmlDataset::MainStorageKey() const {
    std::set<const XmlDatasetDefinition*> seen;
    for (const XmlDatasetDefinition* definition = definition_; definition && seen.insert(definition).second;
         definition = definition->parent) {
        for (const auto& [key, declaration] : definition->storage_defs)
            if (declaration.is_main) return key;
    }
    return {};
}

std::shared_ptr<CtrVar> XmlDataset::ItemExtension(XmlItemDeclaration& declaration, const VellumTypeID& type,
                                                  bool flag, bool reader) {
    if (!declaration.item) {
        if (declaration.factory == nullptr) return {};
        std::shared_ptr<IBaseCtr> made(declaration.factory->CreateItem(declaration.key));
        if (!made) return {};
        bool linked = false;
        if (reader) {
            Ctr<IDatasetReader> item = QueryInterface<IDatasetReader>(made.get());
            linked = item && item->Init(owner_, declaration.options);
        } else {
            Ctr<IDatasetWriter> item = QueryInterface<IDatasetWriter>(made.get());
            linked = item && item->Init(owner_, declaration.options);
        }
        if (!linked) return {};
        declaration.item = std::move(made);
    }
    return declaration.item->GetExtendCtr(type, flag, declaration.key);
}

std::shared_ptr<CtrVar> XmlDataset::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    bool reader = true;
    auto declared = readers_.find(&type);
    if (declared == readers_.end()) {
        reader = false;
        declared = writers_.find(&type);
        if (declared == writers_.end()) return DataSetBase::GetExtendCtr(type, flag, name);
    }
    auto declaration = declared->second.find(name);
    if (declaration == declared->second.end()) return {};
    if (type == VellumTypeOf<IReader>())
        return MakeOwnedCtrVar<IReader>(std::make_unique<SimpleReader>(Storages(), name, static_cast<int32_t>(declaration->second.unit_size)));
    return ItemExtension(declaration->second, type, flag, reader);
}

IItemType* CreateXmlDatasetType(pugi::xml_node node, ILocalSource* source) {
    auto& log = CLogger::DefaultLogger();
    const std::string name = node.attribute("name").value();
    if (name.empty() || source == nullptr) {
        log.Error("dataset type: no name");
        return nullptr;
    }
    IItemType* type = source->GetLocalItemType(name, false);
    if (type != nullptr && (type->ObjectType() == nullptr || !(*type->ObjectType() == VellumTypeOf<XmlDataset>()))) {
        log.Error("dataset type \"{}\": the name is taken by another type", name);
        return nullptr;
    }
    if (type == nullptr) {
        auto made = std::make_unique<Vellum::VellumStructType<XmlDataset>>(name, source);
        made->Complete();
        type = GetCPPTypeManager()->Adopt(std::move(made));
        source->RegisterItemType(name, type, false);
    }
    XmlDatasetDefinition& definition = DefinitionOfType(type);
    if (pugi::xml_attribute base = node.attribute("base")) {
        IItemType* base_type = source->GetLocalItemType(base.value(), true);
        if (base_type != nullptr && base_type != type) definition.parent = &DefinitionOfType(base_type);
    }
    ParseXmlDatasetDeclarations(node, source, definition);
    return type;
}

void RegisterXmlDatasetType(ILocalSource* source) {
    RegisterClassType<XmlDataset>("dataset", source, true);
    if (source) source->RegisterTypeCreator("dataset", &CreateXmlDatasetType);
}
