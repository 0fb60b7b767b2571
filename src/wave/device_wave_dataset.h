#pragma once
// DeviceWaveDataSet<T>: a wave dataset whose storages sit on channels that a device item
// provides. An acquisition device writes through those channels; this class only links
// them: "DevChWave" binds "Wave" (unit sizeof(T)), "DevChIndex" binds "Index" (unit
// 2 x sizeof(T)), "DevChArea" rebinds "Area" (unit 48), all in the group "__def__".
// Until "Wave" and "Index" are linked they don't exist: pushes of samples and columns
// append nothing, and readers of the missing storages are empty. Other links are those
// of the wave dataset ("DataCH").

#include "wave/basic_wave_dataset.h"

template <class T>
class DeviceWaveDataSet : public BasicWaveDataSet<T> {
public:
    // Makes only "Area"; "Wave" and "Index" come with their links.
    DeviceWaveDataSet();

    // Binds the IDeviceChannel of item for one of the three links (an item without one
    // binds a storage without content). Always true.
    bool SetLinkItem(IBaseCtr* item, const std::string& name);
};

extern template class DeviceWaveDataSet<int8_t>;
extern template class DeviceWaveDataSet<uint8_t>;
extern template class DeviceWaveDataSet<int16_t>;
extern template class DeviceWaveDataSet<uint16_t>;
extern template class DeviceWaveDataSet<int32_t>;
extern template class DeviceWaveDataSet<uint32_t>;
extern template class DeviceWaveDataSet<float>;
extern template class DeviceWaveDataSet<double>;
extern template class DeviceWaveDataSet<LongDouble>;
