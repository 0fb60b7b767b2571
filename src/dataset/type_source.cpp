#include "dataset/type_source.h"

#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/value_format.h"
#include "host/value_item.h"

CTypeSource::CTypeSource() = default;
CTypeSource::~CTypeSource() = default;

bool CTypeSource::InitItemByXML(ILocalSource* source, IBaseCtr*, const pugi::xml_node& node) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        const std::string key = child.attribute("num").value();
        const std::string vtype = child.attribute("vtype").value();
        sources[key] = {{"vtype", vtype},
                        {"color", child.attribute("color").value()},
                        {"caption", child.attribute("caption").value()},
                        {"split", child.attribute("split").value()}};
        IBaseCtr* format = nullptr;
        if (const std::string name = child.attribute("format").value(); !name.empty()) {
            format = GetLocalItem(source, nullptr, name);
            if (format == nullptr) format = GetBaseFormat(source, name);
            if (format != nullptr) formats[key] = format;
        }
        IItemType* type = source && !vtype.empty() ? source->GetLocalItemType(vtype, true) : nullptr;
        if (type == nullptr) continue;
        types[key] = type;
        std::unique_ptr<IBaseCtr> value(type->CreateItem(key));
        if (!value) continue;
        if (format != nullptr) value->AddChildItem(format, "__Format", false);
        values[key] = std::move(value);
    }
    return true;
}

std::shared_ptr<CtrVar> CTypeSource::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<CTypeSource>()) return MakeCtrVar<CTypeSource>(this);
    return {};
}

bool CTypeSource::GetKeySource(unsigned int key, std::map<std::string, std::string>& out) const {
    auto it = sources.find(std::to_string(key));
    if (it == sources.end()) return false;
    out = it->second;
    return true;
}

std::string CTypeSource::GetValue(unsigned int key, void* data) {
    const std::string text_key = std::to_string(key);
    auto value = values.find(text_key);
    if (value == values.end() || data == nullptr) return {};
    Ctr<CValueItem> item = QueryInterface<CValueItem>(value->second.get());
    if (!item) return {};
    item->Bind(data);
    const Vellum::Var read = item->GetValue();
    item->Bind(nullptr);
    auto format = formats.find(text_key);
    Ctr<IValueFormat> through = format == formats.end() ? Ctr<IValueFormat>() : QueryInterface<IValueFormat>(format->second);
    return through ? through->Format(read) : read.ToString();
}
