#include "player/midi_file_import.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <utility>

#include "player/display_text.h"
#include "player/midi_file_error.h"
#include "vemo_core/song_builder.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::uint64_t kClocksPerQuarter = 24;
constexpr std::uint16_t kRoundedResolution = 960;

enum Meta : std::uint8_t { kTrackName = 0x03, kMarker = 0x06, kTempo = 0x51, kMeter = 0x58, kKey = 0x59 };

/// How the file's ticks become the song's.
class TickScale {
public:
    explicit TickScale(const MidiFile& file) {
        if ((file.division & 0x8000) == 0) {
            if (file.division == 0)
                throw MidiFileError(file.name, 12, "a division of 0");
            text_ = zell::format("%u ticks a quarter note", file.division);
            Choose_(file.division, 1);
            return;
        }
        const int rate = 256 - (file.division >> 8);
        const unsigned int ticks = file.division & 0xFF;
        if (rate != 24 && rate != 25 && rate != 29 && rate != 30)
            throw MidiFileError(file.name, 12, zell::format("%d frames a second are no SMPTE time", rate));
        if (ticks == 0)
            throw MidiFileError(file.name, 12, "a division of 0");
        text_ = zell::format("%s frames a second of %u ticks", rate == 29 ? "29.97" : std::to_string(rate), ticks);
        // 29 is 30 frames in 1.001 seconds. A quarter note of half a second, or of
        // 0.5005 seconds, is a whole number of half frames.
        fixedTempo_ = rate == 29 ? 120.0 * 1000 / 1001 : 120.0;
        Choose_((rate == 29 ? 30u : static_cast<unsigned int>(rate)) * ticks, 2);
    }

    std::uint16_t Resolution() const { return resolution_; }
    const std::string& Text() const { return text_; }
    bool IsExact() const { return divisor_ == 1; }
    std::optional<double> FixedTempo() const { return fixedTempo_; }
    std::uint64_t Scaled(std::uint32_t tick) const { return (tick * factor_ + divisor_ / 2) / divisor_; }

private:
    /// A quarter note is ticks / parts of the file's ticks.
    void Choose_(std::uint64_t ticks, std::uint64_t parts) {
        factor_ = kClocksPerQuarter * parts / std::gcd(ticks, kClocksPerQuarter * parts);
        if (ticks * factor_ / parts <= std::numeric_limits<std::uint16_t>::max()) {
            resolution_ = static_cast<std::uint16_t>(ticks * factor_ / parts);
            return;
        }
        resolution_ = kRoundedResolution;
        factor_ = kRoundedResolution * parts;
        divisor_ = ticks;
    }

    std::string text_;
    std::optional<double> fixedTempo_;
    std::uint16_t resolution_ = kRoundedResolution;
    std::uint64_t factor_ = 1;
    std::uint64_t divisor_ = 1;
};

class Importer {
public:
    Importer(const MidiFile& file, int songNumber, const SongAdditions& additions)
        : file_(file), songNumber_(songNumber), additions_(additions), scale_(file), builder_(scale_.Resolution()) {
        if (file.tracks.empty())
            throw MidiFileError(file.name, 0, "the file has no track");
    }

    ImportedSong Import() {
        const std::size_t endOffset = SetEnd_();
        if (scale_.FixedTempo())
            builder_.Tempo(0, *scale_.FixedTempo());
        for (const MidiTrack& track : file_.tracks)
            ReadTrack_(track);
        ReadMetas_();
        for (const auto& [tick, text] : markers_)
            builder_.Marker(tick, text);
        for (int channel = 0; channel < 16; ++channel)
            AddChannel_(channel);
        const std::string title = additions_.title.value_or(Title_());
        builder_.Title(songNumber_, title);
        RequireSong_(endOffset);
        Add_();
        summary_.fileName = DisplayText(file_.name);
        summary_.format = file_.format;
        summary_.division = scale_.Text();
        summary_.exactTicks = scale_.IsExact();
        return {builder_.BuildSong(), builder_.BuildLog(), title, std::move(summary_)};
    }

private:
    std::uint32_t Tick_(const MidiTrack::Event& event) const {
        return static_cast<std::uint32_t>(scale_.Scaled(event.tick));
    }

