#include "player/playback_feed.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>

namespace player {
namespace {

PlaybackRecord At(std::uint32_t tick) {
    PlaybackRecord record;
    record.tick = tick;
    return record;
}

TEST(PlaybackFeed, EveryReaderGetsEveryRecordInOrder) {
    constexpr std::uint32_t kRecords = 50'000;  // the queue grows while it is read
    PlaybackFeed feed(PlaybackFeed::Lag::kGrow);
    const auto early = feed.Subscribe();
    const auto busy = feed.Subscribe();
    std::uint32_t read = 0;
    std::uint32_t disorder = 0;
    std::thread reader([&] {
        while (const auto record = busy->Next())
            disorder += record->tick != read++;
    });
    for (std::uint32_t tick = 0; tick < kRecords; ++tick)
        feed.Publish(At(tick));
    const auto late = feed.Subscribe();
    feed.Publish(At(kRecords));
    feed.Close();
    reader.join();
    EXPECT_EQ(read, kRecords + 1);
    EXPECT_EQ(disorder, 0u);
    for (std::uint32_t tick = 0; tick <= kRecords; ++tick)
        ASSERT_EQ(early->Next()->tick, tick);
    EXPECT_FALSE(early->Next());
    EXPECT_EQ(late->Next()->tick, kRecords);
    EXPECT_FALSE(late->Next());
    EXPECT_EQ(busy->GetDropped(), 0u);
}

TEST(PlaybackFeed, AReaderThatIsStuckLosesTheOldestAndMakesNobodyWait) {
    for (const auto& [lag, most] :
         {std::pair(PlaybackFeed::Lag::kDropOldest, PlaybackFeed::Subscription::kUsualRecords),
          std::pair(PlaybackFeed::Lag::kGrow, PlaybackFeed::Subscription::kMostRecords)}) {
        PlaybackFeed feed(lag);
        const auto stuck = feed.Subscribe();
        for (std::uint32_t tick = 0; tick < most + 3; ++tick)
            feed.Publish(At(tick));
        EXPECT_EQ(stuck->GetDropped(), 3u);
        EXPECT_EQ(stuck->Next()->tick, 3u);
        feed.Publish(At(static_cast<std::uint32_t>(most + 3)));
        EXPECT_EQ(stuck->GetDropped(), 3u);
        EXPECT_EQ(stuck->Next()->tick, 4u);
    }
}

}  // namespace
}  // namespace player
