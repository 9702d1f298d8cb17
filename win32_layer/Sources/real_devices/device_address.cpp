#include "device_address.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace win32_layer {

namespace {

constexpr std::size_t kShownBytes = 31;  // the platform's records hold 32 characters with a zero

/// ALSA's ports often begin with their client's name, which then leaves no room for what
/// tells the ports of one device apart.
std::string WithoutRepeatedClient(const std::string& name) {
    for (std::size_t colon = name.find(':', 1); colon != std::string::npos; colon = name.find(':', colon + 1))
        if (name.compare(colon + 1, colon, name, 0, colon) == 0)
            return name.substr(colon + 1);
    return name;
}

/// Four digits that stay the same from one start to the next and from one build to another,
/// as a standard library's own hash need not: FNV-1a, folded to 16 bits.
std::string Digest(const std::string& name) {
    std::uint32_t hash = 0x811C9DC5;
    for (const char byte : name)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x01000193;
    std::string digits;
    for (int shift = 12; shift >= 0; shift -= 4)
        digits += "0123456789abcdef"[(hash >> 16 ^ hash) >> shift & 0xF];
    return digits;
}

/// Head and tail, since the ports of one device differ at the end; no UTF-8 character is
/// cut in two. Between them a digest of the whole: a device is remembered by what is shown,
/// and two that differ in the middle alone would be taken for each other, the more so as a
/// number behind the second depends on which of them is there.
std::string Shorten(const std::string& name) {
    if (name.size() <= kShownBytes)
        return name;
    const std::string mark = "~" + Digest(name) + "~";
    const auto isWithinCharacter = [&](std::size_t at) {
        return at < name.size() && (static_cast<unsigned char>(name[at]) & 0xC0) == 0x80;
    };
    std::size_t head = (kShownBytes - mark.size()) / 2;
    while (head > 0 && isWithinCharacter(head))
        --head;
    std::size_t tail = name.size() - (kShownBytes - mark.size() - head);
    while (isWithinCharacter(tail))
        ++tail;
    return name.substr(0, head) + mark + name.substr(tail);
}

std::string NameOfAlias(const std::string& alias) {
    const std::size_t behindDriver = alias.find(':') + 1;  // 0 without one
    std::string name = behindDriver < alias.size() ? alias.substr(behindDriver) : alias;
    if (const std::size_t port = name.rfind('/'); port != std::string::npos)
        name[port] = ' ';
    return name;
}

}  // namespace

DeviceAddress DeviceAddress::OfJack(std::string name, std::string alias, std::shared_ptr<JackServer> server) {
    if (!name.starts_with("system:"))
        alias.clear();
    return {DeviceSystem::kJack, std::move(name), std::move(server), std::move(alias)};
}

std::string DeviceAddress::GetDisplayName() const {
    if (!alias.empty())
        return NameOfAlias(alias);
    const auto number = system == DeviceSystem::kAlsa ? name.find_last_not_of("0123456789:") : std::string::npos;
    const bool isNumbered = number != std::string::npos && number + 1 < name.size() && name[number] == ' ';
    return isNumbered ? name.substr(0, number) : name;
}

std::wstring DeviceAddress::GetPlatformName() const {
    // A character for each byte: the engine makes bytes of characters, UTF-8 then again.
    std::wstring platformName;
    for (const char byte : Shorten(WithoutRepeatedClient(GetDisplayName())))
        platformName += static_cast<wchar_t>(static_cast<unsigned char>(byte));
    return platformName;
}

std::string DeviceAddress::GetIdentity() const {
    return (system == DeviceSystem::kAlsa ? "alsa:" : "jack:") + GetDisplayName();
}

}  // namespace win32_layer
