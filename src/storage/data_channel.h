#pragma once
// IDataChannel: a source that pushes data by itself, such as an acquisition device.
// Concrete sources come from the host; the defaults here do nothing and report nothing,
// except StopSerialize, which cancels the module's background copies.

#include <cstdint>
#include <string>

class IBaseCtr;

// Control of a source's own saving to file.
class ISerializeCtr {
public:
    virtual ~ISerializeCtr() = default;
    virtual void InitFile() = 0;
    virtual void IsSerializeFile(bool enable) = 0;
    virtual void StartSerialize(double start, double end, uint64_t first, uint64_t count) = 0;
    virtual void StopSerialize() = 0;
    virtual std::string GetFilePath() = 0;
    virtual uint64_t GetSaveSize() = 0;
};

class IDataChannel : public ISerializeCtr {
public:
    virtual bool ClearData() { return false; }
    virtual bool IsWriteEnable() { return false; }
    virtual bool PushData(void* data, unsigned int& length);
    virtual uint64_t GetCurLength() { return 0; }
    virtual double GetCutTime() { return 0; }
    virtual double GetSampRate() { return 0; }
    virtual double GetTimeStamp() { return 0; }
    virtual std::string GetChannelName() { return {}; }
    // The dataset item that the source writes into (a wave dataset hands itself over
    // by the link "DataCH" or the command "SetChannelDataset"). Default: ignored.
    virtual void SetDataset(IBaseCtr*) {}

    void InitFile() override {}
    void IsSerializeFile(bool) override {}
    void StartSerialize(double, double, uint64_t, uint64_t) override {}
    // Cancels the copy the background copier is running and drops the queued ones.
    void StopSerialize() override;
    std::string GetFilePath() override { return {}; }
    uint64_t GetSaveSize() override { return 0; }
};
