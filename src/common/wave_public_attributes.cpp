#include "common/wave_public_attributes.h"

bool WaveDatasetPublicAttr::InitItemByXML(ILocalSource*, IBaseCtr*, const pugi::xml_node& node) {
    values_.clear();
    for (const pugi::xml_attribute& attribute : node.attributes()) values_[attribute.name()] = attribute.value();
    return true;
}

std::string WaveDatasetPublicAttr::GetAttribute(const std::string& name) const {
    auto it = values_.find(name);
    return it == values_.end() ? std::string() : it->second;
}
