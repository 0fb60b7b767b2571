#include "wave/device_wave_dataset.h"

#include "host/base_ctr.h"
#include "host/string_utils.h"

template <class T>
DeviceWaveDataSet<T>::DeviceWaveDataSet() : BasicWaveDataSet<T>(nullptr) {
    this->CreateStorage("Area", sizeof(ValidDataArea), kDefaultGroup);
}

template <class T>
bool DeviceWaveDataSet<T>::SetLinkItem(IBaseCtr* item, const std::string& name) {
    struct Link {
        const char* name;
        const char* id;
        uint64_t unit_size;
    };
    static constexpr Link kLinks[] = {
        {"DevChWave", "Wave", sizeof(T)},
        {"DevChIndex", "Index", sizeof(MinMaxData<T>)},
        {"DevChArea", "Area", sizeof(ValidDataArea)},
    };
    for (const Link& link : kLinks) {
        if (StringCompare(name, link.name, true) != 0) continue;
        Ctr<IDeviceChannel> channel = QueryInterface<IDeviceChannel>(item);
        // The channel lives as long as the handle of the query: share its ownership.
        std::shared_ptr<IDeviceChannel> shared(channel.Var(), channel.get());
        this->BindCustomStorage(link.id, std::move(shared), link.unit_size, kDefaultGroup);
        return true;
    }
    return BasicWaveDataSet<T>::SetLinkItem(item, name);
}

template class DeviceWaveDataSet<int8_t>;
template class DeviceWaveDataSet<uint8_t>;
template class DeviceWaveDataSet<int16_t>;
template class DeviceWaveDataSet<uint16_t>;
template class DeviceWaveDataSet<int32_t>;
template class DeviceWaveDataSet<uint32_t>;
template class DeviceWaveDataSet<float>;
template class DeviceWaveDataSet<double>;
template class DeviceWaveDataSet<LongDouble>;
