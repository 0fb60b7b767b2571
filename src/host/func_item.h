#pragma once
// Script steps: the host's script language runs a sequence of steps, each an XML
// element whose name chooses the step ("dataset" and the like) and whose attributes
// are its arguments.
//
// A step factory is registered under its name with CBaseFuncItemCreater. Running a
// script makes each step, gives it its attributes, and runs it; the script stops at
// the first step that returns false (or whose name is unknown), with false.

#include <pugixml.hpp>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class IBaseCtr;
class ILocalSource;

// The context of a running script.
class IFuncRunner {
public:
    virtual ~IFuncRunner() = default;
    // The item of that name as the script sees it; null if none.
    virtual IBaseCtr* FindItem(const std::string& name) = 0;
    virtual ILocalSource* Source() = 0;
};

class IFuncItem {
public:
    virtual ~IFuncItem() = default;
    virtual void SetAttributes(std::map<std::string, std::string> attributes) = 0;
    // The attribute's text, or defaultValue when it is absent.
    virtual std::string ReadAttr(const std::string& name, const std::string& defaultValue = {}) const = 0;
    virtual bool Run(IFuncRunner* runner) = 0;
};

// A step that holds its attributes; subclasses give Run.
class ConditionFunc : public IFuncItem {
public:
    void SetAttributes(std::map<std::string, std::string> attributes) override { attributes_ = std::move(attributes); }
    std::string ReadAttr(const std::string& name, const std::string& defaultValue = {}) const override;

private:
    std::map<std::string, std::string> attributes_;
};

class CFuncManager {
public:
    using Factory = std::function<std::unique_ptr<IFuncItem>()>;

    // False for an empty factory or a name that is taken.
    bool Register(const std::string& name, Factory factory);
    bool Has(const std::string& name) const;
    std::vector<std::string> Names() const;
    // The step of the element's name with the element's attributes; null if unknown.
    std::unique_ptr<IFuncItem> Create(const pugi::xml_node& step) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, Factory> factories_;
};

CFuncManager* GetRootFuncManager();

class CBaseFuncItemCreater {
public:
    // Registers factory under name in manager; node is the step's declaration, unused here.
    static bool InitFuncCreater(CFuncManager* manager, const std::string& name, CFuncManager::Factory factory,
                                const pugi::xml_node& node = {});
};

// Runs the steps of a script element (its child elements, in order) with items looked
// up in source. False at the first failing or unknown step.
bool RunScript(ILocalSource* source, const pugi::xml_node& script, CFuncManager* manager = GetRootFuncManager());
