#include "player/playback_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "player/midi_file_import.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"

namespace player {
namespace {

constexpr unsigned kSeeds = 12;

ImportedSong GeneratedSong(unsigned seed) {
    SongGenerator::Options options;
    options.quarters = 12;
    options.mostChannels = 6;
    options.eventsPerChannel = 60;
    return ImportMidiFile(SongGenerator(seed, options).Next(), 1);
}

std::uint32_t TicksPerClock(const ImportedSong& song) {
    return song.song.GetResolution() / 24u;
}

std::string Text(const std_midi::VoiceMessage& message) {
    return std::to_string(message.status) + " " + std::to_string(message.data1) + " " + std::to_string(message.data2);
}

TEST(PlaybackHost, EveryMessageOfASongLeavesOnceInOrderInTheCycleOfItsClock) {
    for (unsigned seed = 1; seed <= kSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const ImportedSong song = GeneratedSong(seed);
        const std::uint32_t ticksPerClock = TicksPerClock(song);
        OfflineShow show({song});
        ASSERT_EQ(show.Run(), TransportState::kEnded);
        EXPECT_EQ(show.Deaf().WhatSounds(), "");
        std::map<std::uint32_t, std::chrono::nanoseconds> clocks;
        for (const PlaybackRecord& record : show.TakeRecords())
            if (record.kind == PlaybackRecord::Kind::kClock)
                clocks[record.tick] = record.time;

        for (const auto& [id, track] : song.song.GetVoiceData()) {
            std::vector<OfflineShow::Sent> sent;
            for (const OfflineShow::Sent& one : show.GetSent())
                if ((one.message.status & 0x0F) == id)
                    sent.push_back(one);
            const auto& events = track.GetEvents();
            const auto first = std::search(sent.begin(), sent.end(), events.begin(), events.end(),
                                           [](const auto& a, const auto& b) { return a.message == b.message; });
            ASSERT_TRUE(first != sent.end() || events.empty()) << "channel " << id;
            // Around them stands what sets a state or ends it, and nothing that sounds.
            const auto last = first + static_cast<std::ptrdiff_t>(events.size());
            for (auto extra = sent.begin(); extra != sent.end(); ++extra) {
                const bool isOfSong = extra >= first && extra < last;
                EXPECT_TRUE(isOfSong || (extra->message.status & 0xF0) != 0x90)
                    << "channel " << id << ": " << Text(extra->message);
            }
            for (std::size_t i = 0; i < events.size(); ++i)
                ASSERT_EQ(first[static_cast<std::ptrdiff_t>(i)].time,
                          clocks.at(events[i].time / ticksPerClock * ticksPerClock))
                    << "channel " << id << " tick " << events[i].time << ": " << Text(events[i].message);
        }
    }
}

}  // namespace
}  // namespace player
