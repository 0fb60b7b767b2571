#pragma once
// The item types that the module teaches its host, registered by InitDataSetModule in
// this order: the record structs, "AXIS" (in the type manager's root scope), the
// parameters of a wave, the dataset types by name, then "PieceDataset".

class ILocalSource;

void RegisterModuleTypes(ILocalSource* source);
