#pragma once
// StorageBase: an append-only array of fixed-size units, much larger than memory,
// through which every dataset and reader holds its data. Positions and counts are in
// units; the channel behind a storage counts bytes.

#include "host/raw_data.h"
#include "host/storage_interfaces.h"
#include "host/var.h"
#include "storage/block_item.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class StorageBase : public IVellumStorage {
public:
    // Called after every append with the units appended and the source pointer.
    using WriteCallback = std::function<void(uint64_t count, const void* data)>;

    ~StorageBase() override = default;

    // Empties the storage; a channel that holds data of its own (memory, external
    // file) shows it again afterwards.
    virtual int Clear() = 0;
    // Makes the content a kept file and gives its id, or the empty text.
    virtual std::string Persist() = 0;
    virtual uint64_t Count() = 0;
    virtual uint64_t UnitSize() = 0;
    // Copies up to count units from pos; gives the units copied (0 past the end).
    virtual uint64_t Read(uint64_t pos, void* buffer, uint64_t count) = 0;
    // Appends; gives the units appended (0 for null data or count 0).
    virtual uint64_t Write(const void* data, uint64_t count) = 0;
    virtual uint64_t BlockUnits() = 0;
    // Brings everything to the channel and waits for it.
    virtual int Sync() = 0;
    // Attaches a channel and its content.
    virtual void Bind(std::shared_ptr<IDeviceChannel> channel) = 0;
    // A view of units from pos; it may hold more or fewer than count: use its Count().
    virtual RawData Request(uint64_t pos, uint64_t count) = 0;
    virtual void SetSizeLimit(uint64_t bytes) = 0;
    // Cutting units from the head is not supported: gives 0 and cuts nothing.
    virtual uint64_t CutHead(uint64_t count) = 0;
    // "enable_throttle" (any case) turns the wait for pending block writes on or off.
    virtual void SetOption(const std::string& name, const Vellum::Var& value) = 0;
    // Exchanges channels with another storage; false in every case.
    virtual bool Swap(StorageBase* other) = 0;
    // Forgets this storage's cached blocks.
    virtual int DropCache() = 0;
    virtual WriteCallback& WriteSignal() = 0;
    // Only while empty: false when the storage holds units.
    virtual bool ChangeUnitSize(uint32_t unit, uint32_t* old) = 0;
    // The pinned block of pos, its unit offset and units; empty past the end.
    virtual BlockItem GetBlock(uint64_t pos, uint64_t* offset, uint64_t* units) = 0;
};
