#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "player/script.h"
#include "player/transport.h"

namespace player {

/// Posts a script's commands when their time has come.
///
/// Owner:   the program; the transport outlives it.
/// Threads: RunDue() on one thread at a time.
/// Lock:    none; it posts and, in virtual time, waits for answers.
class ScriptRunner {
public:
    using Report = std::function<void(const std::string& message)>;

    /// report gets one line for every command that was refused.
    ScriptRunner(Script script, Report report);

    /// Whether the next line's place is reached, the next clock being at tick of the
    /// song.
    bool IsDue(const ImportedSong& song, std::uint32_t tick) const;
    /// Posts the next line and waits for its answer.
    void RunNext(Transport& transport);
    bool IsFinished() const { return next_ >= script_.lines.size(); }

private:
    const Script script_;
    const Report report_;
    std::size_t next_ = 0;
};

}  // namespace player
