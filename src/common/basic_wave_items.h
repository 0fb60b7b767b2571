#pragma once
// The typed reader and writer items of declared datasets: BasicWaveReader<T> and
// BasicWaveWriter<T> look up three storages of an XmlDataset by their keys, check the
// unit widths, and hand out the real objects: a CBasicWaveReader<T> (as IBasicWaveReader,
// IPieceReader or itself), or the three fillers of the storages.
//
// Options: "wave", "index", "area" (defaults "Wave", "Index", "Area"), pairs separated by
// ';' or ',', key and value by '=' or ':'. Widths: wave sizeof(T), index 2 x sizeof(T),
// area 48; a missing storage or any other width fails Init.

#include "common/dataset_item_interfaces.h"
#include "dataset/records.h"
#include "host/ctr_var.h"
#include "reader/basic_wave_reader.h"

#include <cstddef>
#include <memory>
#include <string>

class ILocalSource;
class StorageBase;

namespace __internal {

// The three storages of a typed wave in a declared dataset.
struct WaveStorageTriple {
    std::shared_ptr<StorageBase> wave;
    std::shared_ptr<StorageBase> index;
    std::shared_ptr<StorageBase> area;

    // Looks the keys of options up in dataset, which must be an XmlDataset item; false
    // without one (the handles are then left as they were).
    bool Find(IBaseCtr* dataset, const std::string& options);
    bool WidthsFit(std::size_t element) const;
};

}  // namespace __internal

class BasicWaveReaderCommon : public IDatasetReader {
protected:
    IBaseCtr* dataset_ = nullptr;
    std::shared_ptr<StorageBase> wave_;
    std::shared_ptr<StorageBase> index_;
    std::shared_ptr<StorageBase> area_;
};

template <class T>
class BasicWaveReader : public BasicWaveReaderCommon {
public:
    bool Init(IBaseCtr* dataset, const std::string& options) override;
    bool Create() override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
    CBasicWaveReader<T>* Reader() const { return reader_.get(); }

private:
    std::unique_ptr<CBasicWaveReader<T>> reader_;
};

class BasicWaveWriterCommon : public IDatasetWriter {
protected:
    std::shared_ptr<StorageBase> wave_;
    std::shared_ptr<StorageBase> index_;
    std::shared_ptr<StorageBase> area_;
};

template <class T>
class BasicWaveWriter : public BasicWaveWriterCommon,
                        public StructFiller<T>,
                        public StructFiller<MinMaxData<T>>,
                        public StructFiller<ValidDataArea> {
public:
    bool Init(IBaseCtr* dataset, const std::string& options) override;
    bool Check() override;
    unsigned long long Push(const T* data, unsigned long long count) override;
    unsigned long long Push(const MinMaxData<T>* data, unsigned long long count) override;
    unsigned long long Push(const ValidDataArea* data, unsigned long long count) override;
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);

private:
    bool checked_ = false;
};

// Announces "IBasicWaveReader" and registers the twenty items "BasicWaveReader_u8" ..
// "BasicWaveWriter_f64" in source.
void RegisterBasicWaveItems(ILocalSource* source);
