#include "vemo_core/voice_event.h"

#include "zell/format.h"

namespace vemo_midi {

bool VoiceEvent::IsValidVoiceEvent() const {
    return message.status >= 0x80 && message.status <= 0xEF && message.data1 < 0x80 && message.data2 < 0x80;
}

void VoiceEvent::WriteString(std::ostream& out) const {
    out << zell::format("time=%u status=0x%02X data1=%u data2=%u", time, message.status, message.data1, message.data2);
}

}  // namespace vemo_midi
