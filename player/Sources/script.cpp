#include "player/script.h"

#include <sstream>
#include <stdexcept>

namespace player {

Script Script::Parse(const std::string& text, const std::string& name) {
    Script script;
    std::istringstream input(text);
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        std::istringstream words(line);
        std::string at, place;
        if (!(words >> at) || at.front() == '#')
            continue;
        try {
            if (at != "at" || !(words >> place))
                throw std::invalid_argument("a line is: at BAR:BEAT COMMAND");
            std::string command;
            std::getline(words >> std::ws, command);
            script.lines.push_back({ParseBarBeat(place), ParseCommand(command), command});
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(name + ": line " + std::to_string(number) + ": " + error.what());
        }
    }
    return script;
}

}  // namespace player
