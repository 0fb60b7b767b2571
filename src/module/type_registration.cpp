#include "module/type_registration.h"

#include "common/basic_wave_items.h"
#include "common/common_wave_dataset.h"
#include "common/xml_dataset.h"
#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "dataset/record_types.h"
#include "host/item_binding.h"
#include "reader/data_piece.h"
#include "wave/basic_wave_dataset.h"

void RegisterModuleTypes(ILocalSource* source) {
    RegisterRecordTypes(source);
    RegisterAxisType(nullptr);
    RegisterWaveDatasetParametersType(nullptr);
    RegisterClassType<BasicWaveDataSet<float>>("WAVEDATASET[FLOAT]", source);
    RegisterClassType<BasicWaveDataSet<int16_t>>("WAVEDATASET[INT16]", source);
    RegisterClassType<BasicWaveDataSet<double>>("WAVEDATASET[DOUBLE]", source);
    RegisterClassType<CommonWaveDataSet>("WaveDataset", source);
    RegisterPieceType(source);
    RegisterBasicWaveItems(source);
    RegisterXmlDatasetType(source);
}
