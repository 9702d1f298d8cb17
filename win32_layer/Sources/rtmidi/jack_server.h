#pragma once

#include <jack/jack.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace win32_layer {

/// A connection to the JACK server beside those that play: it tells what RtMidi does not,
/// whether the server lives, its cycles and its ports by name.
///
/// Owner:   whoever looks for devices, and every open device on that server. The library
///          keeps one picture of the server for all clients of a process, and a client of a
///          dead server makes it deal with that one for ever: the last one has to be closed
///          before the server is looked for again.
/// Threads: Connect() on one thread; the rest on any. Connect(), and giving up the last
///          owner, wait for the server, for ever if it hangs.
/// Lock:    mutex_, a leaf.
class JackServer {
public:
    /// Null where no server runs, or clients of an earlier one are still closing.
    static std::shared_ptr<JackServer> Connect();
    ~JackServer();
    /// Whether a client of this process is open, or closing: a server may wait for one that
    /// ends without farewell.
    static bool IsInUse() { return isInUse_; }
    JackServer(const JackServer&) = delete;
    JackServer& operator=(const JackServer&) = delete;

    /// False once the server has gone.
    bool IsRunning() const { return isRunning_; }
    /// Stand still while the server hangs.
    std::uint64_t GetCycles() const { return cycles_; }
    /// MIDI ports, in the server's order. flags: as the library has them.
    std::vector<std::string> GetPorts(unsigned long flags) const;
    bool HasPort(const std::string& name) const;
    /// The first other name of that port; empty where it has none, or has gone.
    std::string GetAlias(const std::string& name) const;
    /// Names of ports that have gone since the last call, of whatever kind, even if they are
    /// back: one that is has lost its connections.
    std::vector<std::string> TakeGonePorts();

    /// Ports of our other clients. The server may throw one out for being late, and
    /// tells nobody.
    void Watch(const std::string& ownPort);
    void Forget(const std::string& ownPort);
    bool HasEveryWatchedPort() const;

private:
    JackServer() = default;
    static int OnCycle(jack_nframes_t frames, void* server);
    static void OnShutdown(void* server);
    static void OnRegistration(jack_port_id_t port, int isNew, void* server);

    /// Between the opening of the first and the closing of the last client.
    static std::atomic<bool> isInUse_;

    jack_client_t* client_ = nullptr;
    std::atomic<bool> isRunning_{true};
    std::atomic<std::uint64_t> cycles_{0};
    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<std::string> watched_;
    std::vector<std::string> gone_;
};

}  // namespace win32_layer
