#pragma once
// SingleDataReader: the host iterator over a plain IReader of struct records, the
// source of one stream of a multi-source merge.
//
// Links configure it ("__LinkData" or "DATASOURCE": the item whose IReader holds the
// records; "TYPE": an item of the record's struct type; "SORT": an item of a struct type
// with the field "nano_time", the record's sort key; "SourceId": an item of a struct
// type with the field "source_id", the record's source). The sort key and the source id
// are read by binding a silent item of the linked type to a record, so a merge fires no
// events. The reader forwards the source item's "Update" to its own item, and forgets
// the source when the source item is destroyed.

#include "host/base_iterator.h"
#include "host/ctr_var.h"
#include "host/events.h"
#include "wave/struct_reader.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class IBaseCtr;
class IStructType;

class IDataSetReader {
public:
    virtual ~IDataSetReader() = default;
    // A hold on the source against clearing; no action by default.
    virtual void LockClear() {}
    virtual void UnLockClear() {}
    // A child of the current record's item.
    virtual IBaseCtr* GetChildItem(const std::string& name) = 0;
};

class IStructDataSetReader : public IDataSetReader, public IBaseIterator {
public:
    using SortKeyGen = std::function<uint64_t(const void* record)>;
    using SourceIdGen = std::function<uint32_t(const void* record)>;

    // The sort key of a record; an empty function by default.
    virtual SortKeyGen GetSortKeyGen() { return {}; }
    // The source id of a record; an empty function by default.
    virtual SourceIdGen GetSourceId() { return {}; }
    // Bytes that one record read from the source must have room for: the record and
    // anything the sort key and source id read from it. 0 when unknown.
    virtual uint64_t RecordSize() { return 0; }
    IBaseCtr* GetChildItem(const std::string&) override { return nullptr; }
};

class SingleDataReader : public IStructDataSetReader {
public:
    SingleDataReader();
    ~SingleDataReader() override;
    SingleDataReader(const SingleDataReader&) = delete;
    SingleDataReader& operator=(const SingleDataReader&) = delete;

    bool InitItem(IBaseCtr* item);
    bool SetLinkItem(IBaseCtr* item, const std::string& name);
    // IStructDataSetReader (this object), IReader (the source) and the source item's
    // own answer for a time index (ITimeIndexOperator) over its records.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

    bool GotoBegin() override;
    bool GotoEnd() override;
    bool Next() override;
    bool Prev() override;
    // Keys "INDEX" and "__KEY__" (any case): the record at that position.
    bool Goto(const std::string& key, const Vellum::Var& value) override;
    IBaseCtr* GetIteratorVar() override;
    Vellum::Var GetKey() override { return Vellum::Var(current_index); }
    unsigned long long GetCount() override;
    unsigned long long GetContainerCount() override { return GetCount(); }
    bool IsNull() override;
    IBaseCtr* GetChildItem(const std::string& name) override;
    SortKeyGen GetSortKeyGen() override;
    SourceIdGen GetSourceId() override;
    uint64_t RecordSize() override;

    unsigned long long CurrentIndex() const { return current_index; }
    IBaseCtr* SourceItem() const { return source_item; }

private:
    // Reads the record at position into the buffer and binds the record item to it; on
    // a short read unbinds it and keeps the index.
    bool ReadData(unsigned long long position);
    void UpdateSource(IBaseCtr* item);
    void Bind(IBaseCtr* item, void* data);
    // Value of the field of a struct item bound to record; 0 without the item.
    uint64_t FieldOf(IBaseCtr* item, const void* record, const char* field);

    IBaseCtr* owner = nullptr;
    IBaseCtr* source_item = nullptr;
    std::shared_ptr<CtrVar> source_handle;
    IReader* source = nullptr;
    IBaseCtr* data_item = nullptr;
    IBaseCtr* sort_item = nullptr;
    IBaseCtr* id_item = nullptr;
    IStructType* data_type = nullptr;
    IStructType* sort_type = nullptr;
    IStructType* id_type = nullptr;
    std::vector<unsigned char> buffer;
    unsigned long long current_index = 0;

    std::unique_ptr<IBaseCtr> data_holder, sort_holder, id_holder;
    EventHandlerPtr update_forwarder;
    EventHandlerPtr destroy_watcher;
};

VELLUM_BASES(IStructDataSetReader, IDataSetReader, IBaseIterator);
VELLUM_BASES(SingleDataReader, IStructDataSetReader);
