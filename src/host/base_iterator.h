#pragma once
// IBaseIterator: the host's protocol for walking a collection of records. The current
// record is a struct item (GetIteratorVar) that the iterator binds to each record it
// reaches; after a failed step it stands for no record (IsNull).

#include "host/var.h"

#include <string>

class IBaseCtr;

class IBaseIterator {
public:
    // How a collection is walked; the only style of this host.
    enum IterStyle : int { kIterStyleSequence = 0 };

    virtual ~IBaseIterator() = default;
    // To the first or the last record; true when one is there.
    virtual bool GotoBegin() = 0;
    virtual bool GotoEnd() = 0;
    virtual bool Next() = 0;
    virtual bool Prev() = 0;
    // To the record that key (a name the collection knows, "Time", "INDEX"...) and value
    // select; false when the key is not known or no record is there.
    virtual bool Goto(const std::string& key, const Vellum::Var& value) = 0;
    // The item of the current record.
    virtual IBaseCtr* GetIteratorVar() = 0;
    virtual Vellum::Var GetKey() = 0;
    virtual unsigned long long GetCount() = 0;
    virtual unsigned long long GetContainerCount() = 0;
    // True when no record is current.
    virtual bool IsNull() = 0;
    virtual int GetIterStyle() { return kIterStyleSequence; }
};
