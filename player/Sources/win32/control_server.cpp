#include "player/control_server.h"

namespace player {

class ControlServer::Loop {};

ControlServer::ControlServer(Settings, Transport&, PlaybackFeed&) {
    throw Refused("the control socket is not to be had on this system");
}

ControlServer::~ControlServer() = default;

}  // namespace player
