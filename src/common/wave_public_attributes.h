#pragma once
// WaveDatasetPublicAttr: the object of the item "PublicAttr" of a wave dataset
// definition. It holds the attributes that the definition makes public: every
// attribute of its XML node, by name, such as
//
//   <PublicAttr unit="V" caption="Voltage"/>
//
// The item answers them through GetAttribute.

#include "host/xml_items.h"

#include <map>
#include <string>

class WaveDatasetPublicAttr : public IItemXmlInit {
public:
    // Takes the node's attributes in place of the ones held. Always true.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;
    // The value of name, empty if it isn't one of the public attributes.
    std::string GetAttribute(const std::string& name) const;
    const std::map<std::string, std::string>& Values() const { return values_; }

private:
    std::map<std::string, std::string> values_;
};
