#pragma once
// Registration of the records that the host reads by field name: "LogicResult",
// "FindEdgeResult" and "ValidDataArea", as struct types with their fields.

class ILocalSource;

// Registers the three struct types in source, in that order. A type already known to
// the type manager is left as it is.
void RegisterRecordTypes(ILocalSource* source);
