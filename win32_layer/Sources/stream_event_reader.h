#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace win32_layer {

/// Reads the events of one stream buffer in order. Events that are malformed
/// carry no message; an incomplete last one is left out.
///
/// Owner:   on the stack of whoever plays a buffer; the data outlives it.
/// Threads: one.
/// Lock:    none.
/// Units:   delta times are passed over: every event is played at once.
class StreamEventReader {
public:
    struct Event {
        DWORD offset = 0;  // in the buffer, in bytes
        bool wantsCallback = false;
        const std::uint8_t* message = nullptr;  // valid until the next call of Next()
        std::size_t messageBytes = 0;           // 0: nothing to play
    };

    StreamEventReader(const void* data, std::size_t bytes);
    std::optional<Event> Next();

private:
    const std::uint8_t* const data_;
    const std::size_t bytes_;
    std::size_t offset_ = 0;
    std::array<std::uint8_t, 3> shortMessage_{};
};

}  // namespace win32_layer
