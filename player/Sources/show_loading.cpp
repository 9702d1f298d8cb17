#include "player/show_loading.h"

#include <algorithm>
#include <exception>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "player/display_text.h"
#include "player/midi_file_import.h"
#include "player/midi_file_reader.h"
#include "player/show_file.h"
#include "player/song_additions.h"
#include "vemo_core/song_builder.h"
#include "zell/format.h"

namespace player {

namespace fs = std::filesystem;

namespace {

constexpr int kPercussion = 9;
constexpr std::pair<std::uint8_t, std::uint8_t> kUntransposed = {255, 255};

/// A show file is UTF-8 on every system, and the names of files are not.
fs::path PathOf(const std::string& text) {
    return fs::path(std::u8string(text.begin(), text.end()));
}

/// Why the path is not one to below the folder, links followed; empty where it is.
std::string WhyOutside(const fs::path& folder, const fs::path& relative) {
    constexpr const char* kAllowed = "allowed are paths to below the folder of the show";
    if (relative.has_root_path())
        return kAllowed;
    std::error_code error;
    const fs::path top = fs::weakly_canonical(folder.empty() ? "." : folder, error);
    const fs::path target = error ? top : fs::weakly_canonical(top / relative, error);
    if (error)
        return error.message();
    return std::ranges::mismatch(top, target).in1 == top.end() ? "" : kAllowed;
}

template <class Channels>
std::string Listed(const Channels& channels) {
    std::string list;
    for (const auto& [id, track] : channels)
        list += zell::format("%s%d", list.empty() ? "" : ", ", id + 1);
    return list.empty() ? "none" : list;
}

/// What a document says of one song, brought to the ticks of the song.
class Resolution {
public:
    Resolution(const ImportedSong& plain, const ShowDocument::Song& song, std::string pointer)
        : data_(plain.song),
          beats_(plain.song.GetTimeline().GetBarsBeats()),
          end_(plain.song.GetTimeline().GetLastTickIndex()),
          song_(song),
          pointer_(std::move(pointer)),
          probe_(plain.song.GetResolution()) {}

    SongAdditions Additions(ShowKind kind) {
        SongAdditions additions;
        additions.title = song_.title;
        if (song_.start)
            additions.start = Tick_(*song_.start, pointer_ + "/start");
        Spans_(song_.tempoScales, "tempoScales", &ShowDocument::TempoScale::factor, &SongBuilder::TempoScale,
               additions.tempoScales);
        Spans_(song_.transpositions, "transpositions", &ShowDocument::Transposition::semitones, &SongBuilder::Transpose,
               additions.transpositions);
        Spans_(song_.clicks, "clicks", &ShowDocument::Click::notated32, &SongBuilder::Click, additions.clicks);
        for (std::size_t index = 0; index < song_.markers.size(); ++index)
            if (const auto tick = Tick_(song_.markers[index].at, Pointer_("markers", index) + "/at"))
                additions.markers[*tick] = song_.markers[index].text;
        for (std::size_t index = 0; index < song_.pages.size(); ++index)
            if (const auto tick = Tick_(song_.pages[index].at, Pointer_("pages", index) + "/at"))
                additions.pages[*tick] = song_.pages[index].number;
        Tracks_(kind, additions.tracks);
        return additions;
    }

    std::vector<std::uint32_t> Pauses() {
        std::vector<std::uint32_t> ticks;
        for (std::size_t index = 0; index < song_.pauses.size(); ++index) {
            const std::string pointer = Pointer_("pauses", index);
            const auto tick = Tick_(song_.pauses[index], pointer);
            if (tick && *tick == 0)
                Refuse_(pointer, Shown_(song_.pauses[index]), "are places behind the start of the song");
            else if (tick)
                ticks.push_back(*tick);
        }
        std::ranges::sort(ticks);
        ticks.erase(std::ranges::unique(ticks).begin(), ticks.end());
        return ticks;
    }

    /// What the song is only played along with.
    void CheckPatchesAndClick() {
        for (std::size_t index = 0; index < song_.patches.size(); ++index)
            for (const auto& [channel, program] : song_.patches[index].programs)
                RequireTrack_(channel, Pointer_("patches", index) + "/programs/");
        if (song_.clickTrack && HasTrack_(song_.clickTrack->channel))
            Refuse_(pointer_ + "/clickTrack/channel", std::to_string(song_.clickTrack->channel),
                    "are channels that no track of the song plays on, which are not " + Listed(data_.GetVoiceData()));
    }

