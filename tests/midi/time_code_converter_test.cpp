#include "midi/time_code_converter.h"

#include <gmock/gmock.h>

#include <utility>
#include <vector>

#include "vemo_core/song_builder.h"

namespace {

using testing::Pair;

TL::Timeline TimelineOf(std::vector<TL::Tempo> tempos, unsigned int lastTick) {
    return {lastTick, {}, TL::TimelineSequence<TL::Tempo>(std::move(tempos)), {}, {}, {}};
}

// At 480 ticks a quarter note, 120 a minute pass a tick in 1/960 s.
vemo_midi::ShowData TwoSongs() {
    vemo_midi::ShowData show;
    show.Add("second by name", SongBuilder(480).Tempo(0, 120).Tempo(1920, 60).EndAt(3840).BuildSong());
    show.Add("first by name", SongBuilder(24).Tempo(0, 60).EndAt(48).BuildSong());
    return show;
}

TEST(TimeCodeConverter, LaysTheSongsEndToEndThroughTheirTempos) {
    TimeCodeConverter converter(TwoSongs());
    EXPECT_THAT(converter.GetTimeCodeSecondsPair(960), Pair(0.0, 0.0)) << "before the first song";
    converter.UpdateToNewSong("second by name", 480);
    const struct {
        unsigned int tick;
        double seconds;
    } rows[] = {{0, 0.0}, {960, 1.0}, {1919, 1919 / 960.0}, {1920, 2.0}, {2400, 3.0}, {3840, 6.0}, {4320, 7.0}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(converter.ConvertTickIndexToSeconds(row.tick), row.seconds) << row.tick;
    EXPECT_THAT(converter.GetTimeCodeSecondsPair(0), Pair(0.0, testing::DoubleEq(20 / 960.0)));
    const double end = converter.ConvertTickIndexToSeconds(3840);
    converter.UpdateToNewSong("first by name", 23);
    EXPECT_THAT(converter.GetTimeCodeSecondsPair(0), Pair(end, end));
    EXPECT_DOUBLE_EQ(converter.ConvertTickIndexToSeconds(24), 7.0);
    converter.UpdateToNewSong("no such song", 480);
    EXPECT_THAT(converter.GetTimeCodeSecondsPair(960), Pair(0.0, 0.0));
}

TEST(TimeCodeConverter, ACopyIsAtTheSameSongOfItsOwnShow) {
    TimeCodeConverter copy{vemo_midi::ShowData()};
    {
        TimeCodeConverter converter(TwoSongs());
        converter.UpdateToNewSong("first by name", 24);
        TimeCodeConverter other(converter);
        converter.UpdateToNewSong("second by name", 480);
        copy = other;
    }
    EXPECT_DOUBLE_EQ(copy.ConvertTickIndexToSeconds(24), 7.0);
    EXPECT_EQ(copy.GetTimeCodeSecondsPair(0).second, copy.ConvertTickIndexToSeconds(1));
}

TEST(SongTimeCodeReference, HasAnAnswerForEveryTick) {
    const SongTimeCodeReference late(10.0, TimelineOf({{960, 60}, {960, 120}}, 1920), 480);
    EXPECT_EQ(late.GetTimeCodeAtTickIndex(5).GetSeconds(), 10.0) << "before the first tempo";
    EXPECT_DOUBLE_EQ(late.GetSongEndSeconds(), 11.0) << "the last of two tempos at a tick";
    const TimeCodePoint point = late.GetTimeCodeAtTickIndex(1440);
    EXPECT_EQ(point.GetTickIndex(), 1440U);
    EXPECT_DOUBLE_EQ(point.GetSecondsPerTick(), 1 / 960.0);
    EXPECT_DOUBLE_EQ(point.GetSeconds(), 10.5);
    const SongTimeCodeReference none(10.0, TimelineOf({}, 1920), 480);
    EXPECT_EQ(none.GetSongEndSeconds(), 10.0);
    EXPECT_EQ(none.GetTimeCodeAtTickIndex(960).GetSeconds(), 10.0);
}

}  // namespace