    /// The place of the end in the file.
    std::size_t SetEnd_() {
        const auto last = std::max_element(file_.tracks.begin(), file_.tracks.end(),
                                           [](auto& a, auto& b) { return a.EndTick() < b.EndTick(); });
        const std::uint64_t end = scale_.Scaled(last->EndTick());
        if (end > SongBuilder::kLastEnd)
            throw MidiFileError(file_.name, last->EndOffset(), "the song is too long for 32-bit ticks");
        builder_.EndAt(std::max(1u, static_cast<unsigned int>(end)));  // a song of no time has one tick
        return last->EndOffset();
    }

    /// Before the additions, which are not the file's fault.
    void RequireSong_(std::size_t endOffset) const {
        try {
            builder_.BuildLog();
        } catch (const std::invalid_argument& refusal) {  // too many beats, which only the whole song shows
            throw MidiFileError(file_.name, endOffset, refusal.what());
        }
    }

    void Add_() {
        if (additions_.start)
            builder_.StartAt(*additions_.start);
        for (const auto& scale : additions_.tempoScales)
            builder_.TempoScale(scale.from, scale.to, scale.value);
        for (const auto& transposition : additions_.transpositions)
            builder_.Transpose(transposition.from, transposition.to, transposition.value);
        for (const auto& click : additions_.clicks)
            builder_.Click(click.from, click.to, click.value);
        for (const auto& [tick, text] : additions_.markers)
            builder_.Marker(tick, text);
        for (const auto& [tick, number] : additions_.pages)
            builder_.Page(tick, number);
    }

    void ReadTrack_(const MidiTrack& track) {
        std::string name;
        unsigned int channels = 0;
        for (const MidiTrack::Event& event : track.Events()) {
            if (event.status == 0xFF) {
                if (event.data1 == kTrackName && name.empty())
                    name = DisplayText(track.Payload(event));
                else
                    metas_.emplace_back(&event, &track.Payload(event));
            } else if (event.status >= 0xF0) {
                ++summary_.systemExclusive;
            } else if (ReadMessage_(event)) {
                channels |= 1u << (event.status & 0x0F);
            }
        }
        if (&track == &file_.tracks.front())
            title_ = name;
        for (std::size_t channel = 0; channel < names_.size(); ++channel)
            if (channels == 1u << channel && names_[channel].empty())
                names_[channel] = name;
    }

    /// False for a message that the song leaves out.
    bool ReadMessage_(const MidiTrack::Event& event) {
        const unsigned int channel = event.status & 0x0F;
        std::uint8_t kind = event.status & 0xF0;
        std::uint8_t data2 = event.data2;
        // Chased as state, a channel-mode message would silence or reset what was
        // just struck.
        if (kind == 0xB0 && event.data1 >= 120) {
            ++summary_.channelModeControllers;
            return false;
        }
        // The engine takes every note-on for a held note.
        if (kind == 0x90 && data2 == 0) {
            kind = 0x80;
            data2 = 64;
        }
        events_[channel].emplace_back(event.tick, kind, static_cast<std::uint16_t>(channel), event.data1, data2);
        return true;
    }

    void ReadMetas_() {
        std::ranges::stable_sort(metas_, {}, [](auto& meta) { return meta.first->tick; });
        for (const auto& [event, payload] : metas_)
            ReadMeta_(*event, *payload);
    }

    void ReadMeta_(const MidiTrack::Event& event, const std::string& payload) {
        try {
            switch (event.data1) {
                case kMarker: ReadMarker_(event, payload); break;
                case kTempo: ReadTempo_(event, payload); break;
                case kMeter: ReadMeter_(event, payload); break;
                case kKey: ReadKey_(event, payload); break;
                default: break;
            }
        } catch (const std::invalid_argument& refusal) {
            throw MidiFileError(file_.name, event.offset, refusal.what());
        }
    }

    void ReadMarker_(const MidiTrack::Event& event, const std::string& payload) {
        // The song log has one marker a tick, and sequencers write several.
        std::string& text = markers_[Tick_(event)];
        text += (text.empty() ? "" : " / ") + DisplayText(payload);
    }

    void ReadTempo_(const MidiTrack::Event& event, const std::string& payload) {
        const int microseconds = Byte_(payload, 0) << 16 | Byte_(payload, 1) << 8 | Byte_(payload, 2);
        if (payload.size() < 3)
            throw std::invalid_argument(zell::format("a tempo of %u bytes, 3 are needed", payload.size()));
        if (microseconds == 0)
            throw std::invalid_argument("a tempo of 0");
        if (scale_.FixedTempo())
            ++summary_.unusedTempos;
        else
            builder_.Tempo(Tick_(event), 60e6 / microseconds);
    }

