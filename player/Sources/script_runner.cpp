#include "player/script_runner.h"

#include <algorithm>
#include <utility>

namespace player {

ScriptRunner::ScriptRunner(Script script, Report report) : script_(std::move(script)), report_(std::move(report)) {}

bool ScriptRunner::IsDue(const ImportedSong& song, std::uint32_t tick) const {
    if (IsFinished())
        return false;
    const BarBeat& at = script_.lines[next_].at;
    const auto& beats = song.song.GetTimeline().GetBarsBeats();
    const auto due = std::partition_point(beats.begin(), beats.end(), [&](const TL::BarsBeats& beat) {
        const auto bar = static_cast<std::uint32_t>(at.bar);
        return beat.bar() < bar || (beat.bar() == bar && beat.beat() < static_cast<std::uint32_t>(at.beat));
    });
    return due != beats.end() && tick >= due->abs_time();
}

void ScriptRunner::RunNext(Transport& transport) {
    const Script::Line& line = script_.lines[next_++];
    const CommandAnswer answer = transport.Post(line.command).get();
    if (!answer.done || !answer.message.empty())
        report_("script: " + line.text + ": " + answer.message);
}

}  // namespace player
