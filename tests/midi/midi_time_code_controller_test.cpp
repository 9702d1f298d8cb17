#include "midi/midi_time_code_controller.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/midi/console_capture.h"
#include "tests/midi/full_disk.h"
#include "tests/player/temporary_folder.h"
#include "vemo_core/gui_dispatcher.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::ElementsAre;

const std::string kFile = "\x14MidiTimeCodeSettings\x01\x01\x02\x00\x00\x00\x01"s;
const std::string kFileInactive = "\x14MidiTimeCodeSettings\x00\x01\x02\x00\x00\x00\x01"s;
const std::string kLoadFailure = "MidiTimeCodeController::MidiTimeCodeController::LoadFromFile failed with ";

/// What the display is told while it lives.
class Display {
public:
    Display() {
        notify::GuiDispatcher::Receiver receiver;
        receiver.mtcActiveState = [this](bool isActive) { told.push_back(isActive ? "active" : "inactive"); };
        receiver.mtcFrameRate = [this](const std::string& name) { told.push_back(name); };
        receiver.mtcOutputPort = [this](unsigned int port) { told.push_back("port " + std::to_string(port)); };
        notify::guiDispatcher.SetReceiver(std::move(receiver));
    }
    ~Display() { notify::guiDispatcher.SetReceiver({}); }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    std::vector<std::string> told;
};

class MidiTimeCodeSettings : public testing::Test {
protected:
    std::string State(const MidiTimeCodeController& controller) const {
        return std::string(controller.GetIsActive() ? "active" : "inactive") +
               (controller.GetHasOutputPortIndex() ? ", port " : ", no port ") +
               std::to_string(controller.GetOutputPortIndex()) + ", rate " +
               std::to_string(static_cast<int>(controller.GetFrameRate()));
    }
    std::string StateOf(const std::string& contents) const {
        return State(MidiTimeCodeController(folder_.Put("mtc", contents).string()));
    }
    /// Loads the file, changes the port to 9 and ends.
    void SaveAnother(const fs::path& path) const {
        MidiTimeCodeController controller(path.string());
        controller.SetOutputPortIndex(9);
        controller.Shutdown();
    }

    const TemporaryFolder folder_;
    const fs::path path_ = folder_ / "mtc";
    const std::string kChanged = "\x14MidiTimeCodeSettings\x00\x01\x09\x00\x00\x00\x01"s;
    Display display_;
    ConsoleCapture console_;
};

TEST_F(MidiTimeCodeSettings, BeginWithoutAFileAndAreKeptFromShowToShow) {
    MidiTimeCodeController first(path_.string());
    EXPECT_EQ(State(first), "inactive, no port 0, rate 3");
    first.SetOutputPortIndex(0x04030201);
    first.SetFrameRate(FrameRate::k2997Drop);
    first.ActivateMidiTimeCode();
    first.SendMidiTimeCodeWithSeconds(1.0);
    first.SetMidiTimeCodeInterval(1.0, 2.0, 1.0);
    first.Shutdown();
    EXPECT_EQ(TemporaryFolder::Contents(path_), "\x14MidiTimeCodeSettings\x00\x01\x01\x02\x03\x04\x02"s);
    EXPECT_THAT(display_.told, ElementsAre("29.97 fps drop", "inactive"));
    EXPECT_EQ(State(MidiTimeCodeController(path_.string())), "inactive, port 67305985, rate 2");

    EXPECT_EQ(StateOf(kFile), "inactive, port 2, rate 1");
    MidiTimeCodeController(path_.string()).Shutdown();
    EXPECT_EQ(TemporaryFolder::Contents(path_), kFileInactive);
    EXPECT_EQ(console_.Take(), "");
}

TEST_F(MidiTimeCodeSettings, ARateThatIsNoneIsStoredAndRefused) {
    MidiTimeCodeController controller(path_.string());
    EXPECT_THROW(controller.SetFrameRate(static_cast<FrameRate>(7)), std::logic_error);
    controller.Shutdown();
    EXPECT_THAT(display_.told, ElementsAre("inactive"));
    EXPECT_EQ(State(MidiTimeCodeController(path_.string())), "inactive, no port 0, rate 7");
}

