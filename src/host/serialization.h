#pragma once
// Serialization hooks: the context handed to serializable objects, the ISerializable
// interface, and SerializationManager, which collects the data that datasets hand over
// for the host to save later.
//
// Choices made here:
// - Data save type 0 (the default) saves everything in place; 1 means "partial data":
//   datasets register themselves with AddPartialData instead.
// - Registrations keep their order. A pair (owner, path), or a dynamic-data owner, that
//   is already pending is not recorded twice; a null owner is ignored (logged).
// - Take*() hands over what is pending and clears it.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class Configuration;
class IBaseCtr;  // defined by the object model

struct SerializeContext {
    Configuration* config = nullptr;
    std::string path;
};

struct SerializeConfig {
    uint32_t flag = 0;
};

class ISerializable {
public:
    virtual ~ISerializable();
    virtual void Serialize(std::shared_ptr<SerializeContext> context, const SerializeConfig* config) = 0;
    virtual bool Deserialize(std::shared_ptr<SerializeContext> context) = 0;
    // False while the object still has saving work under way.
    virtual bool IsFinished() const { return true; }
};

class SerializationManager {
public:
    // The process-wide manager, built on first use.
    static SerializationManager& Instance();

    SerializationManager() = default;
    SerializationManager(const SerializationManager&) = delete;
    SerializationManager& operator=(const SerializationManager&) = delete;

    int GetDataSaveType() const;
    void SetDataSaveType(int type);

    void AddPartialData(IBaseCtr* owner, const std::string& path);
    void AddDynamicData(IBaseCtr* owner);

    std::vector<std::pair<IBaseCtr*, std::string>> TakePartialData();
    std::vector<IBaseCtr*> TakeDynamicData();

private:
    mutable std::mutex mutex_;
    int data_save_type_ = 0;
    std::vector<std::pair<IBaseCtr*, std::string>> partial_;
    std::vector<IBaseCtr*> dynamic_;
};
