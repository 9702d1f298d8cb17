#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace win32_layer {

/// The waitable timers and their handles.
///
/// Owner:   the process; Instance(). A timer lives as long as a handle names it
///          or a thread waits for it.
/// Threads: any.
/// Lock:    mutex_, a leaf.
/// Errors:  DWORD results are codes of GetLastError(), 0 for success.
class WaitableTimers {
public:
    struct Created {
        HANDLE handle;
        bool existed;
    };

    static WaitableTimers& Instance();

    /// An empty name is no name.
    Created Create(bool manualReset, const std::wstring& name);
    DWORD Set(HANDLE handle, LONGLONG dueTime);
    /// WAIT_FAILED for an unknown handle and for a wait that nothing can end any
    /// more, because the last handle was closed with the timer at rest.
    DWORD Wait(HANDLE handle, DWORD milliseconds);
    DWORD Close(HANDLE handle);

private:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr Time kNever = Time::max();

    struct Timer {
        bool manualReset = false;
        std::wstring name;
        int handles = 0;
        Time due = kNever;  // signalled from then on, until set anew or (unless manual) waited for
        std::condition_variable changed;
    };

    std::shared_ptr<Timer> Find(HANDLE handle) const;

    std::mutex mutex_;
    std::map<HANDLE, std::shared_ptr<Timer>> timers_;
    DWORD_PTR lastHandle_ = 0x100;
};

}  // namespace win32_layer
