#pragma once
// The reader and writer items that a declared dataset builds over its storages: a
// factory makes the item, Init links it to the dataset item with the options text of
// its declaration, and a false Init makes the dataset drop it.

#include <string>

class IBaseCtr;

class IDatasetReader {
public:
    virtual ~IDatasetReader() = default;
    virtual bool Init(IBaseCtr* dataset, const std::string& options) = 0;
    // Builds the reader object over the storages found by Init.
    virtual bool Create() = 0;
};

class IDatasetWriter {
public:
    virtual ~IDatasetWriter() = default;
    virtual bool Init(IBaseCtr* dataset, const std::string& options) = 0;
    // Tests the storages found by Init.
    virtual bool Check() = 0;
};
