#pragma once
// Synchronous, string-named events of items.
//
// A handler is a shared FixSignatureFunction<void, IBaseCtr*>; it is called with the
// item that fires. Handlers run on the firing thread, in the order they subscribed,
// before FireObjectEvent returns. The handler list is copied before the calls, so a
// handler may subscribe or unsubscribe (itself included) while it runs. An event
// without subscribers does nothing. Registration of an event name only declares it
// (for GetEventNames); firing and subscribing work for any name.

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

class IBaseCtr;

template <class R, class... Args>
class FixSignatureFunction {
public:
    explicit FixSignatureFunction(std::function<R(Args...)> function) : function_(std::move(function)) {}
    R operator()(Args... args) const { return function_(std::forward<Args>(args)...); }

private:
    std::function<R(Args...)> function_;
};

using EventHandler = FixSignatureFunction<void, IBaseCtr*>;
using EventHandlerPtr = std::shared_ptr<EventHandler>;

inline EventHandlerPtr MakeEventHandler(std::function<void(IBaseCtr*)> function) {
    return std::make_shared<EventHandler>(std::move(function));
}

// Options of a subscription. once: the handler is removed before its first call.
struct SubscribeExtras {
    bool once = false;
};

// The events of one item: declared names and subscriptions. Thread-safe.
class EventTable {
public:
    void Register(const std::string& name, const std::string& signature);
    std::vector<std::string> RegisteredNames() const;
    // The signature given at registration; empty for an unregistered name.
    std::string Signature(const std::string& name) const;

    bool Subscribe(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras);
    // Removes every other handler of the event, then subscribes this one.
    bool Replace(const std::string& name, EventHandlerPtr handler, const SubscribeExtras& extras);
    // False when the handler was not subscribed to the event.
    bool Remove(const std::string& name, const EventHandlerPtr& handler);
    std::size_t SubscriberCount(const std::string& name) const;

    // Calls the handlers of name with item; returns how many were called.
    std::size_t Fire(IBaseCtr* item, const std::string& name);

    void SetSilent(bool silent);
    bool IsSilent() const;

private:
    struct Subscription {
        std::string name;
        EventHandlerPtr handler;
        SubscribeExtras extras;
    };
    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, std::string>> registered_;
    std::vector<Subscription> subscriptions_;
    bool silent_ = false;
};

class EventPublishHelper {
public:
    // Calls all handlers of name on item, synchronously. args is readable by the
    // handlers through CurrentArgs() while they run. Nothing happens for a null item
    // or an item in silence mode.
    static void FireObjectEvent(IBaseCtr* item, const std::string& name, const std::string& args = {});
    // Silence mode: while on, the item fires no events at all.
    static void SetSilenceMode(IBaseCtr* item, bool silent);
    static bool IsSilent(IBaseCtr* item);
    // The args of the event that the calling thread is delivering; empty outside one.
    static const std::string& CurrentArgs();
};
