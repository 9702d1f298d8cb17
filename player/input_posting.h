#pragma once

#include <cstddef>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <string>

#include "player/transport.h"

namespace player {

/// The way from MIDI inputs to the transport, which comes after them and goes before
/// them: what arrives while it is not there is refused.
///
/// Owner:   the program. The inputs go first.
/// Threads: any.
/// Lock:    one of its own, held while a command is posted; before the transport's.
class InputPosting {
public:
    void Open(Transport& transport);
    /// Nothing is posted afterwards.
    void Close();

    std::future<CommandAnswer> Post(const TransportCommand& command);
    /// One that nobody waits for, from a pedal. Where kMostPresses of its kind are still to be
    /// carried out, as behind a trigger that is stuck, it is dropped: the operator's commands
    /// come behind those.
    void PostPress(CommandKind kind);
    /// Whether the song of that cue of show control plays just now.
    bool PlaysSongOf(const std::string& cue) const;

    static constexpr std::size_t kMostPresses = 4;

private:
    std::future<CommandAnswer> PostLocked(const TransportCommand& command);

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    Transport* transport_ = nullptr;
    std::map<CommandKind, std::deque<std::future<CommandAnswer>>> presses_;  // still to be carried out
};

}  // namespace player
