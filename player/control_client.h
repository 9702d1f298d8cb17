#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace player {

/// The other end of a control server's socket.
///
/// Owner:   one user of it; not copied.
/// Threads: one at a time.
/// Errors:  ControlClient::Unreachable, with one line, where no player listens.
class ControlClient {
public:
    class Unreachable : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    explicit ControlClient(const std::string& path);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    /// One line, without its end. False when the player has gone or takes nothing.
    bool Send(std::string_view line);
    /// The next line that is there or comes in time, without its end. Nothing also when
    /// the player has gone: IsOpen() tells.
    std::optional<std::string> Receive(std::chrono::milliseconds atMost);
    bool IsOpen() const { return isOpen_; }
    /// For poll(): readable when there is something to receive.
    int GetHandle() const { return handle_; }

private:
    const int handle_;
    bool isOpen_ = true;
    std::string received_;
};

}  // namespace player
