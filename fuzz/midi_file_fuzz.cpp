// Any bytes at all, read and imported as a song. What is refused is refused by
// MidiFileError; what is accepted holds together and survives being written again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "player/midi_file_error.h"
#include "player/midi_file_import.h"
#include "player/midi_file_reader.h"
#include "player/midi_file_writer.h"
#include "player/song_inspection.h"

namespace {

void Require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

void RequireSame(const player::MidiFile& first, const player::MidiFile& second) {
    Require(first.tracks.size() == second.tracks.size(), "as many tracks after writing");
    for (std::size_t index = 0; index < first.tracks.size(); ++index) {
        const player::MidiTrack& a = first.tracks[index];
        const player::MidiTrack& b = second.tracks[index];
        Require(a.EndTick() == b.EndTick() && a.Events().size() == b.Events().size(), "the same track after writing");
        for (std::size_t event = 0; event < a.Events().size(); ++event) {
            const player::MidiTrack::Event& x = a.Events()[event];
            const player::MidiTrack::Event& y = b.Events()[event];
            Require(x.tick == y.tick && x.status == y.status && x.data1 == y.data1 && x.data2 == y.data2,
                    "the same event after writing");
            Require(x.status < 0xF0 || a.Payload(x) == b.Payload(y), "the same payload after writing");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    player::MidiFile file;
    try {
        file = player::ParseMidiFile({data, size}, "fuzz.mid");
    } catch (const player::MidiFileError&) {
        return 0;
    }
    if (file.format == 1 || file.tracks.size() == 1) {
        using Writer = player::MidiFileWriter;
        for (const auto mode : {Writer::RunningStatus::kNever, Writer::RunningStatus::kUse})
            RequireSame(file, player::ParseMidiFile(Writer(mode).Bytes(file), "again.mid"));
    }
    try {
        const player::ImportedSong song = player::ImportMidiFile(file, 1);
        const std::uint32_t last = song.song.GetTimeline().GetLastTickIndex();
        Require(song.song.GetResolution() % 24 == 0, "whole ticks in a clock");
        Require(song.song.GetVoiceData().size() == song.summary.channels.size(), "an account of every track");
        for (const auto& [id, track] : song.song.GetVoiceData())
            for (const vemo_midi::VoiceEvent& event : track.GetEvents())
                Require(event.IsValidVoiceEvent() && event.time <= last, "valid events within the song");
        Require(!player::InspectSong(song).empty(), "a description");
    } catch (const player::MidiFileError&) {
        return 0;
    }
    return 0;
}
