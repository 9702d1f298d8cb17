#include "zell/cout_buffer.h"

#include <locale>
#include <utility>

#include "zell/Sources/console.h"
#include "zell/callback_slot.h"

namespace zell {

namespace {

// Never destroyed: engine threads may report while the process ends.
CallbackSlot<const std::string&>& SinkSlot() {
    static auto& slot = *new CallbackSlot<const std::string&>;
    return slot;
}

}  // namespace

CoutBuffer::CoutBuffer() noexcept {
    // A host with a locale of its own would otherwise group the digits of ticks.
    text_.imbue(std::locale::classic());
}

CoutBuffer::~CoutBuffer() {
    try {
        std::string text = std::move(text_).str();
        if (!text.empty() && !SinkSlot().Call(text))
            Console::Get().Write(std::move(text));
    } catch (...) {  // a report that cannot be made is no reason to stop the music
    }
}

CoutBuffer& CoutBuffer::operator<<(std::ostream& (*manipulator)(std::ostream&)) noexcept {
    try {
        manipulator(text_);
    } catch (...) {  // as for a value
    }
    return *this;
}

CoutBuffer& CoutBuffer::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) noexcept {
    manipulator(text_);
    return *this;
}

CoutBuffer::Sink CoutBuffer::SetSink(Sink sink) {
    return SinkSlot().Replace(std::move(sink));
}

bool CoutBuffer::Flush(std::chrono::milliseconds patience) {
    return Console::Get().Flush(patience);
}

std::uint64_t CoutBuffer::GetDroppedCount() {
    return Console::Get().GetDroppedCount();
}

}  // namespace zell
