#include "player/show_report.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "midi/how_to_play.h"
#include "midi/user_controls.h"
#include "player/heard_position.h"
#include "vemo_core/keys.h"

namespace player {

namespace {

using Json = nlohmann::ordered_json;

std::string Dump(const Json& json) {
    // Texts of files and devices may be anything.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string_view NameOf(AfterSong then) {
    switch (then) {
        case AfterSong::kStop: return "stop";
        case AfterSong::kWait: return "wait";
        case AfterSong::kGo: return "go";
    }
    return "";
}

// Places of the set list count from 1; 0: none.
std::size_t PlaceNumber(const std::optional<std::size_t>& entry) {
    return entry ? *entry + 1 : 0;
}

std::string MarkerAt(const ImportedSong& song, std::uint32_t tick) {
    for (const CL::Marker& marker : song.log.GetMarkers())
        if (marker.abs_time() == tick)
            return marker.value();
    return {};
}

Json ShowOf(const Show& show) {
    Json groups = Json::array();
    for (const ShowDocument::Group& group : show.GetDocument().groups)
        groups.push_back({{"number", group.number}, {"name", group.name}, {"channels", group.channels}});
    return {{"title", show.GetDocument().title},
            {"file", show.GetFile().string()},
            {"kind", show.GetDocument().kind == ShowKind::kRanges ? "ranges" : "programs"},
            {"groups", std::move(groups)}};
}

Json TracksOf(const TransportSnapshot& snapshot, const std::vector<int>& programs) {
    Json tracks = Json::array();
    auto program = programs.begin();
    for (const TransportSnapshot::Track& track : snapshot.tracks)
        tracks.push_back({{"channel", track.channel},
                          {"name", track.name},
                          {"program", *program++},
                          {"programIsUsers", track.programIsUsers},
                          {"trim", track.trim},
                          {"muted", track.muted}});
    return tracks;
}

Json CommandInputOf(const CommandInput::Report& report) {
    Json commands = Json::array();
    for (const CommandInput::Command& command : report.commands)
        commands.push_back(
            {{"name", command.name}, {"binding", command.binding}, {"leastMilliseconds", command.leastInterval}});
    return {{"name", report.input},
            {"state", report.input.empty() ? "none"
                      : report.isOpen      ? "on"
                                           : "missing"},
            {"onlyPresses", report.onlyPresses},
            {"learning", report.learning},
            {"commands", std::move(commands)}};
}

Json MessagesOf(const TransportSnapshot& snapshot) {
    Json messages = Json::array();
    for (const TransportSnapshot::Message& message : snapshot.messages)
        messages.push_back({{"number", message.number}, {"text", message.text}});
    return messages;
}

}  // namespace

void ShowReport::Prepare(const TransportSnapshot& snapshot) {
    if (snapshot.show == show_)
        return;
    show_ = snapshot.show;
    times_.clear();
    programs_.clear();
    programsSong_ = 0;
    if (!show_)
        return;
    for (const ShowSong& song : show_->GetSongs())
        times_.push_back(song.song ? std::make_unique<SongTimes>(*song.song) : nullptr);
}

void ShowReport::PreparePrograms(unsigned int song) {
    if (programsSong_ == song)
        return;
    programsSong_ = song;
    programs_.clear();
    const auto& documents = show_->GetDocument().songs;
    for (const auto& [id, track] : show_->GetSongs()[song - 1].song->song.GetVoiceData()) {
        const int channel = id + 1;
        std::vector<ProgramChange>& changes = programs_[channel];
        changes.push_back({0, track.GetDefaultProgramChange() + 1});
        if (song <= documents.size()) {
            const auto given = documents[song - 1].tracks.find(channel);
            if (given != documents[song - 1].tracks.end() && given->second.program)
                changes.back().program = *given->second.program;
        }
        for (const vemo_midi::VoiceEvent& event : track.GetEvents())
            if ((event.message.status & 0xF0) == 0xC0)
                changes.push_back({event.time, event.message.data1 + 1});
    }
}

std::vector<int> ShowReport::ProgramsOf(const TransportSnapshot& snapshot, const std::optional<PlaybackRecord>& heard) {
    Prepare(snapshot);
    std::vector<int> programs;
    if (!show_ || snapshot.song == 0)
        return programs;
    PreparePrograms(snapshot.song);
    // Of the song before, heard while the tracks are the next one's already, the place means nothing.
    const std::uint32_t tick = heard && heard->song == snapshot.song ? heard->tick : snapshot.tick;
    for (const TransportSnapshot::Track& track : snapshot.tracks) {
        const auto& changes = programs_[track.channel];
        const auto after = std::upper_bound(changes.begin(), changes.end(), tick,
                                            [](std::uint32_t at, const ProgramChange& next) { return at < next.tick; });
        programs.push_back(track.programIsUsers || after == changes.begin() ? track.program
                                                                            : std::prev(after)->program);
    }
    return programs;
}

std::string ShowReport::StateOf(const TransportSnapshot& snapshot, const std::optional<PlaybackRecord>& heard,
                                const Surroundings& surroundings) {
    Prepare(snapshot);
    Json state = {{"state", player::NameOf(snapshot.state)}, {"change", snapshot.number}};
    state["show"] = show_ ? ShowOf(*show_) : Json();
    Json setList = Json::array();
    for (const TransportSnapshot::Entry& entry : snapshot.setList) {
        const ShowSong& song = show_->GetSongs()[entry.song];
        setList.push_back({{"song", entry.song + 1},
                           {"number", song.number},
                           {"key", song.key},
                           {"title", song.title},
                           {"then", NameOf(entry.then)},
                           {"seconds", times_[entry.song] ? times_[entry.song]->GetLength() : 0},
                           {"fault", song.fault}});
    }
    state["setList"] = std::move(setList);
    state["place"] = PlaceNumber(snapshot.entry);
    state["nextPlace"] = PlaceNumber(snapshot.nextEntry);
    state["song"] = snapshot.song;
    state["title"] = snapshot.title;
    if (show_ && snapshot.song > 0) {
        const ShowSong& song = show_->GetSongs()[snapshot.song - 1];
        state["number"] = song.number;
        state["key"] = song.key;
        state["bars"] = song.song->song.GetTimeline().GetBarsBeats().back().bar();
    }
    state["tempoScale"] = snapshot.tempoScale;
    state["transposition"] = snapshot.transposition;
    state["holds"] = snapshot.holds;
    state["patch"] = snapshot.patch.value_or("");
    state["click"] = !snapshot.hasClick ? "none" : snapshot.clickIsMuted ? "off" : "on";
    state["guiDelayMilliseconds"] = snapshot.guiDelayMilliseconds;
    state["tracks"] = TracksOf(snapshot, ProgramsOf(snapshot, heard));
    state["mutedChannels"] = snapshot.mutes;
    state["messages"] = MessagesOf(snapshot);
    state["songsLoaded"] = surroundings.progress.first;
    state["songsToLoad"] = surroundings.progress.second;
    state["device"] = {{"name", surroundings.device.name}, {"state", surroundings.device.state}};
    state["timeCode"] = {{"state", surroundings.timeCode.state}, {"rate", surroundings.timeCode.rate}};
    state["commandInput"] = CommandInputOf(surroundings.commandInput);
    state["showControl"] = {{"state", surroundings.showControl.state},
                            {"armed", surroundings.showControl.isArmed},
                            {"cues", surroundings.showControl.cues},
                            {"refused", surroundings.showControl.refused},
                            {"newestRefusal", surroundings.showControl.newestRefusal}};
    return Dump(state);
}

PlaybackRecord ShowReport::PlaceOf(const TransportSnapshot& snapshot) const {
    UserControls controls;
    controls.SetTempoScale(snapshot.tempoScale);
    controls.SetTransposition(snapshot.transposition);
    const ImportedSong& song = *show_->GetSongs()[snapshot.song - 1].song;
    HowToPlay tracker(controls);
    tracker.SetData(song.log, song.song.GetTimeline(), song.song.GetResolution());
    tracker.Seek(snapshot.tick);
    PlaybackRecord place;
    place.song = snapshot.song;
    place.tick = snapshot.tick;
    place.clockNumber = tracker.GetClockNumber();
    place.clocksPerClick = tracker.GetClocksPerClick();
    place.bar = tracker.GetBarBeat().bar();
    place.beat = tracker.GetBarBeat().beat();
    place.tempo = tracker.GetTempoDouble();
    place.meterBeats = tracker.GetMeter().beats();
    place.meterUnit = tracker.GetMeter().beat_unit();
    place.keySharps = tracker.GetKey().sharps();
    place.keyMinor = tracker.GetKey().minor();
    place.transposition = tracker.GetTranspositionValue();
    place.page = tracker.GetPageNumberValue();
    place.hasMarker = !song.log.GetMarkers().empty() && tracker.GetMarkerTickIndex() <= place.tick;
    place.markerTick = place.hasMarker ? tracker.GetMarkerTickIndex() : 0;
    return place;
}

std::string ShowReport::PositionOf(const TransportSnapshot& snapshot, const std::string& timeCode) {
    Prepare(snapshot);
    if (!show_ || snapshot.song == 0)
        return Dump({{"song", 0}});
    return PositionOf(snapshot, PlaceOf(snapshot), {}, timeCode);
}

std::string ShowReport::PositionOf(const TransportSnapshot& snapshot, const PlaybackRecord& heard,
                                   const std::vector<int>& activeChannels, const std::string& timeCode) {
    Prepare(snapshot);
    // A clock of the song that was heard before another show was opened.
    if (!show_ || heard.song == 0 || heard.song > times_.size() || !times_[heard.song - 1])
        return Dump({{"song", 0}});
    const ImportedSong& song = *show_->GetSongs()[heard.song - 1].song;
    const SongTimes& times = *times_[heard.song - 1];
    const double scale = snapshot.tempoScale > 0 ? snapshot.tempoScale : 1;
    const double seconds = times.SecondsAt(heard.tick) / scale;
    double before = 0;
    double whole = 0;
    for (std::size_t i = 0; i < snapshot.setList.size(); ++i) {
        const auto& entryTimes = times_[snapshot.setList[i].song];
        // The other songs come at their own tempo, unless the scale is held.
        const bool isScaled = snapshot.holds || snapshot.entry == i;
        const double length = entryTimes ? entryTimes->GetLength() / (isScaled ? scale : 1) : 0;
        whole += length;
        if (snapshot.entry && i < *snapshot.entry)
            before += length;
    }
    Json position = {{"song", heard.song}, {"bar", heard.bar}, {"beat", heard.beat}, {"tick", heard.tick}};
    position["countIn"] = heard.kind == PlaybackRecord::Kind::kCountIn;
    if (heard.kind == PlaybackRecord::Kind::kCountIn) {
        const CountInPlace place = CountInPlaceOf(heard);
        position["bar"] = -place.barsLeft;
        position["beat"] = place.beat;
    }
    position["clock"] = heard.clockNumber;
    position["clocks"] = heard.clocksPerClick;
    position["tempo"] = heard.tempo;
    position["meter"] = std::to_string(heard.meterBeats) + "/" + std::to_string(heard.meterUnit);
    position["key"] = Keys::getTransposedName(heard.keySharps, heard.keyMinor, heard.transposition);
    position["transposition"] = heard.transposition;
    position["marker"] = heard.hasMarker ? MarkerAt(song, heard.markerTick) : std::string();
    position["page"] = heard.page;
    position["hasPages"] = !song.song.GetTimeline().GetPageNums().empty();
    position["seconds"] = seconds;
    position["length"] = times.GetLength() / scale;
    position["showSeconds"] = before + seconds;
    position["showLength"] = whole;
    position["active"] = activeChannels;
    position["timeCode"] = timeCode;
    return Dump(position);
}

}  // namespace player
