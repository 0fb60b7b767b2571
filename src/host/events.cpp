#include "host/events.h"

#include "host/base_ctr.h"

#include <algorithm>

void EventTable::Register(const std::string& name, const std::string& signature) {
    std::lock_guard lock(mutex_);
    for (auto& entry : registered_) {
        if (entry.first == name) {
            entry.second = signature;
            return;
        }
    }
    registered_.emplace_back(name, signature);
}

std::vector<std::string> EventTable::RegisteredNames() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& entry : registered_) names.push_back(entry.first);
    return names;
}

std::string EventTable::Signature(const std::string& name) const {
    std::lock_guard lock(mutex_);
    for (const auto& entry : registered_)
        if (entry.first == name) return entry.second;
    return {};
}

bool EventTable::Subscribe(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras) {
    if (!handler) return false;
    std::lock_guard lock(mutex_);
    subscriptions_.push_back({name, std::move(handler), extras});
    return true;
}

bool EventTable::Replace(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras) {
    if (!handler) return false;
    std::lock_guard lock(mutex_);
    std::erase_if(subscriptions_, [&](const Subscription& s) { return s.name == name; });
    subscriptions_.push_back({name, std::move(handler), extras});
    return true;
}

bool EventTable::Remove(const std::string& name, const EventHandlerPtr& handler) {
    std::lock_guard lock(mutex_);
    return std::erase_if(subscriptions_,
                         [&](const Subscription& s) { return s.name == name && s.handler == handler; }) > 0;
}

std::size_t EventTable::SubscriberCount(const std::string& name) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(subscriptions_.begin(), subscriptions_.end(), [&](const auto& s) { return s.name == name; }));
}

std::size_t EventTable::Fire(IBaseCtr* item, const std::string& name) {
    std::vector<EventHandlerPtr> handlers;
    {
        std::lock_guard lock(mutex_);
        if (silent_) return 0;
        for (const auto& s : subscriptions_)
            if (s.name == name) handlers.push_back(s.handler);
        std::erase_if(subscriptions_, [&](const Subscription& s) { return s.name == name && s.extras.once; });
    }
    for (const auto& handler : handlers) (*handler)(item);
    return handlers.size();
}

void EventTable::SetSilent(bool silent) {
    std::lock_guard lock(mutex_);
    silent_ = silent;
}

bool EventTable::IsSilent() const {
    std::lock_guard lock(mutex_);
    return silent_;
}

namespace {
// The args of the innermost event being delivered on this thread. A plain pointer, so
// that events fired while the process ends never touch a destroyed thread object.
thread_local const std::string* current_args = nullptr;
const std::string kNoArgs;
}  // namespace

void EventPublishHelper::FireObjectEvent(IBaseCtr* item, const std::string& name, const std::string& args) {
    if (item == nullptr) return;
    struct Restore {
        const std::string* previous;
        ~Restore() { current_args = previous; }
    } restore{current_args};
    current_args = &args;
    item->Events().Fire(item, name);
}

void EventPublishHelper::SetSilenceMode(IBaseCtr* item, bool silent) {
    if (item) item->Events().SetSilent(silent);
}

bool EventPublishHelper::IsSilent(IBaseCtr* item) { return item && item->Events().IsSilent(); }

const std::string& EventPublishHelper::CurrentArgs() {
    return current_args ? *current_args : kNoArgs;
}
