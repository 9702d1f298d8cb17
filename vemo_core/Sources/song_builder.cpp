#include "vemo_core/song_builder.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "vemo_core/Sources/beat_runs.h"
#include "zell/format.h"

namespace {

// A real number with every digit that tells it from the limit it misses.
template <class Value>
auto Shown(const Value& value) {
    if constexpr (std::is_floating_point_v<Value>)
        return zell::format("%.17g", value);
    else
        return value;
}

template <class Value>
[[noreturn]] void Refuse(const char* what, const Value& value, const std::string& allowed) {
    throw std::invalid_argument(zell::format("%s %s is refused: %s", what, Shown(value), allowed));
}

template <class Value>
void RequireRange(const char* what, Value value, Value low, Value high) {
    if (!(value >= low && value <= high))  // a NaN is in no range
        Refuse(what, value, zell::format("allowed are %s to %s", low, high));
}

template <class Sequence, class T>
Sequence Flatten(const std::map<unsigned int, T>& elements) {
    std::vector<T> flat;
    flat.reserve(elements.size());
    for (const auto& [tick, element] : elements)
        flat.push_back(element);
    return Sequence(std::move(flat));
}

/// As Flatten(), with an element at tick 0 in any case.
template <class T>
TL::TimelineSequence<T> FlattenFrom(std::map<unsigned int, T> elements, const T& atStart) {
    elements.emplace(0, atStart);
    return Flatten<TL::TimelineSequence<T>>(elements);
}

}  // namespace

SongBuilder::SongBuilder(unsigned short resolution) : resolution_(resolution) {
    RequireRange<int>("resolution", resolution, 24, 65535);
}

SongBuilder& SongBuilder::Title(int number, const std::string& name) {
    number_ = number;
    name_ = name;
    return *this;
}

SongBuilder& SongBuilder::Track(unsigned short id, const std::string& name, unsigned char lowNote,
                                unsigned char highNote, unsigned char defaultProgram,
                                std::vector<vemo_midi::VoiceEvent> events) {
    if (tracks_.contains(id))
        Refuse("track id", id, "each track has an id of its own");
    if (lowNote != 255 || highNote != 255) {
        RequireRange<int>("high note", highNote, 0, 127);
        if (lowNote > highNote)
            Refuse("low note", lowNote, zell::format("allowed are 0 to the high note, %d", highNote));
    }
    RequireRange<int>("default program", defaultProgram, 0, 127);
    for (const auto& event : events) {
        // Said only of what is refused: a text for each event would take longer than all the rest of a song.
        const auto ofEvent = [&](const char* what) {
            return zell::format("event of track %d at tick %u: %s", id, event.time, what);
        };
        if (event.message.status < 0x80 || event.message.status > 0xEF)
            Refuse(ofEvent("status").c_str(), event.message.status, "allowed are 128 to 239");
        // What the engine ends, it ends on the track's channel.
        if ((event.message.status & 0x0F) != (id & 0x0F))
            Refuse(ofEvent("channel").c_str(), event.message.status & 0x0F,
                   zell::format("allowed is the track's, %d", id & 0x0F));
        if (!event.IsValidVoiceEvent())
            Refuse(ofEvent("data byte").c_str(), std::max(event.message.data1, event.message.data2),
                   "allowed are 0 to 127");
    }
    std::ranges::stable_sort(events, {}, &vemo_midi::VoiceEvent::time);
    const unsigned int last = events.empty() ? 0 : events.back().time;
    tracks_.insert(id, std::make_unique<vemo_midi::VoiceTrack>(id, name, std::pair(lowNote, highNote), defaultProgram,
                                                               std::move(events)));
    NoteExtent("event", last);
    return *this;
}

SongBuilder& SongBuilder::Tempo(unsigned int tick, double quarterNotesPerMinute) {
    // Down from there a clock takes most of an hour; up from there a file cannot say it.
    RequireRange("tempo", quarterNotesPerMinute, 0.001, 60'000'000.0);
    tempos_.insert_or_assign(tick, TL::Tempo(tick, quarterNotesPerMinute));
    NoteExtent("tempo", tick);
    return *this;
}

SongBuilder& SongBuilder::Meter(unsigned int tick, int beats, int beatUnit, int clocksPerClick, int notated32PerClick) {
    RequireRange("beats of a bar", beats, 1, 255);
    if (beatUnit < 1 || beatUnit > 64 || (beatUnit & (beatUnit - 1)) != 0)
        Refuse("beat unit", beatUnit, "allowed are 1, 2, 4, 8, 16, 32 and 64");
    RequireRange("clocks per click", clocksPerClick, 1, 255);
    RequireRange("notated thirty-seconds per click", notated32PerClick, 1, 255);
    meters_.insert_or_assign(tick, TL::Meter(tick, beats, beatUnit, clocksPerClick, notated32PerClick));
    NoteExtent("meter", tick);
    return *this;
}

SongBuilder& SongBuilder::Key(unsigned int tick, int sharps, bool minor) {
    RequireRange("sharps of a key", sharps, -7, 7);
    keys_.insert_or_assign(tick, TL::Key(tick, sharps, minor));
    NoteExtent("key", tick);
    return *this;
}

SongBuilder& SongBuilder::Page(unsigned int tick, unsigned int number) {
    pages_.insert_or_assign(tick, TL::PageNum(tick, number));
    NoteExtent("page", tick);
    return *this;
}

SongBuilder& SongBuilder::Marker(unsigned int tick, const std::string& text) {
    markers_.insert_or_assign(tick, CL::Marker(tick, text));
    NoteExtent("marker", tick);
    return *this;
}

