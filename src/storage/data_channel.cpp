#include "storage/data_channel.h"

#include "storage/export_manager.h"

bool IDataChannel::PushData(void*, unsigned int&) { return false; }

void IDataChannel::StopSerialize() { ExportManager::Instance().Cancel(); }
