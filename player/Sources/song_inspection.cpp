#include "player/song_inspection.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "vemo_core/keys.h"
#include "vemo_core/timeline.h"
#include "zell/format.h"

namespace player {

namespace {

std::string Counted(std::size_t count, const char* one, const char* many) {
    return zell::format("%u %s", count, count == 1 ? one : many);
}

class Inspection {
public:
    explicit Inspection(const ImportedSong& song) : song_(song), timeline_(song.song.GetTimeline()) {}

    std::string Text() {
        const ImportSummary& summary = song_.summary;
        const std::uint32_t bars = timeline_.GetBarsBeats().back().bar();
        Line_("%s", song_.title);
        Line_("  file        %s, format %d", summary.fileName, summary.format);
        Line_("  length      %s, %s", Counted(bars, "bar", "bars"), LengthOf(song_));
        const std::string resolution = zell::format("%u ticks a quarter note", song_.song.GetResolution());
        Line_("  resolution  %s%s", resolution,
              summary.division == resolution ? "" : " (in the file " + summary.division + ")");
        if (!summary.exactTicks)
            Line_("              each event at the nearest of them");
        Section_("tracks");
        for (const ImportSummary::Channel& channel : summary.channels)
            Line_("    channel %2d  %s, %s%s", channel.channel + 1, channel.name,
                  Counted(channel.events, "event", "events"), Programs_(channel));
        Section_("tempos");
        for (const TL::Tempo& tempo : timeline_.GetTempos())
            Line_("    %-8s %.2f quarter notes a minute", Place_(tempo.abs_time()), tempo.quarter_notes_per_minute());
        Section_("meters");
        for (const TL::Meter& meter : timeline_.GetMeters())
            Line_("    %-8s %s, a click every %s", Place_(meter.abs_time()), meter.as_string(),
                  Counted(static_cast<std::size_t>(meter.clocks_per_click()), "clock", "clocks"));
        Section_("keys");
        for (const TL::Key& key : timeline_.GetKeys())
            Line_("    %-8s %s", Place_(key.abs_time()), Keys::getTransposedName(key.sharps(), key.minor(), 0));
        if (!song_.log.GetMarkers().empty())
            Section_("markers");
        for (const CL::Marker& marker : song_.log.GetMarkers())
            Line_("    %-8s %s", Place_(marker.abs_time()), marker.value());
        NotPlayed_();
        return text_;
    }

private:
    template <class... Arguments>
    void Line_(const char* pattern, const Arguments&... arguments) {
        text_ += zell::format(pattern, arguments...) + "\n";
    }

    void Section_(const char* title) { Line_("  %s", title); }

    static std::string Programs_(const ImportSummary::Channel& channel) {
        std::string text;
        for (const std::uint8_t program : channel.programs)
            text += zell::format("%s%d", text.empty() ? "" : ", ", program + 1);
        return (channel.programs.empty() ? "" : channel.programs.size() == 1 ? ", program " : ", programs ") + text;
    }

    /// "12:3", and where that is no beat "12:3+40", the ticks since.
    std::string Place_(std::uint32_t tick) const {
        const auto& beats = timeline_.GetBarsBeats();
        const auto after =
            std::upper_bound(beats.begin(), beats.end(), tick,
                             [](std::uint32_t at, const TL::BarsBeats& beat) { return at < beat.abs_time(); });
        const TL::BarsBeats& beat = *(after - 1);  // the first one is at tick 0
        const std::uint32_t since = tick - beat.abs_time();
        return beat.as_string() + (since == 0 ? "" : zell::format("+%u", since));
    }

    void NotPlayed_() {
        const ImportSummary& summary = song_.summary;
        const auto line = [&](std::size_t count, const char* one, const char* many) {
            if (count != 0)
                Line_("    %s", Counted(count, one, many));
        };
        if (summary.channelModeControllers + summary.systemExclusive + summary.unusedTempos + summary.unknownKeys == 0)
            return;
        Section_("not played");
        line(summary.channelModeControllers, "channel-mode message (controllers 120 to 127)",
             "channel-mode messages (controllers 120 to 127)");
        line(summary.systemExclusive, "system exclusive message", "system exclusive messages");
        line(summary.unusedTempos, "tempo, which SMPTE time leaves without meaning",
             "tempos, which SMPTE time leaves without meaning");
        line(summary.unknownKeys, "key that is none", "keys that are none");
    }

    const ImportedSong& song_;
    const TL::Timeline& timeline_;
    std::string text_;
};

}  // namespace

std::string InspectSong(const ImportedSong& song) {
    return Inspection(song).Text();
}

std::string LengthOf(const ImportedSong& song) {
    const TL::Timeline& timeline = song.song.GetTimeline();
    const auto& tempos = timeline.GetTempos();
    double seconds = 0;
    for (auto tempo = tempos.begin(); tempo != tempos.end(); ++tempo) {
        const std::uint32_t start = tempo->abs_time();
        const std::uint32_t end = tempo + 1 == tempos.end() ? timeline.GetLastTickIndex() : (tempo + 1)->abs_time();
        double ticks = end - start;
        for (const CL::TempoScale& scale : song.log.GetTempoScales())
            if (scale.start() < end && scale.end() > start)
                ticks -= (std::min(end, scale.end()) - std::max(start, scale.start())) * (1 - 1 / scale.value());
        seconds += tempo->tick_time(song.song.GetResolution()) * ticks;
    }
    const auto tenths = static_cast<std::uint64_t>(std::llround(seconds * 10));
    return zell::format("%u:%02u.%u", tenths / 600, tenths / 10 % 60, tenths % 10);
}

}  // namespace player
