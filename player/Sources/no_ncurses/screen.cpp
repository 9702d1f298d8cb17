#include "player/screen.h"

namespace player {

bool Screen::IsAvailable() {
    return false;
}

Screen::End Screen::Run(const std::string&) {
    return End::kNoTerminal;
}

}  // namespace player
