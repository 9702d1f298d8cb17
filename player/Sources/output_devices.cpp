#include "player/output_devices.h"

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <stdexcept>

#include "midi/win32/device_diagnostics.h"
#include "player/device_choice.h"

namespace player {

std::vector<std::string> OutputDevices::GetNames() {
    std::vector<std::string> names;
    for (UINT index = 0; index < midiOutGetNumDevs(); ++index) {
        MIDIOUTCAPSW capabilities = {};
        const bool valid = midiOutGetDevCapsW(index, &capabilities, sizeof(capabilities)) == MMSYSERR_NOERROR;
        names.push_back(valid ? GetProductName(capabilities) : std::string());
    }
    return names;
}

std::string OutputDevices::Select(const std::string& wanted) {
    const std::vector<std::string> names = GetNames();
    if (names.empty())
        throw std::invalid_argument("There are no available devices for midi output.");
    return std::to_string(ChooseDevice("output", wanted, names));
}

}  // namespace player
