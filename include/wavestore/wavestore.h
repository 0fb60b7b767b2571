#pragma once
// wavestore: the acquisition data store of an instrument-analysis host.
//
// This umbrella header exposes every exported class and function of the module and of
// its host layer. Include it as <wavestore/wavestore.h> and link wavestore::wavestore.

// Host layer: object model, items and types.
#include "host/type_id.h"
#include "host/ctr_var.h"
#include "host/var.h"
#include "host/events.h"
#include "host/base_ctr.h"
#include "host/local_source.h"
#include "host/item_type.h"
#include "host/struct_type.h"
#include "host/value_item.h"
#include "host/item_binding.h"
#include "host/xml_items.h"
#include "host/func_item.h"

// Host layer: utilities and services.
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

// Storage engine.
#include "storage/memory_pool.h"

// Dataset core.
#include "dataset/long_double.h"
#include "dataset/element_types.h"
#include "dataset/records.h"
#include "dataset/time_rules.h"
#include "dataset/record_types.h"
#include "dataset/module_entry.h"
