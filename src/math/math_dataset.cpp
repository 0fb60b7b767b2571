#include "math/math_dataset.h"

#include "dataset/axis.h"
#include "host/base_ctr.h"
#include "host/events.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"

#include <cmath>
#include <memory>

template <class T, int Op>
MathDataSet<T, Op>::MathDataSet() = default;

template <class T, int Op>
MathDataSet<T, Op>::~MathDataSet() = default;

template <class T, int Op>
bool MathDataSet<T, Op>::InitType(IItemType* type, const std::string& name) {
    BasicWaveDataSet<T>::InitType(type, name);
    return true;
}

template <class T, int Op>
bool MathDataSet<T, Op>::InitItem(IBaseCtr* item) {
    BasicWaveDataSet<T>::InitItem(item);
    return true;
}

template <class T, int Op>
bool MathDataSet<T, Op>::SetLinkItem(IBaseCtr* item, const std::string& name) {
    if (name == "left") {
        m_pLeft = item;
    } else if (name == "right") {
        m_pRight = item;
    } else if (name == "dataAxis" || name == "sizeAxis") {
        // Asked and dropped: the axes are the base's business.
        (void)QueryInterface<IDatasetAxis>(item);
    }
    return BasicWaveDataSet<T>::SetLinkItem(item, name);
}

template <class T, int Op>
bool MathDataSet<T, Op>::OnCMD(const std::string& command, IBaseCtr* argument) {
    BasicWaveDataSet<T>::OnCMD(command, argument);
    if (StringCompare(command, "Clear", true) == 0) {
        m_areas.clear();
        m_nextWavePos = 0;
        m_lastRangeStart = 0;
        m_lastRangeEnd = 0;
    }
    return false;
}

template <class T, int Op>
std::shared_ptr<CtrVar> MathDataSet<T, Op>::GetExtendCtr(const VellumTypeID& type, bool flag,
                                                          const std::string& name) {
    if (type == VellumTypeOf<IBasicWaveReader>())
        return MakeOwnedCtrVar<IBasicWaveReader>(std::unique_ptr<IBasicWaveReader>(this->CreateBasicWaveReader()));
    if (type == VellumTypeOf<IMathDataSet>()) return MakeCtrVar<IMathDataSet>(this);
    return BasicWaveDataSet<T>::GetExtendCtr(type, flag, name);
}

template <class T, int Op>
void MathDataSet<T, Op>::GetLastRange(double& start, double& end) {
    start = m_lastRangeStart;
    end = m_lastRangeEnd;
}

template <class T, int Op>
bool MathDataSet<T, Op>::isEqual(double a, double b) {
    return 1e-12 > std::fabs(a - b);
}

template <class T, int Op>
bool MathDataSet<T, Op>::LessOrEqual(double a, double b) {
    return isEqual(a, b) || b > a;
}

template <class T, int Op>
void MathDataSet<T, Op>::CalcRange(double start, double end) {
    // A trace of every calculation, at error level on purpose.
    CLogger::DefaultLogger().Error("------Calcwave Start start:{} end:{}", start, end);
    std::lock_guard<std::mutex> hold(m_lock);  // a failing lock throws std::system_error
    Load();
    // Looked up without inserting: an empty entry in the storage map would break every
    // later walk over the storages.
    const std::shared_ptr<StorageBase> wave = this->GetStorage("Wave");
    const std::shared_ptr<StorageBase> index = this->GetStorage("Index");
    const std::shared_ptr<StorageBase> area = this->GetStorage("Area");
    if (!m_leftWave || !m_rightWave || !wave || !index || !area) {
        CLogger::DefaultLogger().Error("      CalcRange Source is NULL!!!!!");
        return;
    }
    CalcArea(start, end);
    CalcWave();
    SaveArea();
    m_lastRangeStart = start;
    m_lastRangeEnd = end;
    EventPublishHelper::FireObjectEvent(this->Item(), "Update");
}

#define WAVESTORE_MATH_INSTANCE(T, O) template class MathDataSet<T, O>;
WAVESTORE_MATH_INSTANCES(WAVESTORE_MATH_INSTANCE)
