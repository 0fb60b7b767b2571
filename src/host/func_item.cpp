#include "host/func_item.h"

#include "host/local_source.h"
#include "host/logger.h"

std::string ConditionFunc::ReadAttr(const std::string& name, const std::string& defaultValue) const {
    auto it = attributes_.find(name);
    return it == attributes_.end() ? defaultValue : it->second;
}

bool CFuncManager::Register(const std::string& name, Factory factory) {
    if (!factory || name.empty()) return false;
    std::lock_guard lock(mutex_);
    return factories_.try_emplace(name, std::move(factory)).second;
}

bool CFuncManager::Has(const std::string& name) const {
    std::lock_guard lock(mutex_);
    return factories_.count(name) != 0;
}

std::vector<std::string> CFuncManager::Names() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& entry : factories_) names.push_back(entry.first);
    return names;
}

std::unique_ptr<IFuncItem> CFuncManager::Create(const pugi::xml_node& step) const {
    Factory factory;
    {
        std::lock_guard lock(mutex_);
        auto it = factories_.find(step.name());
        if (it == factories_.end()) return nullptr;
        factory = it->second;
    }
    std::unique_ptr<IFuncItem> item = factory();
    if (!item) return nullptr;
    std::map<std::string, std::string> attributes;
    for (const pugi::xml_attribute& attribute : step.attributes()) attributes[attribute.name()] = attribute.value();
    item->SetAttributes(std::move(attributes));
    return item;
}

CFuncManager* GetRootFuncManager() {
    static auto* manager = new CFuncManager;  // lives until the process ends
    return manager;
}

bool CBaseFuncItemCreater::InitFuncCreater(CFuncManager* manager, const std::string& name,
                                           CFuncManager::Factory factory, const pugi::xml_node&) {
    return manager != nullptr && manager->Register(name, std::move(factory));
}

namespace {

class ScopeRunner final : public IFuncRunner {
public:
    explicit ScopeRunner(ILocalSource* source) : source_(source) {}
    IBaseCtr* FindItem(const std::string& name) override { return GetLocalItem(source_, nullptr, name); }
    ILocalSource* Source() override { return source_; }

private:
    ILocalSource* source_;
};

}  // namespace

bool RunScript(ILocalSource* source, const pugi::xml_node& script, CFuncManager* manager) {
    if (manager == nullptr) return false;
    ScopeRunner runner(source);
    for (const pugi::xml_node& step : script.children()) {
        if (step.type() != pugi::node_element) continue;
        std::unique_ptr<IFuncItem> item = manager->Create(step);
        if (!item) {
            CLogger::DefaultLogger().Error("script: unknown step \"{}\"", step.name());
            return false;
        }
        if (!item->Run(&runner)) return false;
    }
    return true;
}
