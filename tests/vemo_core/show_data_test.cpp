#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "vemo_core/ambrel_show_data.h"
#include "vemo_core/song_builder.h"

namespace {

vemo_midi::SongData Song(unsigned int end) {
    return SongBuilder(24).EndAt(end).BuildSong();
}

TEST(ShowData, KeepsTheOrderInWhichSongsWereAddedWhateverTheirKeys) {
    vemo_midi::ShowData show;
    show.Add("zulu", Song(1));
    show.Add("alpha", Song(2));
    show.Add("mike", Song(3));
    EXPECT_THROW(show.Add("alpha", Song(4)), std::invalid_argument);
    EXPECT_THROW(show.at("none"), std::out_of_range);

    std::vector<std::string> keys;
    for (const auto& [key, song] : show)
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"zulu", "alpha", "mike"}));
    EXPECT_EQ(show.at("alpha").GetTimeline().GetLastTickIndex(), 2u);
}

}  // namespace
