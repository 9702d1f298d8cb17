#include "player/operator_commands.h"

#include <stdexcept>

#include "player/exit_status.h"

namespace player {

namespace {

constexpr char kAbsent[] = "the control socket and its screen are not to be had on this system";

int Refuse() {
    return Complain(kAbsent, kRefused);
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