TEST_F(MidiTimeCodeSettings, AShortFileGivesWhatItHolds) {
    for (std::size_t length = 0; length < kFile.size(); ++length) {
        const char* expected = length < 23   ? "inactive, no port 0, rate 3"
                               : length < 27 ? "inactive, port 0, rate 3"
                                             : "inactive, port 2, rate 3";
        EXPECT_EQ(StateOf(kFile.substr(0, length)), expected) << length;
        const std::string line = console_.Take();
        EXPECT_EQ(line.substr(0, kLoadFailure.size()), kLoadFailure) << length;
        EXPECT_EQ(line.find('\n'), line.size() - 1) << length;
    }
}

TEST_F(MidiTimeCodeSettings, AFlippedByteIsAnotherValueOrNoSettings) {
    for (std::size_t at = 0; at < kFile.size(); ++at) {
        std::string contents = kFile;
        contents[at] = static_cast<char>(~contents[at]);
        const std::string state = StateOf(contents);
        const std::string line = console_.Take();
        if (at == 0) {  // the header would be longer than the file
            EXPECT_EQ(line.substr(0, kLoadFailure.size()), kLoadFailure);
        } else {
            EXPECT_EQ(line, at < 21 ? kLoadFailure + "Unrecognized command settings file.\n" : "") << at;
        }
        const unsigned int port = at > 22 && at < 27 ? 2U ^ 0xFFU << 8 * (at - 23) : 2U;
        EXPECT_EQ(state, at < 21 ? "inactive, no port 0, rate 3"
                                 : "inactive, port " + std::to_string(port) + (at < 27 ? ", rate 1" : ", rate 254"))
            << at;
    }
}

TEST_F(MidiTimeCodeSettings, WhatIsNoFileIsToldAndHarmless) {
    folder_.Put("file", "");
    for (const char* name : {"missing/mtc", "file/mtc", "."}) {
        const std::string path = (folder_ / name).string();
        MidiTimeCodeController controller(path);
        const std::string line = console_.Take();
        if (*name != '.') {
            EXPECT_EQ(line, "") << path;
        }
        controller.Shutdown();
        EXPECT_EQ(console_.Take(), "WARNING: Unable to save settings to " + path + "\n");
    }
    EXPECT_THAT(display_.told, ElementsAre("inactive", "inactive", "inactive"));
}

TEST_F(MidiTimeCodeSettings, ALinkLeadsToTheFileThatIsReplacedAndADeviceStays) {
    folder_.Put("real", kFile + "and more");
    fs::create_symlink("real", path_);
    fs::permissions(folder_ / "real", fs::perms::owner_all);
    SaveAnother(path_);
    EXPECT_EQ(TemporaryFolder::Contents(folder_ / "real"), kChanged);
    EXPECT_EQ(fs::status(folder_ / "real").permissions(), fs::perms::owner_all);
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_FALSE(fs::exists(folder_ / "real.saving"));

    // One of its own: a fault here would replace the system's.
    const dev_t full = makedev(1, 7);
    if (mknod((folder_ / "device").c_str(), S_IFCHR | 0600, full) != 0 || !std::ofstream(folder_ / "device"))
        GTEST_SKIP() << "devices cannot be made here";
    MidiTimeCodeController controller((folder_ / "device").string());
    console_.Take();
    controller.Shutdown();
    EXPECT_EQ(console_.Take(), "");
    EXPECT_TRUE(fs::is_character_file(folder_ / "device"));
}

TEST_F(MidiTimeCodeSettings, AFullDiskLosesNoFile) {
    for (const bool canMakeTemporary : {true, false}) {
        if (!canMakeTemporary)
            fs::create_directory(folder_ / "mtc.saving");
        for (const std::string& old : {kFile, "\x14Midi"s, kFile + kFile}) {
            folder_.Put("mtc", old);
            {
                const FullDisk full;
                SaveAnother(path_);
            }
            EXPECT_EQ(TemporaryFolder::Contents(path_), old);
            console_.Take();
        }
        folder_.Put("mtc", kFile + "and more");
        SaveAnother(path_);
        EXPECT_EQ(TemporaryFolder::Contents(path_), kChanged);
        EXPECT_EQ(fs::exists(folder_ / "mtc.saving"), !canMakeTemporary);
        fs::remove(path_);
        {
            const FullDisk full;
            SaveAnother(path_);
        }
        EXPECT_FALSE(fs::exists(path_)) << "half a file would be reported at the next start";
        EXPECT_EQ(console_.Take(), "");
    }
}

}  // namespace
