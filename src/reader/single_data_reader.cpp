#include "reader/single_data_reader.h"

#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/string_utils.h"
#include "host/struct_type.h"
#include "storage/time_index.h"

#include <algorithm>
#include <cstring>

namespace {

IStructType* StructTypeOf(IBaseCtr* item) {
    IItemType* type = item ? item->GetItemType() : nullptr;
    return type ? type->AsStruct() : nullptr;
}

}  // namespace

SingleDataReader::SingleDataReader() = default;

SingleDataReader::~SingleDataReader() { UpdateSource(nullptr); }

bool SingleDataReader::InitItem(IBaseCtr* item) {
    owner = item;
    return true;
}

bool SingleDataReader::SetLinkItem(IBaseCtr* item, const std::string& name) {
    auto is = [&](const char* text) { return StringCompare(name, text, true) == 0; };
    if (is("__LinkData") || is("DATASOURCE")) {
        source = nullptr;
        source_handle.reset();
        if (item != nullptr) {
            source_handle = item->GetExtendCtr(VellumTypeOf<IReader>(), false, {});
            source = Vellum::MagicCast<IReader>(source_handle);
            if (source == nullptr) source_handle.reset();
        }
        UpdateSource(item);
    } else if (is("TYPE")) {
        data_type = StructTypeOf(item);
        if (data_type != nullptr) {
            data_holder.reset(data_type->CreateItem("data"));
            data_item = data_holder.get();
            buffer.assign(data_type->StructSize(), 0);
            // The new instance starts from the value of the linked item.
            Ctr<CStruct> from = QueryInterface<CStruct>(item);
            Ctr<CStruct> to = QueryInterface<CStruct>(data_item);
            if (from && to) std::memcpy(to->Data(), from->Data(), std::min(from->Size(), to->Size()));
        }
    } else if (is("SORT")) {
        sort_type = StructTypeOf(item);
        if (sort_type != nullptr) {
            sort_holder.reset(sort_type->CreateItem("sort"));
            sort_item = sort_holder.get();
            EventPublishHelper::SetSilenceMode(sort_item, true);
        }
    } else if (is("SourceId")) {
        id_type = StructTypeOf(item);
        if (id_type != nullptr) {
            id_holder.reset(id_type->CreateItem("source_id"));
            id_item = id_holder.get();
            EventPublishHelper::SetSilenceMode(id_item, true);
        }
    }
    return true;
}

void SingleDataReader::UpdateSource(IBaseCtr* item) {
    if (source_item != nullptr) {
        if (update_forwarder) source_item->RemoveSubscribeEvent("Update", update_forwarder);
        if (destroy_watcher) source_item->RemoveSubscribeEvent("Destroy", destroy_watcher);
    }
    update_forwarder.reset();
    destroy_watcher.reset();
    source_item = item;
    if (item == nullptr) return;
    update_forwarder = MakeEventHandler([this](IBaseCtr*) { EventPublishHelper::FireObjectEvent(owner, "Update"); });
    destroy_watcher = MakeEventHandler([this](IBaseCtr*) {
        // The records belong to the item that goes: the reader of them goes as well.
        source = nullptr;
        source_handle.reset();
        UpdateSource(nullptr);
    });
    item->SubscribeEvent("Update", update_forwarder);
    item->SubscribeEvent("Destroy", destroy_watcher);
}

std::shared_ptr<CtrVar> SingleDataReader::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (type == VellumTypeOf<IStructDataSetReader>()) return MakeCtrVar<IStructDataSetReader>(this);
    if (type == VellumTypeOf<IReader>()) return MakeCtrVar<IReader>(source);
    if (type == VellumTypeOf<ITimeIndexOperator>() && source_item != nullptr)
        return source_item->GetExtendCtr(type, flag, name);
    return {};
}

void SingleDataReader::Bind(IBaseCtr* item, void* data) {
    if (Ctr<CStruct> record = QueryInterface<CStruct>(item)) record->Bind(data);
}

bool SingleDataReader::ReadData(unsigned long long position) {
    if (source == nullptr || data_item == nullptr) return false;
    if (buffer.empty() || source->Read(position, buffer.data(), 1) != 1) {
        Bind(data_item, nullptr);
        return false;
    }
    current_index = position;
    Bind(data_item, buffer.data());
    return true;
}

bool SingleDataReader::GotoBegin() { return ReadData(0); }

bool SingleDataReader::GotoEnd() {
    if (source == nullptr) return false;
    return ReadData(source->Count() - 1);
}

bool SingleDataReader::Next() { return ReadData(current_index + 1); }

bool SingleDataReader::Prev() { return ReadData(current_index - 1); }

bool SingleDataReader::Goto(const std::string& key, const Vellum::Var& value) {
    if (StringCompare(key, "INDEX", true) != 0 && StringCompare(key, "__KEY__", true) != 0) return false;
    return ReadData(value.ToUInt64());
}

IBaseCtr* SingleDataReader::GetIteratorVar() {
    if (data_item == nullptr && data_type != nullptr) {
        data_holder.reset(data_type->CreateItem("data"));
        data_item = data_holder.get();
        buffer.assign(data_type->StructSize(), 0);
    }
    return data_item;
}

unsigned long long SingleDataReader::GetCount() { return source ? source->Count() : 0; }

bool SingleDataReader::IsNull() {
    Ctr<CStruct> record = QueryInterface<CStruct>(data_item);
    return !record || record->IsNull();
}

IBaseCtr* SingleDataReader::GetChildItem(const std::string& name) {
    return data_item ? data_item->GetChildItem(name) : nullptr;
}

uint64_t SingleDataReader::FieldOf(IBaseCtr* item, const void* record, const char* field) {
    Ctr<CStruct> bound = QueryInterface<CStruct>(item);
    if (!bound) return 0;
    bound->Bind(const_cast<void*>(record));
    IBaseCtr* child = item->GetChildItem(field);
    return child ? child->GetValue().ToUInt64() : 0;
}

IStructDataSetReader::SortKeyGen SingleDataReader::GetSortKeyGen() {
    return [this](const void* record) -> uint64_t {
        if (sort_item == nullptr || sort_type == nullptr) return 0;
        return FieldOf(sort_item, record, "nano_time");
    };
}

IStructDataSetReader::SourceIdGen SingleDataReader::GetSourceId() {
    return [this](const void* record) -> uint32_t {
        if (id_item == nullptr || id_type == nullptr) return 0;
        return static_cast<uint32_t>(FieldOf(id_item, record, "source_id"));
    };
}

uint64_t SingleDataReader::RecordSize() {
    uint64_t size = 0;
    for (IStructType* type : {data_type, sort_type, id_type})
        if (type != nullptr) size = std::max<uint64_t>(size, type->StructSize());
    return size;
}
