#include <windows.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>

#include "faults.h"

using win32_layer::Fault;
using win32_layer::Faults;

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;
thread_local int priorityInForce = THREAD_PRIORITY_NORMAL;

// The platform's levels as nice values around the process's own.
bool GetNiceValue(int priority, int& nice) {
    switch (priority) {
        case THREAD_PRIORITY_IDLE: nice = 19; return true;
        case THREAD_PRIORITY_LOWEST: nice = 10; return true;
        case THREAD_PRIORITY_BELOW_NORMAL: nice = 5; return true;
        case THREAD_PRIORITY_NORMAL: nice = 0; return true;
        case THREAD_PRIORITY_ABOVE_NORMAL: nice = -5; return true;
        case THREAD_PRIORITY_HIGHEST: nice = -10; return true;
        case THREAD_PRIORITY_TIME_CRITICAL: nice = -19; return true;
        default: return false;
    }
}

}  // namespace

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD code) {
    lastError = code;
}

// The platform's constant for it, valid in every thread and never closed.
HANDLE GetCurrentThread() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

BOOL SetThreadPriority(HANDLE thread, int priority) {
    if (const auto code = Faults::Instance().Take(Fault::kThreadPriority)) {
        SetLastError(*code);
        return FALSE;
    }
    if (thread != GetCurrentThread()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    int nice = 0;
    if (!GetNiceValue(priority, nice)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // The platform grants these levels to everyone, and its callers warn when they
    // are refused. Here a plain user may not raise a thread at all: a warning at
    // every start would be about what nobody can change, so the request counts as
    // accepted, and GetThreadPriority tells what is in force.
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice) == 0)
        priorityInForce = priority;
    return TRUE;
}

int GetThreadPriority(HANDLE thread) {
    if (thread == GetCurrentThread())
        return priorityInForce;
    SetLastError(ERROR_INVALID_HANDLE);
    return THREAD_PRIORITY_ERROR_RETURN;
}