SongBuilder& SongBuilder::Click(unsigned int start, unsigned int end, int notated32) {
    RequireRange("thirty-seconds of a click", notated32, 1, 255);
    AddPaired(clicks_, "click", CL::Click(start, end, notated32));
    return *this;
}

SongBuilder& SongBuilder::TempoScale(unsigned int start, unsigned int end, double factor) {
    RequireRange("tempo scale", factor, 0.001, 1000.0);
    AddPaired(tempoScales_, "tempo scale", CL::TempoScale(start, end, factor));
    return *this;
}

SongBuilder& SongBuilder::Transpose(unsigned int start, unsigned int end, int semitones) {
    RequireRange("transposition", semitones, -127, 127);
    AddPaired(transpositions_, "transposition", CL::Transpose(start, end, semitones));
    return *this;
}

SongBuilder& SongBuilder::StartAt(unsigned int tick) {
    start_ = tick;
    return *this;
}

SongBuilder& SongBuilder::EndAt(unsigned int tick) {
    RequireRange("end", tick, 1u, kLastEnd);
    end_ = tick;
    return *this;
}

vemo_midi::SongData SongBuilder::BuildSong() const {
    return vemo_midi::SongData(tracks_, Build(), start_, resolution_);
}

CL::SongLog SongBuilder::BuildLog() const {
    Build();
    return CL::SongLog(number_, name_, Flatten<CL::ChangeLogSequence<CL::Click>>(clicks_),
                       Flatten<CL::ChangeLogSequence<CL::TempoScale>>(tempoScales_),
                       Flatten<CL::ChangeLogSequence<CL::Transpose>>(transpositions_),
                       Flatten<CL::MarkerSequence>(markers_));
}

void SongBuilder::NoteExtent(const char* what, unsigned int tick) {
    if (tick >= extent_.tick)
        extent_ = {tick, what};
}

template <class T>
void SongBuilder::AddPaired(std::map<unsigned int, T>& events, const char* what, const T& event) {
    if (event.start() >= event.end())
        Refuse(zell::format("end of a %s", what).c_str(), event.end(),
               zell::format("allowed are ticks after its start, %u", event.start()));
    const auto next = events.lower_bound(event.start());
    const bool overlapsBefore = next != events.begin() && std::prev(next)->second.end() > event.start();
    if (overlapsBefore || (next != events.end() && next->second.start() < event.end()))
        Refuse(zell::format("start of a %s", what).c_str(), event.start(),
               zell::format("no %s may overlap another", what));
    events.emplace(event.start(), event);
    NoteExtent(what, event.end());
}

TL::Timeline SongBuilder::Build() const {
    if (!end_)
        throw std::invalid_argument(zell::format("end is missing: allowed are %u to %u", 1u, kLastEnd));
    if (extent_.tick > *end_)
        Refuse((extent_.what + " tick").c_str(), extent_.tick, zell::format("allowed are 0 to the end, %u", *end_));
    RequireRange("start", start_, 0u, *end_);

    const auto meters = FlattenFrom(meters_, TL::Meter(0, 4, 4, 24, 8));
    auto beats = LayOutBeats(meters);
    RequireClicks(beats, meters);
    return TL::Timeline(*end_, std::move(beats), FlattenFrom(tempos_, TL::Tempo(0, 120.0)), meters,
                        FlattenFrom(keys_, TL::Key(0, 0, false)), Flatten<TL::TimelineSequence<TL::PageNum>>(pages_));
}

TL::TimelineSequence<TL::BarsBeats> SongBuilder::LayOutBeats(const TL::TimelineSequence<TL::Meter>& meters) const {
    std::vector<TL::BarsBeats> beats;
    std::uint32_t bar = 0;
    for (auto meter = meters.begin(); meter != meters.end(); ++meter) {
        const std::uint64_t end = meter + 1 == meters.end() ? *end_ : (meter + 1)->abs_time();
        for (std::uint64_t index = 0;; ++index) {
            // From the meter's start each time: a beat of no whole ticks would add up its error.
            const std::uint64_t tick = meter->abs_time() + index * 4 * resolution_ / meter->beat_unit();
            if (tick >= end)
                break;
            if (beats.size() == kMostBeats)
                throw std::invalid_argument(zell::format("beats of the song are more than the %u allowed", kMostBeats));
            const auto beat = static_cast<std::uint32_t>(index % meter->beats()) + 1;
            if (beat == 1)
                ++bar;
            beats.emplace_back(static_cast<std::uint32_t>(tick), bar, beat);
        }
    }
    return TL::TimelineSequence<TL::BarsBeats>(std::move(beats));
}

void SongBuilder::RequireClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                                const TL::TimelineSequence<TL::Meter>& meters) const {
    for (const auto& [start, click] : clicks_) {
        for (auto meter = meters.begin(); meter != meters.end(); ++meter) {
            const bool overBefore = meter + 1 != meters.end() && (meter + 1)->abs_time() <= start;
            if (overBefore || meter->abs_time() >= click.end())
                continue;
            const int notated = meter->notated_32_per_click();
            if (click.int_value() * 24 < notated)
                Refuse(zell::format("thirty-seconds of the click at tick %u,", start).c_str(), click.int_value(),
                       zell::format("allowed are %d and more, a MIDI clock of its meter", (notated + 23) / 24));
        }
    }
    std::uint64_t count = 0;
    for (const CL::BeatRun& run :
         CL::CreateBeatRuns(beats, Flatten<CL::ChangeLogSequence<CL::Click>>(clicks_), meters, *end_, resolution_))
        count += run.Count();
    if (count > kMostClicks)
        throw std::invalid_argument(
            zell::format("clicks of the song, %u, are more than the %u allowed", count, kMostClicks));
}
