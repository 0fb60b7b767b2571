#include "reader/infor_iterator_reader.h"

#include "dataset/records.h"
#include "host/base_ctr.h"
#include "host/local_source.h"
#include "host/string_utils.h"
#include "host/struct_type.h"

#include <algorithm>

CInforIteratorReader::CInforIteratorReader() = default;

CInforIteratorReader::~CInforIteratorReader() {
    record_holder.reset();
    reader_handle.reset();
}

bool CInforIteratorReader::InitItem(IBaseCtr* item) {
    owner = item;
    return true;
}

bool CInforIteratorReader::SetLinkItem(IBaseCtr* item, const std::string& name) {
    if (item == nullptr) return false;
    if (name != "__LinkData") return true;
    linked = item->GetChildItem("__base");
    return true;
}

bool CInforIteratorReader::FinishConfig(ILocalSource* source, IBaseCtr*, const std::string& config) {
    for (const std::string& part : SplitString(config, ",")) {
        std::string key, value;
        SplitString(part, "=", key, value);
        if (StringCompare(key, "TYPE", true) == 0) {
            if (linked == nullptr) continue;
            reader_handle = linked->GetExtendCtr(VellumTypeOf<IDataReader>(), false, value);
            data_reader = Vellum::MagicCast<IDataReader>(reader_handle);
            if (data_reader == nullptr) reader_handle.reset();
        } else if (StringCompare(key, "DataType", true) == 0) {
            IItemType* type = source ? source->GetLocalItemType(value, true) : nullptr;
            record_type = type ? type->AsStruct() : nullptr;
            if (record_type == nullptr) continue;
            record_holder.reset(record_type->CreateItem(value));
            record_item = record_holder.get();
            // The readers write records of up to 48 bytes whatever type is named: a
            // smaller type must not let them write past the buffer.
            buffer.assign(std::max<std::size_t>(record_type->StructSize(), sizeof(ValidDataArea)), 0);
        }
    }
    return true;
}

std::shared_ptr<CtrVar> CInforIteratorReader::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<CInforIteratorReader>()) return MakeCtrVar<CInforIteratorReader>(this);
    if (type == VellumTypeOf<IDataReader>()) return MakeCtrVar<IDataReader>(data_reader);
    return {};
}

void CInforIteratorReader::BindData(void* data) {
    if (Ctr<CStruct> record = QueryInterface<CStruct>(record_item)) record->Bind(data);
}

bool CInforIteratorReader::Publish(bool found) {
    if (found) {
        data_reader->GetResult(buffer.data());
        BindData(buffer.data());
    } else {
        BindData(nullptr);
    }
    return found;
}

bool CInforIteratorReader::GotoBegin() {
    if (data_reader == nullptr || record_item == nullptr) return false;
    return Publish(data_reader->GetBeginData());
}

bool CInforIteratorReader::GotoEnd() {
    if (data_reader == nullptr || record_item == nullptr) return false;
    return Publish(data_reader->GetEndData());
}

bool CInforIteratorReader::Next() {
    if (data_reader == nullptr || record_item == nullptr) return false;
    return Publish(data_reader->GetNextData());
}

bool CInforIteratorReader::Prev() {
    if (data_reader == nullptr || record_item == nullptr) return false;
    return Publish(data_reader->GetPrevData());
}

bool CInforIteratorReader::Goto(const std::string& key, const Vellum::Var& value) {
    bool error = false;
    const double time = key == "Time" ? value.ToDouble(&error) : 0.0;
    if (key != "Time" || error || data_reader == nullptr || record_item == nullptr) {
        BindData(nullptr);
        return false;
    }
    // The record is shown whether or not the reader found one for the time.
    data_reader->GetAppointTimeData(time);
    return Publish(true);
}

Vellum::Var CInforIteratorReader::GetKey() {
    return data_reader ? Vellum::Var(data_reader->GetCurIndex()) : Vellum::Var(0);
}

unsigned long long CInforIteratorReader::GetCount() { return data_reader ? data_reader->GetCount() : 0; }

bool CInforIteratorReader::IsNull() {
    Ctr<CStruct> record = QueryInterface<CStruct>(record_item);
    return !record || record->IsNull();
}

void CInforIteratorReader::SetupParame(void* parameter) {
    if (data_reader) data_reader->SetupParame(parameter);
}
