#pragma once
// CTypeSource: a table from a small number to presentation data, read from XML. Each
// child element of the item's node is one key:
//
//   <state num="1" vtype="UINT8" caption="Running" color="#00FF00" split="" format="HEX"/>
//
// "vtype", "caption", "color" and "split" are kept as the key's attributes. "format"
// names a format item of the scope or a base format. "vtype" names a value type; the
// key gets a value item of it, with the format as its child "__Format". GetValue reads
// a value of that type from memory and gives its text through the format. Keys are kept
// as decimal text; children without "num" end up under the empty key.

#include "host/ctr_var.h"
#include "host/xml_items.h"

#include <map>
#include <memory>
#include <string>

class IBaseCtr;
class IItemType;
class ILocalSource;

class CTypeSource : public IItemXmlInit {
public:
    CTypeSource();
    ~CTypeSource() override;
    CTypeSource(const CTypeSource&) = delete;
    CTypeSource& operator=(const CTypeSource&) = delete;

    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;
    // Answers CTypeSource only.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
    // The attributes of key; false (out untouched) for an unknown key.
    bool GetKeySource(unsigned int key, std::map<std::string, std::string>& out) const;
    // The text of the value at data, read as key's value type, through key's format; the
    // plain text without a format; empty for a key without a value type. data must hold
    // a value of that type.
    std::string GetValue(unsigned int key, void* data);

private:
    std::map<std::string, std::map<std::string, std::string>> sources;
    std::map<std::string, IBaseCtr*> formats;
    std::map<std::string, IItemType*> types;
    std::map<std::string, std::unique_ptr<IBaseCtr>> values;
};

VELLUM_BASES(CTypeSource, IItemXmlInit);