    std::vector<std::string> TakeFaults() { return std::move(faults_); }

private:
    std::string Pointer_(const char* name, std::size_t index) const {
        return zell::format("%s/%s/%u", pointer_, name, index);
    }

    void Refuse_(const std::string& pointer, const std::string& value, const std::string& allowed) {
        faults_.push_back(pointer + ": " + value + " is refused: allowed " + allowed);
    }

    static std::string Shown_(const ShowPlace& place) {
        if (const std::uint32_t* tick = std::get_if<std::uint32_t>(&place))
            return std::to_string(*tick);
        return zell::format("\"%d:%d\"", std::get<BarBeat>(place).bar, std::get<BarBeat>(place).beat);
    }

    std::optional<std::uint32_t> Tick_(const ShowPlace& place, const std::string& pointer, bool endsSpan = false) {
        if (const std::uint32_t* tick = std::get_if<std::uint32_t>(&place)) {
            if (*tick <= end_)
                return *tick;
            Refuse_(pointer, Shown_(place), zell::format("are ticks from 0 to the song's end, %u", end_));
            return std::nullopt;
        }
        const BarBeat& at = std::get<BarBeat>(place);
        const std::pair wanted(static_cast<std::uint32_t>(at.bar), static_cast<std::uint32_t>(at.beat));
        const auto beat = std::ranges::lower_bound(
            beats_, wanted, {}, [](const TL::BarsBeats& known) { return std::pair(known.bar(), known.beat()); });
        if (beat != beats_.end() && std::pair(beat->bar(), beat->beat()) == wanted)
            return beat->abs_time();
        const TL::BarsBeats& last = beats_.back();
        if (endsSpan && wanted == std::pair(last.bar() + 1, 1u))
            return end_;
        Refuse_(pointer, Shown_(place),
                zell::format("are the beats of the song, of which the last is %s%s", last.as_string(),
                             endsSpan ? zell::format(", and %u, its end", last.bar() + 1) : ""));
        return std::nullopt;
    }

    template <class Span, class Value, class Add>
    void Spans_(const std::vector<Span>& spans, const char* name, Value Span::*value, Add add,
                std::vector<SongAdditions::Span<Value>>& resolved) {
        for (std::size_t index = 0; index < spans.size(); ++index) {
            const Span& span = spans[index];
            const std::string pointer = Pointer_(name, index);
            const auto from = Tick_(span.from, pointer + "/from");
            const auto to = Tick_(span.to, pointer + "/to", true);
            if (!from || !to)
                continue;
            try {
                (probe_.*add)(*from, *to, span.*value);
                resolved.push_back({*from, *to, span.*value});
            } catch (const std::invalid_argument& refusal) {
                faults_.push_back(pointer + ": " + refusal.what());
            }
        }
    }

    void Tracks_(ShowKind kind, std::map<int, SongAdditions::Track>& tracks) {
        if (kind == ShowKind::kRanges && HasTrack_(kPercussion + 1))
            tracks[kPercussion].range = kUntransposed;
        for (const auto& [channel, track] : song_.tracks) {
            if (!RequireTrack_(channel, pointer_ + "/tracks/"))
                continue;
            SongAdditions::Track& addition = tracks[channel - 1];
            addition.name = track.name;
            if (track.program)
                addition.program = static_cast<std::uint8_t>(*track.program - 1);
            if (track.range)
                addition.range = {static_cast<std::uint8_t>(track.range->first),
                                  static_cast<std::uint8_t>(track.range->second)};
        }
    }

    bool HasTrack_(int channel) const {
        return data_.GetVoiceData().contains(static_cast<unsigned short>(channel - 1));
    }

    bool RequireTrack_(int channel, const std::string& pointer) {
        if (HasTrack_(channel))
            return true;
        faults_.push_back(zell::format("%s%d: no track of the song plays on this channel: allowed are %s", pointer,
                                       channel, Listed(data_.GetVoiceData())));
        return false;
    }

