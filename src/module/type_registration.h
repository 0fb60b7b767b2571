#pragma once
// The item types that the module teaches its host, registered by InitDataSetModule in
// this order: the record structs, "AXIS" (in the type manager's root scope), the
// parameters of a wave, the dataset types by name ("WAVEDATASET[...]",
// "DEVWAVEDATASET[FLOAT]", "BASIC_TREND[...]" in the root scope, "WaveDataset" with the type creators
// "WaveDatasetType" and "WaveDatasetTypeEx" and its init and public attribute types),
// "_DataSetEx_" (root scope), "_DataSetMgrEx_" with its static item, "PieceDataset",
// "TypeSource", the reader and writer items of the configurable family, and "dataset".
// A wave type name exists only for FLOAT, INT16 and DOUBLE; the other element types are
// bound by class only.

class ILocalSource;

void RegisterModuleTypes(ILocalSource* source);
