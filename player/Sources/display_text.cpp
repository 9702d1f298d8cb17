#include "player/display_text.h"

#include <cstddef>

namespace player {

namespace {

unsigned char ByteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

/// Bytes of the UTF-8 character at index; 0 where there is none, as for overlong
/// forms, surrogates and numbers beyond the last character.
std::size_t CharacterLength(std::string_view text, std::size_t index) {
    const unsigned char first = ByteAt(text, index);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xF5 ? 0 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    for (std::size_t next = 1; next < length; ++next)
        if ((ByteAt(text, index + next) & 0xC0) != 0x80)
            return 0;
    const unsigned char second = ByteAt(text, index + 1);
    const bool bad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return bad ? 0 : length;
}

bool IsUtf8(std::string_view text) {
    for (std::size_t index = 0; index < text.size();) {
        const std::size_t length = CharacterLength(text, index);
        if (length == 0)
            return false;
        index += length;
    }
    return true;
}

bool IsControl(unsigned int character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

}  // namespace

std::string DisplayText(std::string_view text) {
    const bool utf8 = IsUtf8(text);
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        const unsigned char byte = ByteAt(text, index);
        const std::size_t length = utf8 ? CharacterLength(text, index) : 1;
        const bool control =
            length == 2 ? byte == 0xC2 && IsControl(ByteAt(text, index + 1)) : length == 1 && IsControl(byte);
        if (control) {
            shown += ' ';
        } else if (!utf8 && byte >= 0x80) {
            shown += static_cast<char>(0xC0 | byte >> 6);
            shown += static_cast<char>(0x80 | (byte & 0x3F));
        } else {
            shown += text.substr(index, length);
        }
        index += length;
    }
    const std::size_t begin = shown.find_first_not_of(' ');
    return begin == std::string::npos ? "" : shown.substr(begin, shown.find_last_not_of(' ') + 1 - begin);
}

}  // namespace player
