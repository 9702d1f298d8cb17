#include "zell/log_filter.h"

#include <utility>

#include "zell/callback_slot.h"
#include "zell/format.h"

namespace zell {

namespace {

// Never destroyed: engine threads may report while the process ends.
CallbackSlot<const LogEntry&>& ListenerSlot() {
    static auto& slot = *new CallbackSlot<const LogEntry&>;
    return slot;
}

}  // namespace

void LogFilter(LogKind kind, const char* file, int line, const char* description, bool flag) noexcept {
    try {
        ListenerSlot().Call({kind, file, line, description, flag});
    } catch (...) {  // a listener's trouble is not the clock's
    }
}

LogListener SetLogListener(LogListener listener) {
    return ListenerSlot().Replace(std::move(listener));
}

std::string CreateFailureMessage(const std::string& file, int line, const std::string& description,
                                 const std::string& detail) {
    const std::string message = format("%s line %d: %s failed", file, line, description);
    return detail.empty() ? message + "." : message + ": " + detail;
}

}  // namespace zell
