#pragma once
// A storage for cycler tests: forwards to a real storage and records every CutHead
// call, since the block storage itself cuts nothing.

#include "storage/storage_base.h"

#include <memory>
#include <vector>

class CutRecordingStorage final : public StorageBase {
public:
    explicit CutRecordingStorage(std::shared_ptr<StorageBase> inner) : inner_(std::move(inner)) {}

    std::vector<uint64_t> cuts;

    int Clear() override { return inner_->Clear(); }
    std::string Persist() override { return inner_->Persist(); }
    uint64_t Count() override { return inner_->Count(); }
    uint64_t UnitSize() override { return inner_->UnitSize(); }
    uint64_t Read(uint64_t pos, void* buffer, uint64_t count) override { return inner_->Read(pos, buffer, count); }
    uint64_t Write(const void* data, uint64_t count) override { return inner_->Write(data, count); }
    uint64_t BlockUnits() override { return inner_->BlockUnits(); }
    int Sync() override { return inner_->Sync(); }
    void Bind(std::shared_ptr<IDeviceChannel> channel) override { inner_->Bind(std::move(channel)); }
    RawData Request(uint64_t pos, uint64_t count) override { return inner_->Request(pos, count); }
    void SetSizeLimit(uint64_t bytes) override { inner_->SetSizeLimit(bytes); }
    uint64_t CutHead(uint64_t count) override {
        cuts.push_back(count);
        return inner_->CutHead(count);
    }
    void SetOption(const std::string& name, const Vellum::Var& value) override { inner_->SetOption(name, value); }
    bool Swap(StorageBase* other) override { return inner_->Swap(other); }
    int DropCache() override { return inner_->DropCache(); }
    WriteCallback& WriteSignal() override { return inner_->WriteSignal(); }
    bool ChangeUnitSize(uint32_t unit, uint32_t* old) override { return inner_->ChangeUnitSize(unit, old); }
    BlockItem GetBlock(uint64_t pos, uint64_t* offset, uint64_t* units) override {
        return inner_->GetBlock(pos, offset, units);
    }

private:
    std::shared_ptr<StorageBase> inner_;
};
