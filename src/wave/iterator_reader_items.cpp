#include "wave/iterator_reader_items.h"

std::size_t DeclareIteratorReaderItems(IItemType*) {
    // Once the iterator reader has an item type, each entry is declared here with
    // RegisterDynamicItem(name, that type, {{"config", config}}, VellumTypeOf<IInforIteratorReader>()).
    return 0;
}
