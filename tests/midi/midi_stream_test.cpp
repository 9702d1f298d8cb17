#include "midi/midi_stream.h"

#include <gmock/gmock.h>

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "midi/ambrel_midi_stream.h"
#include "midi/midi_volume_scaler.h"
#include "tests/midi/recording_midi_buffer.h"
#include "vemo_core/song_builder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned short kResolution = 24;  // a tick is a clock, a beat 24 ticks
constexpr bool kAfterSeek = true;
constexpr bool kInPlace = false;

/// A stream whose tracks keep the ranges of the song.
struct Stream {
    MidiVolumeScaler scaler;
    AmbrelMidiStream stream;
    RecordingMidiBuffer buffer;

    explicit Stream(const SongBuilder& song) : stream(song.BuildSong(), scaler) {}

    std::vector<std::string> Cycle(std::uint32_t tickIndex, signed char transposition = 0) {
        stream.EnqueueEvents(tickIndex, transposition, buffer, false);
        return buffer.Take();
    }
    std::vector<std::string> InitialCycle(std::uint32_t tickIndex, signed char transposition = 0) {
        stream.EnqueueInitialEvents(tickIndex, transposition, buffer);
        return buffer.Take();
    }
    std::vector<std::string> PersistenceCycle(std::uint32_t tickIndex, signed char transposition, signed char previous,
                                              bool afterSeek) {
        stream.EnqueueEventsWithPersistence(tickIndex, transposition, previous, buffer, afterSeek);
        return buffer.Take();
    }
    std::vector<std::string> Silence(signed char transposition = 0) {
        stream.AllNotesOff(transposition, buffer);
        return buffer.Take();
    }
};

/// Track 1: notes 48 to 72. Held across the beat at 24: note 60, switch 30,
/// pedal, bend, program. At 24 the pedal goes up, at 30 note 62 begins, at 36 note
/// 60 ends. Goes on to tick 90.
SongBuilder OneTrack() {
    SongBuilder song(kResolution);
    song.Track(1, "Piano", 48, 72, 0,
               {{0, 0xC0, 1, 5, 0},
                {2, 0xB0, 1, 64, 127},
                {4, 0xE0, 1, 0, 80},
                {6, 0x90, 1, 30, 90},
                {8, 0x90, 1, 60, 100},
                {24, 0xB0, 1, 64, 0},
                {30, 0x90, 1, 62, 70},
                {36, 0x80, 1, 60, 0},
                {80, 0x80, 1, 62, 0},
                {90, 0x80, 1, 30, 0}});
    return song.EndAt(96);
}

TEST(MidiStream, ATrackBeyondThePortsIsNotPlayedOnSomebodyElses) {
    SongBuilder song(kResolution);
    song.Track(0x1000, "Port 256", 0, 127, 0, {{0, 0x90, 0, 60, 1}})
        .Track(0x40, "Port 4", 0, 127, 0, {{0, 0x90, 0, 61, 1}})
        .EndAt(48);
    Stream show(song);
    EXPECT_THAT(show.InitialCycle(24), IsEmpty());
}

TEST(MidiStream, TheAllNotesOffFlagIsForThePlainCycleThatAsks) {
    Stream show(OneTrack());
    show.stream.EnqueueEvents(1, 0, show.buffer, false);
    EXPECT_FALSE(show.buffer.GetShouldSendAllNotesOff());
    show.stream.EnqueueEvents(2, 0, show.buffer, true);
    EXPECT_TRUE(show.buffer.GetShouldSendAllNotesOff());
}

