#include "zell/stack_trace.h"

#include <windows.h>

#include <string>

#include "zell/cout_buffer.h"

namespace zell {

namespace {

/// The module and the offset in it: what a map file or a debugger turns into a name.
std::string Describe(void* address) {
    HMODULE module = nullptr;
    char file[MAX_PATH] = "?";
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           static_cast<const char*>(address), &module))
        GetModuleFileNameA(module, file, sizeof file);
    return std::string(file) + "+" +
           std::to_string(reinterpret_cast<UINT_PTR>(address) - reinterpret_cast<UINT_PTR>(module));
}

}  // namespace

void PrintStackTrace(int depth) {
    constexpr int kMostFrames = 62;  // older systems capture no more
    if (depth < 1)
        return;
    void* addresses[kMostFrames];
    const ULONG wanted = static_cast<ULONG>(depth < kMostFrames ? depth : kMostFrames);
    const USHORT count = CaptureStackBackTrace(1, wanted, addresses, nullptr);
    CoutBuffer out;
    out << "Stack trace:" << endl;
    for (USHORT frame = 0; frame < count; ++frame)
        out << "  " << frame << " " << addresses[frame] << " " << Describe(addresses[frame]) << endl;
}

}  // namespace zell
