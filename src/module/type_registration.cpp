#include "module/type_registration.h"

#include "common/basic_wave_items.h"
#include "common/common_wave_type.h"
#include "common/xml_dataset.h"
#include "dataset/axis.h"
#include "dataset/dataset_base_ex.h"
#include "dataset/dataset_tool.h"
#include "dataset/record_types.h"
#include "dataset/type_source.h"
#include "host/item_binding.h"
#include "math/math_dataset.h"
#include "module/dataset_manager.h"
#include "reader/data_piece.h"
#include "trend/basic_trend_dataset.h"
#include "wave/basic_wave_dataset.h"
#include "wave/device_wave_dataset.h"

void RegisterModuleTypes(ILocalSource* source) {
    RegisterRecordTypes(source);
    RegisterAxisType(nullptr);
    RegisterWaveDatasetParametersType(nullptr);
    RegisterClassType<BasicWaveDataSet<float>>("WAVEDATASET[FLOAT]", source);
    RegisterClassType<BasicWaveDataSet<int16_t>>("WAVEDATASET[INT16]", source);
    RegisterClassType<BasicWaveDataSet<double>>("WAVEDATASET[DOUBLE]", source);
    RegisterClassType<DeviceWaveDataSet<float>>("DEVWAVEDATASET[FLOAT]", source);
    // "+" is the mean (operator 2), "-" the difference (operator 1).
    RegisterClassType<MathDataSet<double, 2>>("MATH[DOUBLE,+]", source);
    RegisterClassType<MathDataSet<double, 1>>("MATH[DOUBLE,-]", source);
    RegisterClassType<MathDataSet<float, 2>>("MATH[FLOAT,+]", source);
    RegisterClassType<MathDataSet<float, 1>>("MATH[FLOAT,-]", source);
    // The trend types go into the type manager's root scope, without a source.
    RegisterClassType<BasicTrendDataSet<float>>("BASIC_TREND[FLOAT]");
    RegisterClassType<BasicTrendDataSet<double>>("BASIC_TREND[DOUBLE]");
    RegisterClassType<BasicTrendDataSet<uint8_t>>("BASIC_TREND[UINT8]");
    RegisterClassType<BasicTrendDataSet<uint16_t>>("BASIC_TREND[UINT16]");
    RegisterClassType<BasicTrendDataSet<uint32_t>>("BASIC_TREND[UINT32]");
    RegisterClassType<BasicTrendDataSet<uint64_t>>("BASIC_TREND[UINT64]");
    RegisterClassType<BasicTrendDataSet<int8_t>>("BASIC_TREND[INT8]");
    RegisterClassType<BasicTrendDataSet<int16_t>>("BASIC_TREND[INT16]");
    RegisterClassType<BasicTrendDataSet<int32_t>>("BASIC_TREND[INT32]");
    RegisterClassType<BasicTrendDataSet<int64_t>>("BASIC_TREND[INT64]");
    // "WaveDataset" with the type creators "WaveDatasetType" and "WaveDatasetTypeEx".
    RegisterCommonWaveTypes(source);
    // Without a source: the type manager's root scope.
    RegisterClassType<DataSetBaseEx>("_DataSetEx_");
    RegisterDataSetManager(source);
    RegisterPieceType(source);
    RegisterClassType<CTypeSource>("TypeSource", source);
    RegisterBasicWaveItems(source);
    RegisterXmlDatasetType(source);
}
