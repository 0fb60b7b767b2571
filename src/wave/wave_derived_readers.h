#pragma once
// The derived readers of a wave dataset: level and edge information, and the walking
// readers of edges, logic runs and validity areas. Each factory makes a new reader,
// owned by the caller, with its own CBasicWaveReader<T> on the dataset's storages.
//
// DerivedReaderCtr answers the dataset's interface queries for them (a new reader per
// query, owned by the answer):
//   IBasicLevelInformation, CBasicLevelInformation<T>   level information
//   IBasicEdgeInformation, CBasicEdgeInformation<T>     edge information
//   IDataReader "EdgeReader" / "LogicReader" / "ValidReader"
// RegisterDerivedReaderItems declares the dynamic items of the same names on the
// dataset's item type: iterators over those readers (CInforIteratorReader).

#include "reader/edge_data_reader.h"
#include "reader/edge_information.h"
#include "reader/level_information.h"
#include "reader/logic_data_reader.h"
#include "reader/valid_area_reader.h"
#include "wave/basic_wave_dataset.h"

#include <memory>
#include <string>

class IItemType;

template <class T>
CBasicLevelInformation<T>* CreateLevelInformationReader(const BasicWaveDataSet<T>& dataset);
template <class T>
CBasicEdgeInformation<T>* CreateEdgeInformationReader(const BasicWaveDataSet<T>& dataset);
template <class T>
CEdgeDataReader<T>* CreateEdgeReader(const BasicWaveDataSet<T>& dataset);
template <class T>
CLogicDataReader<T>* CreateLogicReader(const BasicWaveDataSet<T>& dataset);
// The areas of the dataset's "Area" storage (a synthetic one without stored areas).
template <class T>
CValidAreaDataReader* CreateValidReader(const BasicWaveDataSet<T>& dataset);

// The answer to a query for one of the derived readers; empty for any other type.
template <class T>
std::shared_ptr<CtrVar> DerivedReaderCtr(const BasicWaveDataSet<T>& dataset, const VellumTypeID& type,
                                         const std::string& name);

// The dynamic items "ValidReader", "EdgeReader" and "LogicReader" of a wave dataset type.
void RegisterDerivedReaderItems(IItemType* type);
