#include "vemo_core/exception_log.h"

#include <utility>

#include "zell/callback_slot.h"
#include "zell/cout_buffer.h"

namespace {

// Never destroyed: engine threads may report while the process ends.
zell::CallbackSlot<const LoggedException&>& SinkSlot() {
    static auto& slot = *new zell::CallbackSlot<const LoggedException&>;
    return slot;
}

}  // namespace

void VemoLogException(const std::string& message, const std::string& sourcePath, int line) noexcept {
    try {
        if (!SinkSlot().Call({message, sourcePath, line}))
            zell::CoutBuffer() << "EXCEPTION " << message << " (" << sourcePath << " line " << line << ")"
                               << zell::endl;
    } catch (...) {  // the log is the last resort; there is nobody left to tell
    }
}

ExceptionLogSink SetExceptionLogSink(ExceptionLogSink sink) {
    return SinkSlot().Replace(std::move(sink));
}
