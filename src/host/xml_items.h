#pragma once
// Creation of items from XML definitions.
//
//   <item name="wave" type="WAVEDATASET[FLOAT]" config="cycle=SIZE(1G,100M)" caption="...">
//     <item name="sizeAxis" type="AXIS" init="ratio=1e-6"/>     a child item, owned
//     <link name="left" item="otherWave"/>                      a link to a named item
//   </item>
//
// The steps on one item, in order: the type makes the item and its object and runs
// InitItem; the XML attributes other than name and type become item attributes; child
// items are made (the same steps, recursively) and added; each link is resolved by
// GetLocalItem and given to SetLinkItem; a value item takes its "value" attribute; an
// object that is an IItemXmlInit gets InitItemByXML; FinishConfig runs with the
// "config" attribute (empty when absent). A top-level item is registered in the scope
// under its name, so that later links find it. Any failure (unknown type, a child that
// fails, a link to an unknown item) deletes what was made, logs an error and gives null.

#include <pugixml.hpp>

#include <memory>
#include <string>
#include <vector>

class IBaseCtr;
class ILocalSource;

// Implemented by objects that read their own XML node.
class IItemXmlInit {
public:
    virtual ~IItemXmlInit() = default;
    virtual bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) = 0;
};

// Makes the item that node defines; the caller owns it.
IBaseCtr* CreateItemByXmlNote(ILocalSource* source, const pugi::xml_node& node);

// Makes every <item> child of the document's root element, in order. Empty (with an
// error logged) if the text doesn't parse or any item fails; items made before the
// failure are deleted.
std::vector<std::unique_ptr<IBaseCtr>> CreateItemsFromXml(ILocalSource* source, const std::string& xml_text);
