#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "player/midi_file.h"
#include "player/midi_file_writer.h"

namespace player {

/// Makes valid MIDI files of the kind that a show meets and a test forgets: odd
/// divisions and SMPTE, tempo changes between clocks, meters off the bar line, dense
/// controllers, several tracks for a channel, meta events and system exclusive in
/// between. Every note is ended, by a note-off or a note-on of velocity 0.
///
/// Units:  the length is in quarter notes.
/// The same seed and options give the same files on every machine.
class SongGenerator {
public:
    struct Options {
        bool smpte = true;  // whether the division may be
        std::uint32_t quarters = 24;
        std::uint32_t mostChannels = 16;
        std::uint32_t eventsPerChannel = 120;
    };

    explicit SongGenerator(std::uint32_t seed) : random_(seed) {}
    SongGenerator(std::uint32_t seed, Options options) : random_(seed), options_(options) {}

    MidiFile Next() {
        MidiFile file;
        file.name = "generated.mid";
        file.format = static_cast<std::uint16_t>(Below_(2));
        file.division = Division_();
        ticks_ = TicksPerQuarter_(file.division);
        end_ = std::max(1u, options_.quarters * ticks_ + Below_(ticks_));

        std::vector<std::vector<Event>> tracks(1);
        AddTimeline_(tracks[0]);
        const std::uint32_t channels = 1 + Below_(options_.mostChannels);
        std::array<std::uint8_t, 16> order;
        for (std::size_t channel = 0; channel < 16; ++channel) {
            order[channel] = static_cast<std::uint8_t>(channel);
            std::swap(order[channel], order[Below_(static_cast<std::uint32_t>(channel) + 1)]);
        }
        for (std::uint32_t index = 0; index < channels; ++index) {
            const std::uint32_t parts = 1 + (Below_(4) == 0);
            for (std::uint32_t part = 0; part < parts; ++part) {
                if (file.format == 1)
                    tracks.emplace_back();
                AddPart_(tracks.back(), order[index], options_.eventsPerChannel / parts);
            }
        }
        for (std::vector<Event>& events : tracks)
            file.tracks.push_back(Track_(events));
        return file;
    }

    /// As Next(), as a file; with or without running status.
    std::vector<std::uint8_t> NextBytes() {
        const auto mode = Below_(2) ? MidiFileWriter::RunningStatus::kUse : MidiFileWriter::RunningStatus::kNever;
        return MidiFileWriter(mode).Bytes(Next());
    }

private:
    struct Event {
        std::uint32_t tick;
        std::uint8_t status;
        std::uint8_t data1;
        std::uint8_t data2;
        std::string payload = {};
    };