    void ReadMeter_(const MidiTrack::Event& event, const std::string& payload) {
        const int beats = Byte_(payload, 0);
        const int exponent = Byte_(payload, 1);
        const int clocks = Byte_(payload, 2);
        const int notated32 = Byte_(payload, 3);
        if (payload.size() < 2)
            throw std::invalid_argument(zell::format("a meter of %u bytes, 4 are needed", payload.size()));
        if (beats == 0)
            throw std::invalid_argument("a meter of no beats");
        if (exponent > 6)
            throw std::invalid_argument(zell::format("a meter of beats of 1/2^%d, 1/64 is the shortest", exponent));
        builder_.Meter(Tick_(event), beats, 1 << exponent, clocks == 0 ? 24 : clocks, notated32 == 0 ? 8 : notated32);
    }

    void ReadKey_(const MidiTrack::Event& event, const std::string& payload) {
        const int byte = Byte_(payload, 0);
        const int sharps = byte < 128 ? byte : byte - 256;
        const int mode = Byte_(payload, 1);
        if (payload.empty() || sharps < -7 || sharps > 7 || mode > 1)
            ++summary_.unknownKeys;
        else
            builder_.Key(Tick_(event), sharps, mode == 1);
    }

    static int Byte_(const std::string& payload, std::size_t index) {
        return index < payload.size() ? static_cast<unsigned char>(payload[index]) : 0;
    }

    void AddChannel_(int channel) {
        std::vector<vemo_midi::VoiceEvent>& events = events_[static_cast<std::size_t>(channel)];
        if (events.empty())
            return;
        // By the file's ticks: rounded ones no longer tell which track came first.
        std::ranges::stable_sort(events, {}, &vemo_midi::VoiceEvent::time);
        for (vemo_midi::VoiceEvent& event : events)
            event.time = static_cast<std::uint32_t>(scale_.Scaled(event.time));
        const auto given = additions_.tracks.find(channel);
        const SongAdditions::Track addition = given == additions_.tracks.end() ? SongAdditions::Track() : given->second;
        ImportSummary::Channel account;
        account.channel = channel;
        account.name = addition.name.value_or(names_[static_cast<std::size_t>(channel)]);
        if (account.name.empty())
            account.name = zell::format("Channel %d", channel + 1);
        account.events = events.size();
        if (addition.program)
            SetFirstProgram_(events, *addition.program);
        std::array<bool, 128> seen{};
        for (const vemo_midi::VoiceEvent& event : events)
            if ((event.message.status & 0xF0) == 0xC0 && !std::exchange(seen[event.message.data1], true))
                account.programs.push_back(event.message.data1);
        const std::uint8_t first = account.programs.empty() ? addition.program.value_or(0) : account.programs.front();
        const auto [low, high] = addition.range.value_or(std::pair<std::uint8_t, std::uint8_t>(0, 127));
        builder_.Track(static_cast<unsigned short>(channel), account.name, low, high, first, std::move(events));
        summary_.channels.push_back(std::move(account));
    }

    /// Left as it is, the file's own would undo it where the song begins.
    static void SetFirstProgram_(std::vector<vemo_midi::VoiceEvent>& events, std::uint8_t program) {
        const auto first =
            std::ranges::find_if(events, [](const auto& event) { return (event.message.status & 0xF0) == 0xC0; });
        if (first != events.end())
            first->message.data1 = program;
    }

    std::string Title_() const {
        if (!title_.empty())
            return title_;
        return DisplayText(std::filesystem::path(file_.name).stem().string());
    }

    const MidiFile& file_;
    const int songNumber_;
    const SongAdditions& additions_;
    const TickScale scale_;
    SongBuilder builder_;
    std::string title_;
    std::array<std::string, 16> names_;
    std::array<std::vector<vemo_midi::VoiceEvent>, 16> events_;  // at the file's ticks
    std::vector<std::pair<const MidiTrack::Event*, const std::string*>> metas_;
    std::map<std::uint32_t, std::string> markers_;
    ImportSummary summary_;
};

}  // namespace

ImportedSong ImportMidiFile(const MidiFile& file, int songNumber, const SongAdditions& additions) {
    return Importer(file, songNumber, additions).Import();
}

}  // namespace player
