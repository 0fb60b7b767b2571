#pragma once
// wavestore: the acquisition data store of an instrument-analysis host.
//
// This umbrella header exposes every exported class and function of the module and of
// its host layer. Include it as <wavestore/wavestore.h> and link wavestore::wavestore.

// Host layer: object model, utilities and services.
#include "host/type_id.h"
#include "host/ctr_var.h"
#include "host/var.h"
#include "host/events.h"
#include "host/base_ctr.h"
#include "host/local_source.h"
#include "host/item_type.h"
#include "host/struct_type.h"
#include "host/value_item.h"
#include "host/value_format.h"
#include "host/item_binding.h"
#include "host/xml_items.h"
#include "host/func_item.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "host/base64.h"
#include "host/md5.h"
#include "host/path.h"
#include "host/file.h"
#include "host/aligned_memory.h"
#include "host/time_span.h"
#include "host/vellum_time.h"
#include "host/thread_pool.h"
#include "host/timer_task_manager.h"
#include "host/project_file_manager.h"
#include "host/configuration.h"
#include "host/serialization.h"
#include "host/export_data_pack.h"
#include "host/storage_interfaces.h"
#include "host/raw_data.h"

// Storage engine: pool, blocks, channels, cache files, time index.
#include "storage/block_cache.h"
#include "storage/block_item.h"
#include "storage/block_storage.h"
#include "storage/cache_block.h"
#include "storage/data_channel.h"
#include "storage/device_channels.h"
#include "storage/export_manager.h"
#include "storage/file_proxy.h"
#include "storage/memory_pool.h"
#include "storage/memory_pool_state.h"
#include "storage/raw_data_views.h"
#include "storage/storage_base.h"
#include "storage/storage_sync_manager.h"
#include "storage/stream_channel.h"
#include "storage/time_index.h"

// Dataset core: records, axes, tools, dataset base.
#include "dataset/axis.h"
#include "dataset/dataset_base.h"
#include "dataset/dataset_base_ex.h"
#include "dataset/dataset_interfaces.h"
#include "dataset/dataset_tool.h"
#include "dataset/element_types.h"
#include "dataset/long_double.h"
#include "dataset/math_dataset_interface.h"
#include "dataset/partial_exportable.h"
#include "dataset/record_types.h"
#include "dataset/records.h"
#include "dataset/serialization_helper.h"
#include "dataset/tagged_table.h"
#include "dataset/time_rules.h"
#include "dataset/type_source.h"

// Wave datasets and their producers.
#include "wave/basic_wave_checker.h"
#include "wave/basic_wave_cycler.h"
#include "wave/basic_wave_dataset.h"
#include "wave/cycle_setting.h"
#include "wave/device_wave_dataset.h"
#include "wave/struct_reader.h"
#include "wave/wave_data_filler.h"
#include "wave/wave_partial_export.h"
#include "wave/wave_producer.h"

// Wave readers and data pieces.
#include "reader/basic_wave_reader.h"
#include "reader/column_fill.h"
#include "reader/data_piece.h"
#include "reader/multi_source_reader.h"
#include "reader/piece_reader.h"
#include "reader/piece_tool.h"
#include "reader/single_data_reader.h"
#include "reader/simple_reader.h"

// Math helpers.
#include "math/spline.h"

// Trend datasets: time-stamped series and their reader.
#include "trend/basic_trend_dataset.h"
#include "trend/trend_columns.h"
#include "trend/trend_data_reader.h"
#include "trend/trend_dataset.h"
#include "trend/trend_records.h"
#include "trend/trend_tool.h"

// Configurable wave datasets: the common wave dataset and its reader, declared datasets
// and their typed reader and writer items.
#include "common/analog_read_interfaces.h"
#include "common/basic_wave_items.h"
#include "common/common_wave_dataset.h"
#include "common/common_wave_indexer.h"
#include "common/common_wave_interfaces.h"
#include "common/common_wave_reader.h"
#include "common/dataset_item_interfaces.h"
#include "common/wave_result_data.h"
#include "common/wave_type_ops.h"
#include "common/xml_dataset.h"
#include "common/xml_dataset_definition.h"

// The module entry and the registration of every item type.
#include "module/dataset_ctr_func.h"
#include "module/dataset_manager.h"
#include "module/module_entry.h"
#include "module/type_registration.h"