    /// Not a distribution of the standard library, which differ between machines.
    std::uint32_t Below_(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    std::uint8_t Byte_(std::uint32_t limit = 128) { return static_cast<std::uint8_t>(Below_(limit)); }

    std::uint16_t Division_() {
        // The last ones but SMPTE cannot be scaled within 16 bits.
        constexpr std::array<std::uint16_t, 18> kDivisions = {
            24, 96, 480, 960, 1, 7, 25, 100, 101, 384, 1023, 15360, 2731, 32767, 0xE728, 0xE804, 0xE350, 0xE20A};
        return kDivisions[Below_(options_.smpte ? 18 : 14)];
    }

    static std::uint32_t TicksPerQuarter_(std::uint16_t division) {
        if (division < 0x8000)
            return division;
        return (256u - (division >> 8)) * (division & 0xFFu) / 2;  // at about 120 a minute
    }

    std::uint32_t Tick_() { return Below_(end_ + 1); }

    void AddMeta_(std::vector<Event>& events, std::uint32_t tick, std::uint8_t type, std::string payload) {
        events.push_back({tick, 0xFF, type, 0, std::move(payload)});
    }

    void AddTimeline_(std::vector<Event>& events) {
        AddMeta_(events, 0, 0x03, "Song " + std::to_string(Below_(1000)));
        for (std::uint32_t count = Below_(12); count > 0; --count) {
            const std::uint32_t tempo = 200'000 + Below_(1'500'000);  // 35 to 300 a minute
            AddMeta_(events, Below_(3) == 0 ? 0 : Tick_(), 0x51,
                     {static_cast<char>(tempo >> 16), static_cast<char>(tempo >> 8), static_cast<char>(tempo)});
        }
        for (std::uint32_t count = Below_(5); count > 0; --count) {
            const char clocks = static_cast<char>(Below_(3) == 0 ? 0 : 6 * (1 + Below_(12)));
            AddMeta_(events, Below_(3) == 0 ? 0 : Tick_(), 0x58,
                     {static_cast<char>(1 + Below_(13)), static_cast<char>(Below_(6)), clocks,
                      static_cast<char>(Below_(3) == 0 ? 0 : 8)});
        }
        for (std::uint32_t count = Below_(4); count > 0; --count)
            AddMeta_(events, Tick_(), 0x59,
                     {static_cast<char>(static_cast<int>(Below_(15)) - 7), static_cast<char>(Below_(2))});
        for (std::uint32_t count = Below_(5); count > 0; --count)
            AddMeta_(events, Tick_(), 0x06, "Marker " + std::to_string(count));
    }

    void AddPart_(std::vector<Event>& events, std::uint8_t channel, std::uint32_t count) {
        const auto add = [&](std::uint32_t tick, int kind, std::uint8_t data1, std::uint8_t data2) {
            events.push_back({tick, static_cast<std::uint8_t>(kind | channel), data1, data2});
        };
        if (Below_(2))
            AddMeta_(events, 0, 0x03, "Part " + std::to_string(channel));
        if (Below_(2))
            add(0, 0xC0, Byte_(), 0);
        for (; count > 0; --count) {
            const std::uint32_t tick = Tick_();
            const std::uint32_t kind = Below_(16);
            if (kind < 9 && tick < end_) {
                const std::uint8_t note = Byte_();
                const std::uint32_t length = 1 + Below_(std::min(end_ - tick, 1 + 2 * ticks_));
                add(tick, 0x90, note, static_cast<std::uint8_t>(1 + Below_(127)));
                if (Below_(2))
                    add(std::min(end_, tick + length), 0x80, note, Byte_());
                else
                    add(std::min(end_, tick + length), 0x90, note, 0);
            } else if (kind < 11) {
                add(tick, 0xB0, Byte_(), Byte_());  // channel mode among them
            } else if (kind == 11) {
                const std::uint8_t controller = Byte_(120);
                for (std::uint32_t step = 0; step < 40; ++step)  // a sweep, several in a clock
                    add(std::min(end_, tick + step * ticks_ / 96), 0xB0, controller, Byte_());
            } else if (kind == 12) {
                add(tick, 0xE0, Byte_(), Byte_());
            } else if (kind == 13) {
                add(tick, 0xC0, Byte_(), 0);
            } else if (kind == 14) {
                add(tick, Below_(2) ? 0xD0 : 0xA0, Byte_(), 0);
            } else if (Below_(2)) {
                events.push_back({tick, 0xF0, 0, 0, "\x7E\x7F\x09\x01\xF7"});
            } else {
                AddMeta_(events, tick, 0x05, "la");
            }
        }
    }

    MidiTrack Track_(std::vector<Event>& events) {
        std::ranges::stable_sort(events, {}, &Event::tick);
        MidiTrack track;
        for (Event& event : events) {
            if (event.status == 0xFF)
                track.AddMeta(event.tick, event.data1, std::move(event.payload));
            else if (event.status >= 0xF0)
                track.AddSysEx(event.tick, event.status, std::move(event.payload));
            else
                track.AddMessage(event.tick, event.status, event.data1, event.data2);
        }
        if (Below_(2))
            track.EndAt(end_);
        return track;
    }

    std::mt19937 random_;
    Options options_{};
    std::uint32_t ticks_ = 0;
    std::uint32_t end_ = 0;
};

}  // namespace player
