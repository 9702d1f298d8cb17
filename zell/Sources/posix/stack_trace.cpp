#include "zell/stack_trace.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "zell/cout_buffer.h"

namespace zell {

namespace {

std::string Describe(void* address) {
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_sname)
        return info.dli_fname ? info.dli_fname : "?";
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
    return readable ? readable.get() : info.dli_sname;
}

}  // namespace

void PrintStackTrace(int depth) {
    constexpr int kMostFrames = 256;
    if (depth < 1)
        return;
    void* addresses[kMostFrames + 1];
    // One frame more than asked for: the first is this function.
    const int count = backtrace(addresses, (depth < kMostFrames ? depth : kMostFrames) + 1);
    CoutBuffer out;
    out << "Stack trace:" << endl;
    for (int frame = 1; frame < count; ++frame)
        out << "  " << frame - 1 << " " << addresses[frame] << " " << Describe(addresses[frame]) << endl;
}

}  // namespace zell
