#include "player/device_choice.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "player/display_text.h"

namespace player {

std::size_t ChooseDevice(const std::string& kind, const std::string& wanted, const std::vector<std::string>& names,
                         const std::function<bool(std::size_t index)>& isLost) {
    const auto found = std::find(names.begin(), names.end(), wanted);
    std::size_t index = static_cast<std::size_t>(found - names.begin());
    if (found == names.end()) {
        const auto parsed = std::from_chars(wanted.data(), wanted.data() + wanted.size(), index);
        if (parsed.ec != std::errc() || parsed.ptr != wanted.data() + wanted.size())
            index = names.size();
    }
    if (index < names.size())
        return index;
    std::string all;
    for (std::size_t device = 0; device < names.size(); ++device)
        if (!isLost || !isLost(device))
            all += (all.empty() ? "'" : ", '") + names[device] + "'";
    throw std::invalid_argument("no " + kind + " device '" + DisplayText(wanted) + "'; there are " +
                                (all.empty() ? "none" : all));
}

}  // namespace player
