#pragma once

#include <future>
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
    /// Whether the song of that cue of show control plays just now.
    bool PlaysSongOf(const std::string& cue) const;

private:
    mutable std::mutex mutex_;
    Transport* transport_ = nullptr;  // guarded by mutex_
};

}  // namespace player
