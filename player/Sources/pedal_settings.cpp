#include "player/pedal_settings.h"

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "player/atomic_file.h"
#include "player/display_text.h"

namespace player {

using Json = nlohmann::ordered_json;

namespace {

constexpr std::uint64_t kLongestInterval = 60'000;  // milliseconds; as the command takes it

}  // namespace

std::optional<PedalSettings> PedalSettings::Read(const std::filesystem::path& file) {
    std::ifstream input(file, std::ios::binary);
    if (!input) {
        if (std::error_code error; !std::filesystem::exists(file, error))
            return std::nullopt;
        throw std::invalid_argument(DisplayText(file.string()) + ": cannot be read");
    }
    std::ostringstream text;
    text << input.rdbuf();
    try {
        const Json json = Json::parse(text.str());
        PedalSettings settings;
        settings.input = json.at("input").get<std::string>();
        settings.everyValueOf = json.at("everyValueOf").get<std::set<std::string>>();
        for (const auto& [command, interval] : json.at("leastMilliseconds").get<std::map<std::string, Json>>()) {
            if (!interval.is_number_unsigned() || interval.get<std::uint64_t>() > kLongestInterval)
                throw std::invalid_argument(DisplayText(file.string() + ": the time for '" + command) +
                                            "' is no whole number of milliseconds from 0 to " +
                                            std::to_string(kLongestInterval));
            settings.leastIntervals[command] = interval.get<int>();
        }
        return settings;
    } catch (const Json::exception& error) {
        throw std::invalid_argument(DisplayText(file.string()) + ": " + DisplayText(error.what()));
    }
}

void PedalSettings::Write(const std::filesystem::path& file) const {
    const Json json = {{"input", input}, {"everyValueOf", everyValueOf}, {"leastMilliseconds", leastIntervals}};
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    AtomicFile written(file);
    written.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    written.Commit();
}

}  // namespace player
