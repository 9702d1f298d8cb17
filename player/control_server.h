#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "player/activity_meter.h"
#include "player/playback_feed.h"
#include "player/transport.h"

namespace player {

/// Lets the operator's screen, scripts and other programs of this user steer a running
/// show: a local socket with one command a line, each answered by one JSON line, in the
/// order of each client's lines. No client waits for another one's command; a client
/// that does not read is disconnected. docs/playing-a-show.md is its reference.
///
/// Owner:   the program. The transport, the feed and the meter outlive it.
/// Threads: one of its own, which the music never waits for.
/// Lock:    none; it is woken through a pipe.
/// Errors:  ControlServer::Refused where the socket is not to be had, with one line.
///          What a client does wrong concerns that client alone.
class ControlServer {
public:
    class Refused : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    static constexpr std::size_t kLongestLine = 4096;
    static constexpr std::size_t kMostClients = 16;

    struct Settings {
        /// A socket file that a dead player has left is replaced; one that is listened
        /// at, or that is no socket, is refused.
        std::string path;
        std::string deviceName;
        /// A client has asked to quit, and that is granted. On the server's thread; must
        /// only post.
        std::function<void()> quit;
        /// Null: nothing is known of single channels.
        const ActivityMeter* activity = nullptr;
        /// Whether the device is unplugged, on the server's thread; empty: it never is.
        std::function<bool()> deviceIsLost{};
    };

    ControlServer(Settings settings, Transport& transport, PlaybackFeed& feed);
    /// Sends what is answered already, for half a second at most, and removes the socket.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    class Loop;
    const std::unique_ptr<Loop> loop_;
};

}  // namespace player
