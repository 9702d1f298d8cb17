#pragma once

// The part of the Windows interface that the engine uses, for systems that lack
// it. Names, widths, signatures, constants and results are those of the
// platform's public documentation, so that a source compiled here compiles
// unchanged against the real header, which serves on Windows.

#include <cstdint>

#define CALLBACK
#define WINAPI
#define APIENTRY WINAPI
#define VOID void
#define CONST const
#define WINBASEAPI __attribute__((visibility("default")))

// A distinct type for each kind of handle: passing one for another must not compile.
#define DECLARE_HANDLE(name) \
    struct name##__ {        \
        int unused;          \
    };                       \
    typedef struct name##__* name

typedef char CHAR;
typedef wchar_t WCHAR;
typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
// 32 bits on both; a long of the platform's has 32 bits, one of this system 64.
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef int INT;
typedef unsigned int UINT;
typedef int BOOL;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::uintptr_t DWORD_PTR;
typedef std::uintptr_t UINT_PTR;
typedef std::intptr_t LONG_PTR;

typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef void* PVOID;
typedef void* LPVOID;
typedef UINT* LPUINT;
typedef DWORD* LPDWORD;
typedef void* HANDLE;

static_assert(sizeof(UINT) == 4 && sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(DWORD_PTR) == sizeof(void*));

typedef union _LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#define WAIT_OBJECT_0 0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu

#define ERROR_SUCCESS 0
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_NOT_SUPPORTED 50
#define ERROR_INVALID_PARAMETER 87
#define ERROR_ALREADY_EXISTS 183

#define THREAD_PRIORITY_IDLE (-15)
#define THREAD_PRIORITY_LOWEST (-2)
#define THREAD_PRIORITY_BELOW_NORMAL (-1)
#define THREAD_PRIORITY_NORMAL 0
#define THREAD_PRIORITY_ABOVE_NORMAL 1
#define THREAD_PRIORITY_HIGHEST 2
#define THREAD_PRIORITY_TIME_CRITICAL 15
#define THREAD_PRIORITY_ERROR_RETURN 0x7FFFFFFF

typedef void(CALLBACK* PTIMERAPCROUTINE)(LPVOID argument, DWORD timerLow, DWORD timerHigh);

extern "C" {

WINBASEAPI DWORD WINAPI GetLastError();
WINBASEAPI void WINAPI SetLastError(DWORD code);

WINBASEAPI HANDLE WINAPI GetCurrentThread();
// TRUE for every level that the platform grants to everyone, also where this
// system lets only privileged users raise a thread: the level then stays as it
// was, which GetThreadPriority tells.
WINBASEAPI BOOL WINAPI SetThreadPriority(HANDLE thread, int priority);
WINBASEAPI int WINAPI GetThreadPriority(HANDLE thread);

// A name is shared within the process: a second creation gives another handle to
// the same timer and ERROR_ALREADY_EXISTS.
WINBASEAPI HANDLE WINAPI CreateWaitableTimerW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, LPCWSTR name);
// One shot without a completion routine; others are refused (ERROR_NOT_SUPPORTED).
// dueTime in units of 100 ns: negative counts from now, 0 fires at once, positive
// is a date counted from 1601.
WINBASEAPI BOOL WINAPI SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* dueTime, LONG periodMilliseconds,
                                        PTIMERAPCROUTINE routine, LPVOID argument, BOOL resume);
// A wait keeps its object alive through a CloseHandle and goes on; once nothing
// could end it any more, it fails.
WINBASEAPI DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds);
WINBASEAPI BOOL WINAPI CloseHandle(HANDLE object);

}  // extern "C"
