#include <gmock/gmock.h>

#include <map>
#include <thread>

#include "midi/ambrel_midi_stream.h"
#include "midi/midi_scaler.h"
#include "midi/midi_volume_scaler.h"
#include "midi/quorvel_midi_stream.h"
#include "tests/midi/recording_midi_buffer.h"
#include "vemo_core/song_builder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Names = std::map<unsigned short, std::string>;
using Programs = std::map<unsigned short, unsigned char>;

/// Three tracks whose ranges cover note 60 only on the last; the first is the
/// percussion, the second the same channel of the next port.
SongBuilder Song() {
    SongBuilder song(24);
    song.Track(9, "Drums", 0, 10, 1, {{0, 0x90, 9, 60, 1}, {4, 0x80, 9, 60, 0}})
        .Track(25, "Bells", 0, 10, 2, {{0, 0x90, 25, 60, 2}, {4, 0x80, 25, 60, 0}})
        .Track(3, "Harp", 48, 72, 3, {{0, 0x90, 3, 60, 3}, {4, 0x80, 3, 60, 0}});
    return song.EndAt(48);
}

TEST(QuorvelMidiStream, TransposesEveryTrackWhateverItsRangeButThePercussionAndHasDefaultPrograms) {
    QuorvelMidiStream stream(Song().BuildSong());
    RecordingMidiBuffer buffer;
    stream.EnqueueEvents(5, 2, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("0@0 93 3e 03", "0@4 83 3e 00", "0@0 99 3c 01", "0@4 89 3c 00",
                                           "1@0 99 3e 02", "1@4 89 3e 00"));
    stream.ResetProgramChanges();
    EXPECT_EQ(stream.GetCurrentProgramChangesByTrackId(), (Programs{{3, 3}, {9, 1}, {25, 2}}));
}

TEST(AmbrelMidiStream, KeepsTheSongsRangesAndHasNoDefaultPrograms) {
    MidiVolumeScaler scaler;
    AmbrelMidiStream stream(Song().BuildSong(), scaler);
    RecordingMidiBuffer buffer;
    stream.EnqueueEvents(1, 2, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("0@0 93 3e 03", "0@0 99 3c 01", "1@0 99 3c 02"));
    EXPECT_EQ(stream.GetTrackNamesByTrackId(), (Names{{3, "Harp"}, {9, "Drums"}, {25, "Bells"}}));
    EXPECT_EQ(stream.GetCurrentProgramChangesByTrackId(), (Programs{{3, 0}, {9, 0}, {25, 0}}));
    stream.ResetProgramChanges();
    EXPECT_EQ(stream.GetCurrentProgramChangesByTrackId(), Programs{});
}

TEST(MidiVolumeScaler, ScalesByPercentRoundedDownAndNeverBeyondTheHighestValue) {
    const struct {
        int trim, stored, value, scaled;
    } cases[] = {{100, 100, 127, 127}, {100, 100, 1, 1}, {50, 50, 127, 63},    {127, 127, 100, 127},
                 {127, 127, 99, 125},  {0, 0, 127, 0},   {200, 127, 100, 127}, {1, 1, 99, 0}};
    for (const auto& row : cases) {
        MidiVolumeScaler scaler;
        scaler.SetTrackTrim(4, static_cast<unsigned char>(row.trim));
        MidiScaler single;
        single.SetScale(static_cast<unsigned char>(row.trim));
        const auto value = static_cast<unsigned char>(row.value);
        EXPECT_EQ(scaler.GetScale(4), row.stored) << row.trim;
        EXPECT_EQ(scaler.GetScaledMidiValue(4, value), row.scaled) << row.trim << " of " << row.value;
        EXPECT_EQ(single.GetScaledMidiValue(value), row.scaled) << row.trim << " of " << row.value;
        EXPECT_EQ(scaler.GetScaledMidiValue(5, value), row.value) << "a track without a trim";
    }
}

/// A volume of 80 at tick 2 on track 0x11, and a controller that is no volume.
SongBuilder VolumeSong() {
    SongBuilder song(24);
    song.Track(0x11, "", 0, 127, 0, {{2, 0xB0, 0x11, 7, 80}, {3, 0xB0, 0x11, 8, 80}, {40, 0xB0, 0x11, 8, 1}});
    return song.EndAt(48);
}

TEST(AmbrelMidiStream, ATrimScalesVolumesOnTheirWayOutAndANewOneLeavesWithTheNextPlainCycleOnce) {
    MidiVolumeScaler scaler;
    AmbrelMidiStream stream(VolumeSong().BuildSong(), scaler);
    RecordingMidiBuffer buffer;
    scaler.SetTrackTrim(0x11, 50);
    stream.EnqueueEvents(4, 0, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("1@0 b1 07 32", "1@2 b1 07 28", "1@3 b1 08 50"));

    scaler.SetTrackTrim(0x11, 10);
    scaler.SetTrackTrim(0x11, 25);
    scaler.SetTrackTrim(0x02, 30);
    stream.EnqueueAttacca(4, 0, buffer);
    EXPECT_THAT(buffer.Take(), ElementsAre("1@2 b1 07 14", "1@3 b1 08 50", "1@0 e1 00 40"));
    stream.EnqueueEvents(5, 0, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("0@0 b2 07 1e", "1@2 b1 07 14"));
    stream.EnqueueEvents(6, 0, buffer, false);
    EXPECT_THAT(buffer.Take(), IsEmpty());
}

TEST(AmbrelMidiStream, TheLastTrimOfAnOperatorWhoTurnsTheKnobDuringTheCyclesArrives) {
    MidiVolumeScaler scaler;
    AmbrelMidiStream stream(VolumeSong().BuildSong(), scaler);
    RecordingMidiBuffer buffer;
    stream.EnqueueEvents(4, 0, buffer, false);
    std::thread knob([&] {
        for (int turn = 0; turn <= 20'000; ++turn)
            scaler.SetTrackTrim(0x11, static_cast<unsigned char>(turn % 101));
    });
    int unscaled = 0;
    for (int cycle = 0; cycle < 2'000; ++cycle) {
        buffer.Clear();
        stream.EnqueueEvents(5, 0, buffer, false);
        for (const auto& sent : buffer.GetSent())
            unscaled += sent.event.message.data2 > 80;
    }
    knob.join();
    EXPECT_EQ(unscaled, 0);
    buffer.Clear();
    scaler.SetTrackTrim(0x11, 75);
    stream.EnqueueEvents(6, 0, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("1@2 b1 07 3c"));
}

}  // namespace
