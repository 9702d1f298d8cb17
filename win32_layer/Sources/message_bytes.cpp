#include "message_bytes.h"

namespace win32_layer {

std::size_t GetMessageBytes(std::uint8_t status) {
    if (status < 0x80)
        return 0;
    if (status < 0xF0) {
        const std::uint8_t kind = status & 0xF0;
        return kind == 0xC0 || kind == 0xD0 ? 2 : 3;
    }
    switch (status) {
        case 0xF1:
        case 0xF3: return 2;
        case 0xF2: return 3;
        case 0xF0:
        case 0xF4:
        case 0xF5:
        case 0xF7: return 0;
        default: return 1;
    }
}

}  // namespace win32_layer
