#include "zell/ptr_map.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Map = zell::ptr_map<unsigned short, std::string>;

TEST(PtrMap, ACopyOwnsItsValuesAndReferencesSurviveInsertions) {
    Map map;
    EXPECT_TRUE(map.insert(9, std::make_unique<std::string>("drums")));
    std::string& drums = map.at(9);
    EXPECT_TRUE(map.insert(2, std::make_unique<std::string>("bass")));
    EXPECT_FALSE(map.insert(2, std::make_unique<std::string>("other")));

    Map copy = map;
    drums = "changed";
    EXPECT_EQ(map.at(9), "changed");
    EXPECT_EQ(copy.at(9), "drums");

    std::vector<std::pair<int, std::string>> walked;
    for (const auto& entry : std::as_const(copy))
        walked.emplace_back(entry.first, entry.second);
    EXPECT_EQ(walked, (std::vector<std::pair<int, std::string>>{{2, "bass"}, {9, "drums"}}));
}

TEST(PtrMap, RefusesAKeyThatIsNotThere) {
    const Map map;
    try {
        map.at(1);
        FAIL();
    } catch (const std::out_of_range& refusal) {
        EXPECT_STREQ(refusal.what(), "ptr_map has no such key");
    }
}

}  // namespace
