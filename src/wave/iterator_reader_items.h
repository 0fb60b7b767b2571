#pragma once
// The dynamic reader items of a wave dataset item: children made on demand by name,
// each an iterator reader configured by its "config" text.

#include <cstddef>

class IItemType;

struct IteratorReaderItem {
    const char* name;
    const char* config;
};

inline constexpr IteratorReaderItem kIteratorReaderItems[] = {
    {"ValidReader", "TYPE=ValidReader,DataType=ValidDataArea"},
    {"EdgeReader", "TYPE=EdgeReader,DataType=FindEdgeResult"},
    {"LogicReader", "TYPE=LogicReader,DataType=LogicResult"},
};

// Declares the items of kIteratorReaderItems on a wave dataset type. The iterator reader
// (IInforIteratorReader) and its item type are not part of the library yet: until they
// are, this declares nothing and gives 0, and the three names are no children of a wave
// dataset item. Gives the number of items declared.
std::size_t DeclareIteratorReaderItems(IItemType* type);
