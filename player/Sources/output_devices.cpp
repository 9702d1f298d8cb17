#include "player/output_devices.h"

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "midi/win32/device_diagnostics.h"

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
    if (wanted.empty())
        return "0";
    std::size_t index = 0;
    const auto parsed = std::from_chars(wanted.data(), wanted.data() + wanted.size(), index);
    if (parsed.ec != std::errc() || parsed.ptr != wanted.data() + wanted.size())
        index = static_cast<std::size_t>(std::find(names.begin(), names.end(), wanted) - names.begin());
    if (index >= names.size()) {
        std::string all;
        for (const std::string& name : names)
            all += (all.empty() ? "'" : ", '") + name + "'";
        throw std::invalid_argument("no output device '" + wanted + "'; there are " + all);
    }
    return std::to_string(index);
}

}  // namespace player
