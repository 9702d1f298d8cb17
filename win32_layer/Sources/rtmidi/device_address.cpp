#include "device_address.h"

namespace win32_layer {

std::string DeviceAddress::GetDisplayName() const {
    const auto number = api == RtMidi::LINUX_ALSA ? name.find_last_not_of("0123456789:") : std::string::npos;
    const bool isNumbered = number != std::string::npos && number + 1 < name.size() && name[number] == ' ';
    return isNumbered ? name.substr(0, number) : name;
}

std::wstring DeviceAddress::GetPlatformName() const {
    // A character for each byte: the engine makes bytes of characters, UTF-8 then again.
    std::wstring platformName;
    for (const char byte : GetDisplayName())
        platformName += static_cast<wchar_t>(static_cast<unsigned char>(byte));
    return platformName;
}

std::string DeviceAddress::GetIdentity() const {
    return RtMidi::getApiName(api) + ":" + GetDisplayName();
}

}  // namespace win32_layer
