#include "player/operator_commands.h"

#include <cstdio>
#include <stdexcept>

namespace player {

namespace {

constexpr char kAbsent[] = "the control socket and its screen are not to be had on this system";
constexpr int kRefused = 2;

int Refuse() {
    std::fprintf(stderr, "vemo_player: %s\n", kAbsent);
    return kRefused;
}

}  // namespace

bool CanServe() {
    return false;
}

std::string DefaultSocketPath() {
    throw std::runtime_error(kAbsent);
}

bool HasTerminal() {
    return false;
}

void OutliveTerminal() {}

int PlayOnScreen(const std::vector<std::string>&, const std::string&) {
    return Refuse();
}

int Attach(const std::string&) {
    return Refuse();
}

int SendOneCommand(const std::string&, const std::string&) {
    return Refuse();
}

}  // namespace player
