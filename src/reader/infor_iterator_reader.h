#pragma once
// CInforIteratorReader: the host iterator over any IDataReader of a dataset.
//
// It is the object of the dynamic items "ValidReader", "EdgeReader" and "LogicReader"
// of a wave dataset. Its configuration text names the reader and the record type:
//   "TYPE=ValidReader,DataType=ValidDataArea"
// TYPE is the name under which the linked dataset is asked for an IDataReader (the
// answer is kept for the iterator's life); DataType is the struct type of the record
// item, which is bound to one record buffer after each step that finds a record and
// unbound (null) after each step that doesn't. The item is created, gets InitItem, then
// the link "__LinkData" to the dataset item, then FinishConfig, in this order.

#include "host/base_iterator.h"
#include "host/ctr_var.h"
#include "reader/data_reader.h"

#include <memory>
#include <string>
#include <vector>

class IBaseCtr;
class ILocalSource;
class IStructType;

class IInforIteratorReader : public IBaseIterator {
public:
    // Passes search parameters to the reader.
    virtual void SetupParame(void* parameter) = 0;
};

class CInforIteratorReader : public IInforIteratorReader {
public:
    CInforIteratorReader();
    ~CInforIteratorReader() override;
    CInforIteratorReader(const CInforIteratorReader&) = delete;
    CInforIteratorReader& operator=(const CInforIteratorReader&) = delete;

    bool InitItem(IBaseCtr* item);
    // "__LinkData": the dataset item, whose "__base" child is kept; other names are
    // ignored. False for a null item.
    bool SetLinkItem(IBaseCtr* item, const std::string& name);
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

    bool GotoBegin() override;
    bool GotoEnd() override;
    bool Next() override;
    bool Prev() override;
    // Only the key "Time", with a value in seconds: the reader's record for that time.
    bool Goto(const std::string& key, const Vellum::Var& value) override;
    IBaseCtr* GetIteratorVar() override { return record_item; }
    Vellum::Var GetKey() override;
    unsigned long long GetCount() override;
    unsigned long long GetContainerCount() override { return GetCount(); }
    bool IsNull() override;
    void SetupParame(void* parameter) override;

    IDataReader* DataReader() const { return data_reader; }

private:
    // Binds the record item to data (null unbinds).
    void BindData(void* data);
    // After a step: the record when found is true, else none.
    bool Publish(bool found);

    IBaseCtr* owner = nullptr;
    IBaseCtr* linked = nullptr;
    IDataReader* data_reader = nullptr;
    IBaseCtr* record_item = nullptr;
    IStructType* record_type = nullptr;
    std::vector<unsigned char> buffer;
    // Keeps the reader and the record item alive.
    std::shared_ptr<CtrVar> reader_handle;
    std::unique_ptr<IBaseCtr> record_holder;
};

VELLUM_BASES(IInforIteratorReader, IBaseIterator);
VELLUM_BASES(CInforIteratorReader, IInforIteratorReader);
