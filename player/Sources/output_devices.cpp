#include "player/output_devices.h"

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <iterator>
#include <stdexcept>
#include <string_view>

#include "midi/win32/device_diagnostics.h"
#include "player/device_choice.h"
#include "player/device_name.h"

namespace player {

std::vector<std::string> OutputDevices::GetNames() {
    std::vector<std::string> names;
    for (UINT index = 0; index < midiOutGetNumDevs(); ++index) {
        MIDIOUTCAPSW capabilities = {};
        const bool valid = midiOutGetDevCapsW(index, &capabilities, sizeof(capabilities)) == MMSYSERR_NOERROR;
        names.push_back(valid ? DeviceName({capabilities.szPname, std::size(capabilities.szPname)}) : std::string());
    }
    return names;
}

std::string OutputDevices::Describe() {
    constexpr std::string_view kNameLabel = "  Product Name: ";
    std::string text = CreateMidiDeviceSummary();
    std::size_t at = 0;
    // The engine's own are narrowed to a byte for each character.
    for (const std::string& name : GetNames()) {
        if (name.empty())
            continue;
        at = text.find(kNameLabel, at);
        if (at == std::string::npos)
            break;
        at += kNameLabel.size();
        text.replace(at, text.find('\n', at) - at, name);
    }
    return text;
}

std::string OutputDevices::Select(const std::string& wanted) {
    const std::vector<std::string> names = GetNames();
    if (names.empty())
        throw std::invalid_argument("There are no available devices for midi output.");
    return std::to_string(ChooseDevice("output", wanted, names));
}

}  // namespace player
