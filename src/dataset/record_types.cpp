#include "dataset/record_types.h"

#include "dataset/records.h"
#include "host/item_binding.h"
#include "host/struct_type.h"

namespace {

// Fields are added once, when the type is new.
template <class R, class F>
void RegisterRecord(const char* name, ILocalSource* source, F&& add_fields) {
    IStructType* type = RegisterClassType<R>(name, source)->AsStruct();
    if (type == nullptr || !type->Fields().empty()) return;
    StructBuilder builder(type, source);
    add_fields(builder);
}

}  // namespace

void RegisterRecordTypes(ILocalSource* source) {
    RegisterRecord<LogicResult>("LogicResult", source, [](StructBuilder& b) {
        b.AddVar("m_bValue", "INT8", {0, 1}, "logic level of the run")
            .AddVar("dBeginTime", "DOUBLE", {1, 8}, "start of the run, seconds")
            .AddVar("dEndTime", "DOUBLE", {9, 8}, "end of the run, seconds")
            .AddVar("curValue", "DOUBLE", {17, 8}, "analogue value of the run");
    });
    RegisterRecord<FindEdgeResult>("FindEdgeResult", source, [](StructBuilder& b) {
        b.AddVar("dEdgeTime", "DOUBLE", {0, 8}, "time of the edge, seconds")
            .AddVar("u32EdgeType", "UINT32", {8, 4}, "type of the edge");
    });
    RegisterRecord<ValidDataArea>("ValidDataArea", source, [](StructBuilder& b) {
        b.AddVar("start_time", "INT64", {0, 8}, "first sample, ns")
            .AddVar("end_time", "INT64", {8, 8}, "end of the area, ns")
            .AddVar("index_id", "UINT64", {16, 8}, "first index column of the area")
            .AddVar("first_count", "UINT64", {24, 8}, "samples covered by the first column")
            .AddVar("wave_beg_pos", "UINT64", {32, 8}, "first sample position")
            .AddVar("wave_end_pos", "UINT64", {40, 8}, "last sample position, inclusive");
    });
}
