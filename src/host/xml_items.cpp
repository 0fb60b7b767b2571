#include "host/xml_items.h"

#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/value_item.h"

#include <cstring>

namespace {

IBaseCtr* CreateItem(ILocalSource* source, const pugi::xml_node& node, bool top_level) {
    const std::string name = node.attribute("name").value();
    const std::string type_name = node.attribute("type").value();
    auto& log = CLogger::DefaultLogger();

    IItemType* type = source ? source->GetLocalItemType(type_name, true) : nullptr;
    if (type == nullptr) {
        log.Error("item \"{}\": unknown type \"{}\"", name, type_name);
        return nullptr;
    }
    std::unique_ptr<IBaseCtr> item(type->CreateItem(name));
    if (!item) {
        log.Error("item \"{}\": type \"{}\" made no item", name, type_name);
        return nullptr;
    }
    for (const pugi::xml_attribute& attribute : node.attributes()) {
        if (std::strcmp(attribute.name(), "name") != 0 && std::strcmp(attribute.name(), "type") != 0)
            item->SetAttribute(attribute.name(), attribute.value());
    }

    for (const pugi::xml_node& child : node.children("item")) {
        IBaseCtr* made = CreateItem(source, child, false);
        if (made == nullptr) {
            log.Error("item \"{}\": child \"{}\" failed", name, child.attribute("name").value());
            return nullptr;
        }
        item->AddChildItem(made, child.attribute("name").value(), true);
    }

    for (const pugi::xml_node& link : node.children("link")) {
        const std::string link_name = link.attribute("name").value();
        const std::string target_name = link.attribute("item").value();
        IBaseCtr* target = GetLocalItem(source, item.get(), target_name);
        if (target == nullptr) {
            log.Error("item \"{}\": link \"{}\" names the unknown item \"{}\"", name, link_name, target_name);
            return nullptr;
        }
        item->SetLinkItem(target, link_name);
    }

    if (pugi::xml_attribute value = node.attribute("value")) {
        if (Ctr<CValueItem> value_item = QueryInterface<CValueItem>(item.get()); value_item &&
                                                                              !value_item->SetText(value.value())) {
            log.Error("item \"{}\": bad value \"{}\"", name, value.value());
            return nullptr;
        }
    }

    if (Ctr<IItemXmlInit> xml_init = QueryInterface<IItemXmlInit>(item.get())) {
        if (!xml_init->InitItemByXML(source, item.get(), node)) {
            log.Error("item \"{}\": its XML definition was refused", name);
            return nullptr;
        }
    }

    item->FinishConfig(source, node.attribute("config").value());

    if (top_level && !name.empty() && source->RegisterItem(name, item.get(), false)) {
        if (auto* base = dynamic_cast<CBaseItem*>(item.get())) base->SetRegisteredSource(source);
    }
    return item.release();
}

}  // namespace

IBaseCtr* CreateItemByXmlNote(ILocalSource* source, const pugi::xml_node& node) {
    if (!node || source == nullptr) return nullptr;
    return CreateItem(source, node, true);
}

std::vector<std::unique_ptr<IBaseCtr>> CreateItemsFromXml(ILocalSource* source, const std::string& xml_text) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_string(xml_text.c_str());
    if (!parsed) {
        CLogger::DefaultLogger().Error("item definitions: XML error at offset {}: {}", parsed.offset,
                                       parsed.description());
        return {};
    }
    std::vector<std::unique_ptr<IBaseCtr>> items;
    for (const pugi::xml_node& node : document.document_element().children("item")) {
        std::unique_ptr<IBaseCtr> item(CreateItemByXmlNote(source, node));
        if (!item) return {};
        items.push_back(std::move(item));
    }
    return items;
}
