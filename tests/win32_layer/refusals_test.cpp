#include "win32_layer/Sources/real_devices/refusals.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using testing::ElementsAre;
using win32_layer::DeviceAddress;
using win32_layer::DeviceSystem;
using win32_layer::Refusals;

const DeviceAddress kSynth{DeviceSystem::kAlsa, "Synth:Synth MIDI 1 20:0", nullptr, {}};
const DeviceAddress kKeys{DeviceSystem::kAlsa, "Keys:Keys MIDI 1 24:0", nullptr, {}};

/// The looks at which the synth, which is there at each and refuses, is tried.
std::vector<int> TriesIn(Refusals& refusals, int looks) {
    std::vector<int> tries;
    for (int look = 0; look < looks; ++look) {
        refusals.BeginLook({kKeys, kSynth});
        if (refusals.HasToWait(kSynth))
            continue;
        tries.push_back(look);
        refusals.Add(kSynth);
    }
    return tries;
}

TEST(Refusals, ADeviceThatRefusesIsTriedEverMoreRarelyButAtLeastTwiceAMinute) {
    Refusals refusals;
    EXPECT_FALSE(refusals.HasRefused(kSynth));
    EXPECT_THAT(TriesIn(refusals, 122), ElementsAre(0, 1, 3, 7, 15, 31, 61, 91, 121));
    EXPECT_TRUE(refusals.HasRefused(kSynth));
    EXPECT_FALSE(refusals.HasRefused(kKeys)) << "another device is not to blame";
    EXPECT_FALSE(refusals.HasToWait(kKeys));
}

TEST(Refusals, ADeviceThatWasAwayOrTakesMessagesAgainStartsAnew) {
    for (const bool wasAway : {true, false}) {
        Refusals refusals;
        TriesIn(refusals, 20);
        if (wasAway)
            refusals.BeginLook({kKeys});
        else
            refusals.Forget(kSynth);
        EXPECT_FALSE(refusals.HasRefused(kSynth)) << wasAway;
        EXPECT_THAT(TriesIn(refusals, 8), ElementsAre(0, 1, 3, 7)) << wasAway;
    }
}

}  // namespace
