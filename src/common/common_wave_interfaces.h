#pragma once
// The interfaces through which the host and the configurable wave family meet:
//   IWaveDataset      a wave dataset whose element type is a run-time value
//   IWaveWriter       takes blocks of raw elements with the time of their first one
//   IWaveIndexer      sees every block a writer pushes and builds an index of its own
//   IWaveDatasetInit  a companion item that configures a dataset in its place
//   IMemoryBuffer     a host item that holds memory a storage may be bound to

#include "dataset/dataset_interfaces.h"
#include "dataset/records.h"
#include "host/vellum_time.h"

#include <pugixml.hpp>

#include <cstdint>
#include <map>
#include <string>

class IBaseCtr;
class ILocalSource;
class IWaveDataset;
struct WaveTypeOps;

class IWaveIndexer {
public:
    virtual ~IWaveIndexer() = default;
    // Joins the indexer to its dataset; called once, when it is added.
    virtual bool Attach(IWaveDataset* dataset, ILocalSource* source) = 0;
    // One block as the writer stored it: count elements, the first at time.
    virtual void Push(VellumTime time, const void* data, uint64_t count) = 0;
    // Readies the index for the dataset's present element type.
    virtual void Prepare() = 0;
    // Empties the index.
    virtual void Reset() = 0;
    // Called after Reset.
    virtual void Complete() = 0;
};

class IWaveWriter {
public:
    virtual ~IWaveWriter() = default;
    // Stores count elements of the dataset's type, the first at time. False (nothing
    // stored) without a type, for null data or count 0.
    virtual bool Push(VellumTime time, const void* data, uint64_t count) = 0;
};

class IWaveDataset : public IDataSetEx {
public:
    // Sets the element type by its host type word; false, leaving no type, for a word
    // that is not one of the ten wave value types. save keeps it as the type to save.
    virtual bool SetDataType(const std::string& type, bool save) = 0;
    // The host type code, -1 when unset.
    virtual int GetDataType() const = 0;
    // Registers an indexer under name, which the caller keeps alive; false for a name taken.
    virtual bool AddIndexer(const std::string& name, IWaveIndexer* indexer) = 0;
    // Resets the indexer of name, or all of them for "__all__" (any case).
    virtual void ResetIndexer(const std::string& name) = 0;
    // The row of the element type, null when unset.
    virtual const WaveTypeOps* TypeOperations() const = 0;
    virtual VellumLevelTime SamplePeriod() const = 0;
    // The unit of times: the sample period, or 1 ns.
    virtual VellumLevelTime TimeUnit() const = 0;
    virtual IWaveWriter* Writers() = 0;
    // Binds one storage per entry (name to "kind;argument"), then any of "Wave",
    // "Index", "Area" still missing on new managed files.
    virtual bool CreateStorages(const std::map<std::string, std::string>& storages, ILocalSource* source,
                                const pugi::xml_node& xml) = 0;
    // The samples per entry of the main index; makes that indexer if needed.
    virtual void SetIndexStep(unsigned int step) = 0;

    // The storage group that holds the dataset's storages.
    virtual IDataSetBase* StorageGroup() = 0;
    // The run of samples being written; times in sample numbers.
    virtual ValidDataArea LastArea() const = 0;
    // The dataset's item, null without one.
    virtual IBaseCtr* Item() const = 0;
};

class IWaveDatasetInit {
public:
    virtual ~IWaveDatasetInit() = default;
    // Configures dataset as its own definition would; false if that failed.
    virtual bool InitDataset(IWaveDataset* dataset, ILocalSource* source) = 0;
};

class IMemoryBuffer {
public:
    virtual ~IMemoryBuffer() = default;
    // The memory, which must outlive every storage bound to it, and its length in bytes.
    virtual const void* Data() const = 0;
    virtual uint64_t Length() const = 0;
};
