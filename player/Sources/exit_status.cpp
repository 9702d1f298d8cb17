#include "player/exit_status.h"

#include <cstdio>

namespace player {

void Complain(const std::string& message) {
    std::fprintf(stderr, "vemo_player: %s\n", message.c_str());
}

int Complain(const std::string& message, int status) {
    Complain(message);
    return status;
}

}  // namespace player