    const vemo_midi::SongData& data_;
    const TL::TimelineSequence<TL::BarsBeats>& beats_;
    const std::uint32_t end_;
    const ShowDocument::Song& song_;
    const std::string pointer_;
    SongBuilder probe_;  // refuses what the song would refuse, one after another
    std::vector<std::string> faults_;
};

/// The song as the document wants it; faults where it cannot be had.
std::shared_ptr<const ImportedSong> LoadSong(const ShowDocument& document, std::size_t index, const fs::path& folder,
                                             bool allowOutside, ShowSong& loaded) {
    const ShowDocument::Song& song = document.songs[index];
    const std::string pointer = zell::format("/songs/%u", index);
    const fs::path path = PathOf(song.file);
    if (!allowOutside)
        if (const std::string reason = WhyOutside(folder, path); !reason.empty()) {
            loaded.faults.push_back(pointer + "/file: \"" + song.file + "\" is refused: " + reason);
            return nullptr;
        }
    std::string place = pointer + "/file";
    try {
        const MidiFile file = ReadMidiFile(folder / path);
        // Only a song that is laid out knows the ticks of its bars.
        const ImportedSong plain = ImportMidiFile(file, loaded.number);
        Resolution resolution(plain, song, pointer);
        const SongAdditions additions = resolution.Additions(document.kind);
        loaded.pauses = resolution.Pauses();
        resolution.CheckPatchesAndClick();
        loaded.faults = resolution.TakeFaults();
        if (!loaded.faults.empty())
            return nullptr;
        place = pointer;
        return std::make_shared<const ImportedSong>(ImportMidiFile(file, loaded.number, additions));
    } catch (const std::exception& failure) {
        loaded.faults.push_back(place + ": " + DisplayText(failure.what()));
        return nullptr;
    }
}

/// What a cue of show control could mean in two ways, by JSON pointer.
std::vector<std::string> DoubtfulCues(const std::vector<ShowSong>& songs) {
    std::vector<std::string> faults;
    std::map<int, std::string> numbers;
    for (std::size_t index = 0; index < songs.size(); ++index) {
        const ShowSong& song = songs[index];
        const auto [first, isFirst] = numbers.try_emplace(song.number, song.title);
        if (!isFirst)
            faults.push_back(
                zell::format("/songs/%u/number: %d is the number of '%s' too: show control could mean either", index,
                             song.number, first->second));
        if (!song.song)
            continue;
        std::size_t ordinal = 0;
        for (const CL::Marker& marker : song.song->log.GetMarkers()) {
            ++ordinal;
            const std::string text = DisplayText(marker.value());
            const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
            if (isNumber && text != std::to_string(ordinal))
                faults.push_back(zell::format("/songs/%u: its marker %u is called '%s': show control could mean either",
                                              index, ordinal, text));
        }
    }
    return faults;
}

}  // namespace

std::shared_ptr<const Show> LoadShow(ShowDocument document, const fs::path& file, bool allowOutside) {
    std::vector<ShowSong> songs;
    for (std::size_t index = 0; index < document.songs.size(); ++index) {
        const ShowDocument::Song& song = document.songs[index];
        ShowSong& loaded = songs.emplace_back();
        loaded.key = song.key;
        loaded.number = song.number.value_or(static_cast<int>(index) + 1);
        loaded.patches = song.patches;
        loaded.clickTrack = song.clickTrack;
        loaded.countInBars = song.countInBars;
        loaded.song = LoadSong(document, index, file.parent_path(), allowOutside, loaded);
        if (loaded.song) {
            loaded.title = loaded.song->title;
            continue;
        }
        loaded.title = song.title.value_or(song.file);
        loaded.fault = loaded.faults.front();
        if (loaded.faults.size() > 1)
            loaded.fault += zell::format(" (and %u more)", loaded.faults.size() - 1);
    }
    if (document.showControl)
        if (auto faults = DoubtfulCues(songs); !faults.empty())
            throw ShowFileError(file.string(), std::move(faults));
    return std::make_shared<const Show>(std::move(document), file, std::move(songs));
}

std::shared_ptr<const Show> ShowOfFiles(const std::vector<std::string>& files) {
    ShowDocument document;
    std::vector<ShowSong> songs;
    for (const std::string& file : files) {
        ShowSong& loaded = songs.emplace_back();
        loaded.number = static_cast<int>(songs.size());
        loaded.key = std::to_string(loaded.number) + " " + file;
        loaded.song = std::make_shared<const ImportedSong>(ImportMidiFile(ReadMidiFile(file), loaded.number));
        loaded.title = loaded.song->title;
        ShowDocument::Song& song = document.songs.emplace_back();
        song.key = loaded.key;
        song.file = file;
        document.setList.push_back({loaded.key, AfterSong::kGo});
    }
    if (!document.setList.empty())
        document.setList.back().then = AfterSong::kStop;
    document.title = songs.size() == 1 ? songs.front().title : zell::format("%u songs", songs.size());
    return std::make_shared<const Show>(std::move(document), fs::path(), std::move(songs));
}

}  // namespace player
