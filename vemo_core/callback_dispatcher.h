#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "vemo_core/notify_names.h"
#include "vemo_core/vemo_core_export.h"

namespace notify {

/// Carries the engine's messages to whoever registered for them.
///
/// Owner:   the process; see callbackDispatcher.
/// Threads: any. A message is delivered on the notifying thread, in the order
///          of registration, before Notify() returns. After
///          RemoveCallbacksForTarget() no call of that target begins; one that
///          runs on another thread may still be running.
/// Lock:    mutex_, held while the receivers are copied, never while they run.
/// Errors:  none leave Notify(): what a receiver throws is logged, and the
///          others are still called.
class VEMO_CORE_EXPORT CallbackDispatcher {
public:
    using Callback = std::function<void(const void* payload)>;

    CallbackDispatcher();
    ~CallbackDispatcher();
    /// target only names the receiver, for its removal.
    void AddCallback(std::string_view name, const void* target, Callback callback);
    void RemoveCallbacksForTarget(const void* target);
    void Notify(std::string_view name, const void* payload = nullptr);

private:
    struct Receiver {
        std::string name;
        const void* target;
        Callback callback;
        std::atomic<bool> removed = false;  // seen by a Notify() that has copied the receivers
    };
    using Receivers = std::vector<std::shared_ptr<Receiver>>;

    std::mutex mutex_;
    std::shared_ptr<const Receivers> receivers_;  // replaced as a whole
};

/// Never destroyed: engine threads may notify while the process ends.
VEMO_CORE_EXPORT extern CallbackDispatcher& callbackDispatcher;

}  // namespace notify
