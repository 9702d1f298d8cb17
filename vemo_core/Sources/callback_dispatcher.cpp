#include "vemo_core/callback_dispatcher.h"

#include <exception>
#include <utility>

#include "vemo_core/exception_log.h"

namespace notify {

CallbackDispatcher::CallbackDispatcher() : receivers_(std::make_shared<Receivers>()) {}
CallbackDispatcher::~CallbackDispatcher() = default;

void CallbackDispatcher::AddCallback(std::string_view name, const void* target, Callback callback) {
    const auto receiver = std::make_shared<Receiver>();
    receiver->name = name;
    receiver->target = target;
    receiver->callback = std::move(callback);
    const std::lock_guard lock(mutex_);
    auto changed = std::make_shared<Receivers>(*receivers_);
    changed->push_back(receiver);
    receivers_ = std::move(changed);
}

void CallbackDispatcher::RemoveCallbacksForTarget(const void* target) {
    std::shared_ptr<const Receivers> before;  // what a callback owns is destroyed after the lock
    const std::lock_guard lock(mutex_);
    auto changed = std::make_shared<Receivers>();
    for (const auto& receiver : *receivers_) {
        if (receiver->target == target)
            receiver->removed = true;
        else
            changed->push_back(receiver);
    }
    before = std::exchange(receivers_, std::move(changed));
}

void CallbackDispatcher::Notify(std::string_view name, const void* payload) {
    std::shared_ptr<const Receivers> receivers;
    {
        const std::lock_guard lock(mutex_);
        receivers = receivers_;
    }
    for (const auto& receiver : *receivers) {
        if (receiver->name != name || receiver->removed)
            continue;
        try {
            receiver->callback(payload);
        } catch (const std::exception& error) {
            VemoLogException(error.what(), "vemo_core/Sources/callback_dispatcher", __LINE__);
        } catch (...) {
            VemoLogException("Unknown exception.", "vemo_core/Sources/callback_dispatcher", __LINE__);
        }
    }
}

CallbackDispatcher& callbackDispatcher = *new CallbackDispatcher;

}  // namespace notify
