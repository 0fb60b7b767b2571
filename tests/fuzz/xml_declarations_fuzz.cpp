// libFuzzer target: arbitrary bytes as the XML declaration of a dataset type. The
// parser must give a definition (or log) for anything, never crash or hang.
//   ./xml_declarations_fuzz -max_total_time=60 [corpus folder]

#include "common/xml_dataset_definition.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "host/logger.h"

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>

namespace {

struct ReaderItem {};
struct WriterItem {};

ILocalSource* Scope() {
    static ILocalSource* scope = [] {
        CLogger::DefaultLogger().SetConsoleEnabled(false);
        auto* s = new CLocalSource("fuzz", GetRootLocal());
        RegisterClassType<ReaderItem>("R", s);
        RegisterClassType<WriterItem>("W", s);
        return s;
    }();
    return scope;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pugi::xml_document document;
    if (!document.load_buffer(data, size)) return 0;
    XmlDatasetDefinition definition;
    for (const pugi::xml_node& node : document.children()) ParseXmlDatasetDeclarations(node, Scope(), definition);
    for (const auto& [key, storage] : definition.storage_defs) {
        (void)UnitSizeOfType(storage.item_type);
        (void)key;
    }
    // Declarations that a type keeps must name what they resolved.
    for (const XmlItemMap* map : {&definition.reader_map, &definition.writer_map})
        for (const auto& [type, items] : *map)
            for (const auto& [key, item] : items)
                if (type == nullptr || item.factory == nullptr || item.key != key) __builtin_trap();
    return 0;
}
