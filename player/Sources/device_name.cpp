#include "player/device_name.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "player/display_text.h"

namespace player {

namespace {

bool IsContinuation(wchar_t unit) {
    return (unit & 0xC0) == 0x80;
}

/// Of bytes, without a character at the end whose last bytes are missing.
std::wstring_view WithoutCutCharacter(std::wstring_view bytes) {
    std::size_t begin = bytes.size();
    while (begin > 0 && bytes.size() - begin < 3 && IsContinuation(bytes[begin - 1]))
        --begin;
    if (begin == 0)
        return bytes;
    const wchar_t first = bytes[--begin];
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 1;
    return bytes.size() - begin < length ? bytes.substr(0, begin) : bytes;
}

void AppendUtf8(std::string& text, std::uint32_t character) {
    const auto tail = [character](int shift) { return static_cast<char>(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80)
        text += static_cast<char>(character);
    else if (character < 0x800)
        (text += static_cast<char>(0xC0 | character >> 6)) += tail(0);
    else if (character < 0x10000)
        ((text += static_cast<char>(0xE0 | character >> 12)) += tail(6)) += tail(0);
    else
        (((text += static_cast<char>(0xF0 | character >> 18)) += tail(12)) += tail(6)) += tail(0);
}

/// Half a surrogate pair becomes a question mark.
std::string Utf8Of(std::wstring_view units) {
    const auto unitAt = [units](std::size_t index) {
        return index < units.size() ? static_cast<std::uint32_t>(units[index]) : 0;
    };
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        std::uint32_t character = unitAt(i);
        const std::uint32_t next = unitAt(i + 1);
        if (character >= 0xD800 && character < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
            ++i;
        } else if ((character >= 0xD800 && character < 0xE000) || character > 0x10FFFF) {
            character = '?';
        }
        AppendUtf8(text, character);
    }
    return text;
}

}  // namespace

std::string DeviceName(std::wstring_view field) {
    const std::wstring_view name = field.substr(0, field.find(L'\0'));
    if (std::ranges::any_of(name, [](wchar_t unit) { return static_cast<std::uint32_t>(unit) > 0xFF; }))
        return DisplayText(Utf8Of(name));
    const auto bytesOf = [](std::wstring_view units) {
        std::string bytes;
        for (const wchar_t unit : units)
            bytes += static_cast<char>(unit);
        return bytes;
    };
    // The platform fills all but a zero. What is no UTF-8 is Latin-1, as the first
    // characters of UTF-16 are; shown, it grows.
    const bool isCut = name.size() + 1 >= field.size();
    if (const std::string begun = bytesOf(WithoutCutCharacter(name));
        isCut && DisplayText(begun).size() <= begun.size())
        return DisplayText(begun);
    return DisplayText(bytesOf(name));
}

}  // namespace player
