#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "midi/ambrel_midi_stream_collection.h"
#include "midi/quorvel_midi_stream_collection.h"
#include "tests/midi/exception_capture.h"
#include "tests/midi/patience.h"
#include "tests/midi/recording_midi_buffer.h"
#include "vemo_core/song_builder.h"

using testing::ElementsAre;

namespace {

/// Songs "0", "1" and so on: a program on track 1, a volume on tracks 2 to 4.
ambrel::AmbrelShowData Show(int songs) {
    ambrel::AmbrelShowData show;
    for (int number = 0; number < songs; ++number) {
        SongBuilder song(24);
        song.Track(1, "", 0, 127, 0, {{0, 0xC0, 1, 9, 0}});
        for (unsigned short id = 2; id <= 4; ++id)
            song.Track(id, "", 0, 127, 0, {{0, 0xB0, id, 7, 80}});
        show.Add(std::to_string(number), song.EndAt(48).BuildSong());
    }
    show.AddGroup(5, {1, 2, 4});
    return show;
}

/// The channels of what the stream's first cycle sends.
std::string Sent(MidiStream& stream) {
    RecordingMidiBuffer buffer;
    stream.Seek(0);
    stream.EnqueueEvents(1, 0, buffer, false);
    std::string channels;
    for (const auto& sent : buffer.GetSent())
        channels += std::to_string(sent.event.message.status & 0x0F);
    return channels;
}

/// A host's own form: tells each song's number before it builds it.
class WatchedCollection final : public QuorvelMidiStreamCollection {
public:
    WatchedCollection(const vemo_midi::ShowData& show, std::function<void(int)> onSong)
        : QuorvelMidiStreamCollection(show, LeftToDerivedForm()), onSong_(std::move(onSong)) {
        StartLoadStreamsThread();
    }
    ~WatchedCollection() override { StopLoading(); }

private:
    MidiStream* CreateMidiStream(const vemo_midi::SongData& song) override {
        onSong_(count_++);
        return QuorvelMidiStreamCollection::CreateMidiStream(song);
    }

    const std::function<void(int)> onSong_;
    int count_ = 0;  // of the loading thread
};

TEST(MidiStreamCollection, EachSongIsThereAsSoonAsItIsBuiltForEveryoneWhoWaits) {
    const auto show = Show(4);
    Door doors[4];
    doors[0].Open();
    WatchedCollection collection(show, [&](int song) { doors[song].Pass(); });
    MustEnd("the first song", [&] { collection.GetStream("0"); });
    EXPECT_TRUE(collection.GetStreamIsLoaded("0"));
    EXPECT_FALSE(collection.GetStreamIsLoaded("1") || collection.GetLoadingHasEnded());
    Count woken;
    std::vector<std::thread> askers;
    for (const char* key : {"3", "2", "1"})
        askers.emplace_back([&collection, &woken, key] {
            collection.GetStream(key);
            woken.Add();
        });
    askers.emplace_back([&] { EXPECT_THROW(collection.GetStream("no such song"), std::out_of_range); });
    for (int song = 1; song < 4; ++song) {
        doors[song].Open();
        EXPECT_TRUE(woken.WaitFor(song)) << song;
    }
    MustEnd("an asker", [&] { std::ranges::for_each(askers, &std::thread::join); });
    EXPECT_TRUE(collection.GetLoadingHasEnded());
}

TEST(MidiStreamCollection, ASongThatIsNotThereFailsAndOneThatCannotBeBuiltIsReported) {
    auto show = Show(3);
    const auto empty = Show(0);
    EXPECT_THROW(show.Add("1", show.at("0")), std::invalid_argument);
    EXPECT_THROW(show.at("3"), std::out_of_range);
    EXPECT_EQ(&show.at("1"), &(show.begin() + 1)->second);
    ExceptionCapture exceptions;
    MustEnd("asking for songs that are not there", [&] {
        EXPECT_THROW(QuorvelMidiStreamCollection(empty).GetStream("0"), std::out_of_range);
        WatchedCollection standard(show, [](int song) {
            if (song == 1)
                throw std::runtime_error("it burnt");
        });
        EXPECT_THROW(standard.GetStream("2"), std::out_of_range);
        EXPECT_EQ(Sent(standard.GetStream("0")), "1234");
        EXPECT_THROW(standard.GetStream("1"), std::out_of_range);
        EXPECT_THROW(standard.GetCurrentStream(), std::out_of_range) << "the current song is the one asked for";
        WatchedCollection other(show, [](int song) { throw song; });
        EXPECT_THROW(other.GetStream("0"), std::out_of_range);
    });
    EXPECT_THAT(exceptions.Take(), ElementsAre("midi/Sources/midi_stream_collection: it burnt",
                                               "midi/Sources/midi_stream_collection: Unknown exception."));
}

TEST(MidiStreamCollection, ClosingAShowThatLoadsWaitsForTheSongInProgressAndNotForTheRest) {
    const auto show = Show(200);
    int begun = 0;
    MustEnd("the closing", [&] {
        WatchedCollection collection(show, [&](int) {
            ++begun;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        });
        collection.GetStream("0");
    });
    EXPECT_LT(begun, 100);
    for (int round = 0; round < 100; ++round) {
        const AmbrelMidiStreamCollection closedAtOnce(show);
        const QuorvelMidiStreamCollection other(show);
    }
}

TEST(MidiStreamCollection, EachSongBeginsWithItsOwnProgramsAndMutes) {
    const auto show = Show(2);
    QuorvelMidiStreamCollection collection(show);
    collection.GetStream("0").SetUserProgramChange(1, 5);
    EXPECT_EQ(Sent(collection.GetCurrentStream()), "234");
    EXPECT_EQ(Sent(collection.GetStream("0")), "1234");
    collection.MuteTrack(1);
    collection.MuteGroup(5);
    collection.SetMutedTracks({{2, true}, {3, true}});
    collection.UnmuteTrack(3);
    EXPECT_EQ(Sent(collection.GetCurrentStream()), "334") << "unmuted, and so chased";
    EXPECT_EQ(Sent(collection.GetStream("1")), "1234");
    EXPECT_EQ(Sent(collection.GetStream("0")), "1234");
}

TEST(AmbrelMidiStreamCollection, MutesAndTrimsHoldFromSongToSong) {
    const auto show = Show(2);
    AmbrelMidiStreamCollection collection(show);
    EXPECT_THROW(collection.MuteTrack(3), std::out_of_range);
    EXPECT_EQ(Sent(collection.GetStream("0")), "124") << "muted before the first song";
    collection.MuteGroup(5);
    collection.MuteGroup(6);
    EXPECT_THAT(collection.GetMutedTracks(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(Sent(collection.GetCurrentStream()), "");
    collection.UnmuteTrack(2);
    EXPECT_EQ(Sent(collection.GetStream("1")), "2") << "entered, and so not chased";
    collection.UnmuteGroup(5);
    EXPECT_EQ(Sent(collection.GetStream("0")), "124");
    collection.UnmuteAll();
    EXPECT_EQ(Sent(collection.GetCurrentStream()), "1234");
    EXPECT_EQ(Sent(collection.GetStream("1")), "1234");
    collection.SetTrackTrim(2, 50);
    RecordingMidiBuffer buffer;
    collection.GetStream("1").EnqueueEvents(1, 0, buffer, false);
    EXPECT_THAT(buffer.Take(), ElementsAre("0@0 b2 07 28")) << "an unmuted track's volume, trimmed";
}

}  // namespace