TEST(MidiStream, EnteringASongSendsItsStateInTheOrderThatSoundsRight) {
    const struct {
        std::uint32_t tick;
        signed char transposition;
        std::vector<std::string> sent;
    } cases[] = {
        {0, 0, {"0@0 e1 00 40"}},
        {8, 0, {"0@6 91 1e 5a", "0@2 b1 40 7f", "0@4 e1 00 50", "0@0 c1 05 00"}},
        {9, 2, {"0@6 91 1e 5a", "0@2 b1 40 7f", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3e 64"}},
        {24, 0, {"0@6 91 1e 5a", "0@2 b1 40 7f", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3c 64"}},
        {25, 0, {"0@6 91 1e 5a", "0@24 b1 40 00", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3c 64"}},
        {37, 0, {"0@6 91 1e 5a", "0@24 b1 40 00", "0@4 e1 00 50", "0@0 c1 05 00", "0@30 91 3e 46"}},
    };
    for (const auto& row : cases) {
        Stream show(OneTrack());
        show.stream.Seek(row.tick);
        show.stream.EnqueueInitialEvents(row.tick, row.transposition, show.buffer);
        EXPECT_EQ(show.buffer.Take(), row.sent) << row.tick;
        show.stream.Seek(row.tick);
        show.stream.EnqueueAttacca(row.tick, row.transposition, show.buffer);
        EXPECT_EQ(show.buffer.Take(), row.sent) << row.tick;
    }
}

TEST(MidiStream, StandsAtTheSongsStart) {
    Stream show(OneTrack().StartAt(30));
    EXPECT_THAT(show.Cycle(31), ElementsAre("0@30 91 3e 46"));
}

TEST(MidiStream, AfterASeekWhatIsHeldOnBothSidesGoesOnUntouched) {
    Stream show(OneTrack());
    show.InitialCycle(20);
    show.stream.Seek(33);
    // Note 60 and switch 30 go on, the controller that is set here too is not
    // zeroed first, note 62 is struck.
    EXPECT_THAT(show.PersistenceCycle(34, 0, 0, kAfterSeek),
                ElementsAre("0@24 b1 40 00", "0@4 e1 00 50", "0@0 c1 05 00", "0@30 91 3e 46"));
    show.stream.Seek(0);
    EXPECT_THAT(show.PersistenceCycle(0, 0, 0, kAfterSeek),
                ElementsAre("0@8 81 3c 64", "0@30 81 3e 46", "0@6 81 1e 5a", "0@24 b1 40 00", "0@0 e1 00 40"));
}

TEST(MidiStream, ATranspositionEndsTheNotesAtTheOldPitchAndStrikesThemAtTheNew) {
    Stream show(OneTrack());
    show.InitialCycle(20, 1);
    EXPECT_THAT(show.PersistenceCycle(21, -1, 1, kInPlace),
                ElementsAre("0@8 81 3d 64", "0@2 b1 40 7f", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3b 64"));
    EXPECT_THAT(show.Silence(-1), ElementsAre("0@8 81 3b 64", "0@6 81 1e 5a", "0@2 b1 40 00"));
}

TEST(MidiStream, EndsTheNotesOfAllTracksThenTheSwitchesThenTheControllers) {
    SongBuilder song(kResolution);
    for (unsigned short id : {1, 2})
        song.Track(id, "", 48, 72, 0,
                   {{0, 0x90, id, 60, 1}, {0, 0x90, id, 30, 1}, {0, 0xB0, id, 1, 9}, {40, 0x80, id, 60, 0}});
    Stream show(song.EndAt(48));
    show.InitialCycle(1);
    const std::vector<std::string> ended{"0@0 81 3c 01", "0@0 82 3c 01", "0@0 81 1e 01",
                                         "0@0 82 1e 01", "0@0 b1 01 00", "0@0 b2 01 00"};
    EXPECT_EQ(show.Silence(), ended);
    EXPECT_EQ(show.Silence(), ended) << "silencing changes no state";
    show.stream.Seek(0);
    auto sent = show.PersistenceCycle(0, 0, 0, kAfterSeek);
    sent.resize(ended.size());
    EXPECT_EQ(sent, ended);
}

TEST(MidiStream, ATrackHasAStateUpToTheBeatAfterItsLastEventAndOneInTheSongsLast) {
    SongBuilder song(kResolution);
    song.Track(1, "ends at 24", 0, 127, 0, {{3, 0x90, 1, 60, 1}, {23, 0xE0, 1, 0, 70}})
        .Track(2, "ends at 72", 0, 127, 0, {{50, 0xE0, 2, 0, 71}})
        .Track(3, "empty", 0, 127, 0, {})
        .EndAt(200);
    const struct {
        std::uint32_t tick;
        std::vector<std::string> sent;
    } cases[] = {
        {23, {"0@0 e1 00 40", "0@3 91 3c 01", "0@0 e2 00 40", "0@0 e3 00 40"}},
        {24, {"0@23 e1 00 46", "0@3 91 3c 01", "0@0 e2 00 40"}},
        {47, {"0@23 e1 00 46", "0@3 91 3c 01", "0@0 e2 00 40"}},
        {48, {"0@0 e2 00 40"}},
        {71, {"0@50 e2 00 47"}},
        {72, {"0@50 e2 00 47"}},
        {199, {"0@50 e2 00 47"}},
    };
    for (const auto& row : cases) {
        Stream show(song);
        show.stream.Seek(row.tick);
        EXPECT_EQ(show.InitialCycle(row.tick), row.sent) << row.tick;
    }
    // A track that goes on after the song's last beat has a state at that beat.
    Stream late(SongBuilder(kResolution)
                    .Track(1, "", 0, 127, 0, {{3, 0xE0, 1, 0, 70}, {40, 0xE0, 1, 0, 71}})
                    .Track(2, "", 0, 127, 0, {{20, 0xE0, 2, 0, 72}})
                    .EndAt(48));
    late.stream.Seek(30);
    EXPECT_THAT(late.InitialCycle(30), ElementsAre("0@3 e1 00 46", "0@20 e2 00 48"));
    // What the ended track held before the seek is ended, and its bend centred.
    Stream show(song);
    show.InitialCycle(24);
    show.stream.Seek(60);
    EXPECT_THAT(show.PersistenceCycle(60, 0, 0, kAfterSeek),
                ElementsAre("0@3 81 3c 01", "0@0 e1 00 40", "0@50 e2 00 47", "0@0 e3 00 40"));
}

TEST(MidiStream, AMutedTrackDropsItsEventsAndIsChasedWhenItReturns) {
    const struct {
        const char* how;
        void (*unmute)(MidiStream&);
        std::vector<std::string> sent;
    } cases[] = {
        {"unmuted",
         [](MidiStream& stream) { stream.UnmuteTrack(1); },
         {"0@6 91 1e 5a", "0@24 b1 40 00", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3e 64", "0@30 91 40 46"}},
        {"unmuted by a map",
         [](MidiStream& stream) {
             stream.SetMutedTracks(std::map<unsigned short, bool>{{1, false}, {2, true}});
         },
         {"0@6 91 1e 5a", "0@24 b1 40 00", "0@4 e1 00 50", "0@0 c1 05 00", "0@8 91 3e 64", "0@30 91 40 46"}},
        {"unmuted and muted again", [](MidiStream& stream) { stream.UnmuteTrack(1), stream.MuteTrack(1); }, {}},
        {"all unmuted", [](MidiStream& stream) { stream.UnmuteAll(); }, {"0@30 91 40 46"}},
        {"set", [](MidiStream& stream) { stream.SetMutedTracks(std::set<unsigned short>{}); }, {"0@30 91 40 46"}},
        {"unmuted and set",
         [](MidiStream& stream) { stream.UnmuteTrack(1), stream.SetMutedTracks(std::set<unsigned short>{}); },
         {"0@30 91 40 46"}},
        {"reset", [](MidiStream& stream) { stream.UnmuteTrack(1), stream.ResetMuteSettings(); }, {"0@30 91 40 46"}},
    };
    for (const auto& row : cases) {
        Stream show(OneTrack());
        show.InitialCycle(5);
        show.stream.MuteTrack(1);
        EXPECT_THAT(show.Cycle(30, 2), IsEmpty()) << row.how;
        row.unmute(show.stream);
        EXPECT_EQ(show.Cycle(31, 2), row.sent) << row.how;
    }
}

TEST(MidiStream, UnmutingWhatWasNotMutedChasesNothing) {
    Stream show(OneTrack());
    show.InitialCycle(30);
    show.stream.UnmuteTrack(1);
    EXPECT_THAT(show.Cycle(31), ElementsAre("0@30 91 3e 46"));
}

TEST(MidiStream, MutedTracksAreSilencedOnceByTheNextCycle) {
    SongBuilder song(kResolution);
    song.Track(0x11, "", 0, 127, 0, {{0, 0x90, 0x11, 60, 1}}).Track(2, "", 0, 127, 0, {{0, 0x90, 2, 60, 1}}).EndAt(48);
    Stream show(song);
    show.InitialCycle(1);
    show.stream.SetMutedTracks(std::set<unsigned short>{0x11, 2});
    show.stream.SendAllNotesOffForMutedTracks();
    EXPECT_THAT(show.Cycle(2), ElementsAre("0@0 b2 7b 00", "0@0 b2 79 00", "1@0 b1 7b 00", "1@0 b1 79 00"));
    EXPECT_THAT(show.Cycle(3), IsEmpty());
    EXPECT_THAT(show.Silence(), ElementsAre("0@0 82 3c 01", "1@0 81 3c 01")) << "muted tracks included";
}

TEST(MidiStream, ATrackThatTheSongLacksFailsTheEnqueueAndLeavesTheBufferUnlocked) {
    Stream show(OneTrack());
    show.stream.MuteTrack(7);
    show.stream.UnmuteTrack(7);
    EXPECT_THROW(show.Cycle(10), std::out_of_range);
    const bool unlocked = std::async(std::launch::async, [&] {
                              const std::unique_lock lock(show.buffer.GetMutex(), std::try_to_lock);
                              return lock.owns_lock();
                          }).get();
    EXPECT_TRUE(unlocked);
}

TEST(MidiStream, AUsersProgramHoldsAgainstTheSongsUntilTheSongIsFollowedAgain) {
    SongBuilder song(kResolution);
    song.Track(1, "", 0, 127, 0, {{0, 0xC0, 1, 5, 0}, {10, 0xC0, 1, 6, 0}, {11, 0x90, 1, 60, 1}}).EndAt(48);
    Stream show(song);
    show.stream.SetUserProgramChange(1, 40);
    EXPECT_THAT(show.InitialCycle(1), ElementsAre("0@0 e1 00 40"));
    EXPECT_EQ(show.stream.GetCurrentProgramChangesByTrackId().at(1), 5);
    EXPECT_THAT(show.Cycle(12), ElementsAre("0@11 91 3c 01"));
    EXPECT_EQ(show.stream.GetCurrentProgramChangesByTrackId().at(1), 6);

    show.stream.FollowMidiProgramChanges();
    EXPECT_THAT(show.Cycle(13), ElementsAre("0@10 c1 06 00"));
    EXPECT_THAT(show.Cycle(14), IsEmpty());

    show.stream.SetUserProgramChanges({{1, 41}});
    show.stream.Seek(5);
    EXPECT_THAT(show.InitialCycle(11), ElementsAre("0@0 e1 00 40"));
    show.stream.FollowMidiProgramChanges();
    show.stream.ResetProgramChanges();
    EXPECT_THAT(show.Cycle(11), IsEmpty());
    show.stream.Seek(5);
    EXPECT_THAT(show.InitialCycle(5), ElementsAre("0@0 e1 00 40", "0@0 c1 05 00"));
}

TEST(MidiStream, ACopyOwnsAllThatItGoesOnWith) {
    auto original = std::make_unique<Stream>(OneTrack());
    original->InitialCycle(10);
    original->stream.Seek(60);
    MidiStream copy = original->stream;  // what sounds is the state before the seek
    MidiStream assigned(SongBuilder(kResolution).EndAt(1).BuildSong());
    assigned = original->stream;
    original->InitialCycle(96);
    original.reset();
    for (MidiStream* stream : {&copy, &assigned}) {
        RecordingMidiBuffer buffer;
        stream->AllNotesOff(0, buffer);
        EXPECT_THAT(buffer.Take(), ElementsAre("0@8 81 3c 64", "0@6 81 1e 5a", "0@2 b1 40 00"));
        stream->EnqueueEvents(81, 0, buffer, false);
        EXPECT_THAT(buffer.Take(), ElementsAre("0@80 81 3e 00"));
        stream->AllNotesOff(0, buffer);
        EXPECT_THAT(buffer.Take(), ElementsAre("0@6 81 1e 5a", "0@24 b1 40 00"));
        stream->Seek(9);
        stream->EnqueueInitialEvents(9, 0, buffer);
        EXPECT_EQ(buffer.Take().size(), 5u);
    }
}

TEST(MidiStream, WithoutSnapshotsItSeeksAsInAnEmptySong) {
    MidiStream stream(OneTrack().BuildSong());
    RecordingMidiBuffer buffer;
    stream.Seek(40);
    stream.EnqueueInitialEvents(96, 0, buffer);
    EXPECT_THAT(buffer.Take(), IsEmpty());
}

}  // namespace
