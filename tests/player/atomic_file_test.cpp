#include "player/atomic_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "tests/midi/full_disk.h"
#include "tests/midi/message_of.h"
#include "tests/player/temporary_folder.h"
#include "zell/errors.h"

namespace {

namespace fs = std::filesystem;
using player::AtomicFile;

class AtomicFileTest : public ::testing::Test {
protected:
    static void Write(AtomicFile& file, const std::string& text) {
        file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    }
    static std::string Refusal(const fs::path& path) {
        return MessageOf<zell::IoError>([&] { AtomicFile file(path); });
    }
    std::ptrdiff_t FilesInFolder() const { return std::distance(fs::directory_iterator(folder_.GetPath()), {}); }

    const TemporaryFolder folder_;
    const fs::path target_ = folder_ / "take.mid";
};

TEST_F(AtomicFileTest, TheOldFileStandsUntilTheNewOneIsWhole) {
    folder_.Put("take.mid", "old");
    AtomicFile file(target_);
    Write(file, "new ");
    Write(file, "take");
    EXPECT_EQ(TemporaryFolder::Contents(target_), "old");
    file.Commit();
    EXPECT_EQ(TemporaryFolder::Contents(target_), "new take");
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(AtomicFileTest, AFileGivenUpLeavesNothing) {
    {
        AtomicFile file(target_);
        Write(file, "half");
        EXPECT_FALSE(fs::exists(target_));
    }
    EXPECT_EQ(FilesInFolder(), 0);
}

TEST_F(AtomicFileTest, RefusesAtOnceWhatItCouldNotReplace) {
    fs::create_directory(folder_ / "sub");
    folder_.Put("locked", "old");
    fs::permissions(folder_ / "locked", fs::perms::owner_read);
    fs::create_symlink(folder_ / "b", folder_ / "a");
    fs::create_symlink(folder_ / "a", folder_ / "b");
    const struct {
        fs::path path;
        std::string reason;
    } cases[] = {
        {folder_ / "none/take.mid", "No such file or directory"},
        {folder_ / "locked/take.mid", "Not a directory"},
        {folder_ / "sub", "it is a folder"},
        {folder_ / "locked", "it is write-protected"},
        {folder_ / "a", "its links lead nowhere"},
        {folder_ / "", "it is no name of a file"},
        {"", "it is no name of a file"},
        {"/dev/null", "it is no plain file"},
    };
    for (const auto& [path, reason] : cases)
        EXPECT_EQ(Refusal(path), "cannot write " + path.string() + ": " + reason);
    EXPECT_EQ(Refusal(folder_ / std::string(255, 'x')), "accepted");  // the longest name there is
    EXPECT_EQ(FilesInFolder(), 4);
}

TEST_F(AtomicFileTest, LinksAndPermissionsStay) {
    fs::create_directory(folder_ / "shows");
    folder_.Put("shows/real.mid", "old");
    fs::permissions(folder_ / "shows/real.mid", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("shows/real.mid", target_);
    fs::create_symlink("shows/new.mid", folder_ / "dangling");
    for (const fs::path& name : {target_, folder_ / "dangling"}) {
        AtomicFile file(name);
        Write(file, "new");
        file.Commit();
        EXPECT_TRUE(fs::is_symlink(name)) << name;
    }
    EXPECT_EQ(TemporaryFolder::Contents(folder_ / "shows/real.mid"), "new");
    EXPECT_EQ(fs::status(folder_ / "shows/real.mid").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(TemporaryFolder::Contents(folder_ / "shows/new.mid"), "new");
}

TEST_F(AtomicFileTest, AFullDiskLeavesTheOldFileAndNothingBeside) {
    folder_.Put("take.mid", "old");
    {
        AtomicFile file(target_);
        const FullDisk full;
        EXPECT_EQ(MessageOf<zell::IoError>([&] { Write(file, std::string(2000, 'x')); }),
                  "cannot write " + target_.string() + ": File too large");
    }
    EXPECT_EQ(TemporaryFolder::Contents(target_), "old");
    EXPECT_EQ(FilesInFolder(), 1);
}

}  // namespace
