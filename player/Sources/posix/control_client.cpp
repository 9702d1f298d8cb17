#include "player/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace player {

namespace {

int Connect(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw ControlClient::Unreachable("'" + path + "' is no path for a socket: it has at most " +
                                         std::to_string(sizeof address.sun_path - 1) + " bytes");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int handle = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle < 0)
        throw ControlClient::Unreachable(std::string("no socket is to be had: ") + std::strerror(errno));
    if (connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(handle);
        throw ControlClient::Unreachable("no player listens at " + path + " (" + std::strerror(error) + ")");
    }
    return handle;
}

}  // namespace

ControlClient::ControlClient(const std::string& path) : handle_(Connect(path)) {}

ControlClient::~ControlClient() {
    close(handle_);
}

bool ControlClient::Send(std::string_view line) {
    const std::string text = std::string(line) + "\n";
    // A command is far smaller than the socket's buffer: what does not fit at once is
    // for a player that takes nothing.
    if (send(handle_, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(text.size()))
        isOpen_ = false;
    return isOpen_;
}

std::optional<std::string> ControlClient::Receive(std::chrono::milliseconds atMost) {
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    for (;;) {
        if (const auto end = received_.find('\n'); end != std::string::npos) {
            std::string line = received_.substr(0, end);
            received_.erase(0, end + 1);
            return line;
        }
        if (!isOpen_)
            return std::nullopt;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting = {handle_, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return std::nullopt;
        char bytes[16384];
        const ssize_t count = recv(handle_, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count > 0)
            received_.append(bytes, static_cast<std::size_t>(count));
        else if (count == 0 || (errno != EAGAIN && errno != EINTR))
            isOpen_ = false;
    }
}

}  // namespace player
