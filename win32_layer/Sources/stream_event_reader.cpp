#include "stream_event_reader.h"

#include <cstring>

#include "message_bytes.h"

namespace win32_layer {

namespace {

constexpr std::size_t kShortEventBytes = 3 * sizeof(DWORD);

}  // namespace

StreamEventReader::StreamEventReader(const void* data, std::size_t bytes)
    : data_(static_cast<const std::uint8_t*>(data)), bytes_(bytes) {}

std::optional<StreamEventReader::Event> StreamEventReader::Next() {
    if (bytes_ - offset_ < kShortEventBytes)
        return std::nullopt;
    DWORD code = 0;  // copied: nobody promises that the data is aligned
    std::memcpy(&code, data_ + offset_ + 2 * sizeof(DWORD), sizeof(code));

    Event event;
    event.offset = static_cast<DWORD>(offset_);
    event.wantsCallback = (code & MEVT_F_CALLBACK) != 0;
    const BYTE type = MEVT_EVENTTYPE(code & ~MEVT_F_CALLBACK);
    std::size_t eventBytes = kShortEventBytes;
    if (code & MEVT_F_LONG) {
        const std::size_t length = MEVT_EVENTPARM(code);
        eventBytes += (length + 3) / 4 * 4;
        if (eventBytes > bytes_ - offset_)
            return std::nullopt;
        if (type == MEVT_LONGMSG) {
            event.message = data_ + offset_ + kShortEventBytes;
            event.messageBytes = length;
        }
    } else if (type == MEVT_SHORTMSG) {
        shortMessage_ = {static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(code >> 8),
                         static_cast<std::uint8_t>(code >> 16)};
        event.message = shortMessage_.data();
        event.messageBytes = GetMessageBytes(shortMessage_[0]);
    }
    offset_ += eventBytes;
    return event;
}

}  // namespace win32_layer
