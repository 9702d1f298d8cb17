#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace zell {

/// One callback that is replaced while other threads call it: where messages,
/// log entries and exceptions go.
///
/// Owner:   whoever offers the callback.
/// Threads: any. The callback runs on the calling thread, on several at once
///          where several call; it may itself replace the callback.
/// Lock:    mutex_, a leaf, not held while the callback runs.
/// Errors:  what the callback throws passes through Call().
template <class... Arguments>
class CallbackSlot {
public:
    using Callback = std::function<void(Arguments...)>;

    /// Returns the callback before, which by then runs on no other thread, so
    /// that what it refers to may be destroyed. Never called with a lock held
    /// that the callback takes.
    Callback Replace(Callback next) {
        auto entry = next ? std::make_shared<Entry>(std::move(next)) : nullptr;
        std::unique_lock lock(mutex_);
        entry_.swap(entry);
        occupied_.store(entry_ != nullptr, std::memory_order_release);
        if (!entry)
            return {};
        const auto self = std::this_thread::get_id();
        ended_.wait(lock, [&] { return std::ranges::count(entry->callers, self) == std::ssize(entry->callers); });
        return entry->callback;
    }

    /// False when the slot is empty, which costs one atomic load.
    bool Call(Arguments... arguments) {
        if (!occupied_.load(std::memory_order_acquire))
            return false;
        const Running running(*this);
        if (!running.entry)
            return false;
        running.entry->callback(arguments...);
        return true;
    }

private:
    struct Entry {
        explicit Entry(Callback function) : callback(std::move(function)) {}
        const Callback callback;
        std::vector<std::thread::id> callers;  // under mutex_
    };

    struct Running {
        explicit Running(CallbackSlot& owner) : slot(owner) {
            const std::lock_guard lock(slot.mutex_);
            if (slot.entry_)
                slot.entry_->callers.push_back(std::this_thread::get_id());
            entry = slot.entry_;
        }
        ~Running() {
            if (!entry)
                return;
            const std::lock_guard lock(slot.mutex_);
            entry->callers.erase(std::ranges::find(entry->callers, std::this_thread::get_id()));
            slot.ended_.notify_all();
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

        CallbackSlot& slot;
        std::shared_ptr<Entry> entry;
    };

    std::mutex mutex_;
    std::condition_variable ended_;
    std::shared_ptr<Entry> entry_;        // under mutex_
    std::atomic<bool> occupied_ = false;  // written under mutex_; a hint for readers without it
};

}  // namespace zell
