#include "common_test_scope.h"

#include "dataset/records.h"
#include "host/item_binding.h"
#include "host/string_utils.h"
#include "host/struct_type.h"
#include "module/type_registration.h"

#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace common_tests {

bool TestBuffer::InitItemByXML(ILocalSource*, IBaseCtr*, const pugi::xml_node& node) {
    for (const std::string& text : SplitString(node.attribute("floats").value(), ",")) {
        double value = 0;
        if (!SysParseDouble(text, value)) return false;
        const float f = static_cast<float>(value);
        const auto* p = reinterpret_cast<const unsigned char*>(&f);
        bytes.insert(bytes.end(), p, p + sizeof f);
    }
    for (const std::string& text : SplitString(node.attribute("areas").value(), ";")) {
        const auto parts = SplitString(text, ":");
        if (parts.size() != 4) return false;
        int64_t v[4];
        for (int i = 0; i < 4; ++i)
            if (!SysParseI64(parts[i], v[i])) return false;
        ValidDataArea area{v[0], v[1], 0, 0, static_cast<uint64_t>(v[2]), static_cast<uint64_t>(v[3])};
        bytes.insert(bytes.end(), area.Raw(), area.Raw() + sizeof area);
    }
    return true;
}

std::shared_ptr<CtrVar> TestBuffer::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IMemoryBuffer>()) return MakeCtrVar<IMemoryBuffer>(this);
    return {};
}

CLocalSource& Scope() {
    static CLocalSource* scope = [] {
        auto* s = new CLocalSource("common-tests", GetRootLocal());
        RegisterModuleTypes(s);
        RegisterClassType<TestBuffer>("TEST_BUFFER", s);
        IStructType* pair = nullptr;
        {
            StructBuilder builder(pair, s, "MinMaxF32");
            builder.AddVar("min", "FLOAT", {0, 4}).AddVar("max", "FLOAT", {4, 4});
        }
        s->RegisterItemType("MinMaxF32", pair, true);
        return s;
    }();
    return *scope;
}

std::string TempFolder(const std::string& name) {
    namespace fs = std::filesystem;
    static const fs::path root = [] {
        fs::path p = fs::temp_directory_path() / ("wavestore-common-" + std::to_string(::getpid()));
        fs::create_directories(p);
        std::atexit([] {
            std::error_code ignored;
            fs::remove_all(fs::temp_directory_path() / ("wavestore-common-" + std::to_string(::getpid())), ignored);
        });
        return p;
    }();
    fs::path folder = root / name;
    fs::create_directories(folder);
    return folder.string();
}

}  // namespace common_tests
