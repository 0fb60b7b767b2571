#pragma once
// The scope of the common tests: every module type, a struct "MinMaxF32" of two floats
// for index storages, and "TEST_BUFFER", a memory buffer item whose "floats" attribute
// (comma-separated) or "areas" attribute (start:end:first:last;...) fills it.

#include "common/common_wave_interfaces.h"
#include "host/ctr_var.h"
#include "host/local_source.h"
#include "host/xml_items.h"

#include <string>
#include <vector>

namespace common_tests {

class TestBuffer : public IMemoryBuffer, public IItemXmlInit {
public:
    const void* Data() const override { return bytes.empty() ? nullptr : bytes.data(); }
    uint64_t Length() const override { return bytes.size(); }
    bool InitItemByXML(ILocalSource*, IBaseCtr*, const pugi::xml_node& node) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool, const std::string&);

    std::vector<unsigned char> bytes;
};

CLocalSource& Scope();
// A fresh folder under the temporary directory, removed at exit of the process.
std::string TempFolder(const std::string& name);

}  // namespace common_tests
