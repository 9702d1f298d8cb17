#include "midi/midi_commands.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "midi/midi_port_error.h"
#include "tests/midi/command_log.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/full_disk.h"
#include "tests/midi/three_inputs.h"
#include "tests/player/temporary_folder.h"

namespace {

using midi_commands::MidiCommands;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Stop on note 60 of channel 1, Next Song on controller 7 of channel 16.
const std::string kRecords = "\x02\x00\x04\x90\x00\x3C\x05\xB0\x0F\x07"s;
const std::string kHeader = "\x14MidiCommandsSettings"s;
const std::string kFile = kHeader + "\x00\x00\x00\x00\x00"s + kRecords;

class LearnedCommands : public testing::Test {
protected:
    std::string Text() {
        std::string text;
        for (const auto& [id, command] : commands_->GetLearnedCommands()) {
            EXPECT_EQ(id, command.commandId);
            text += std::to_string(id) + ":" + std::to_string(command.status) + "," + std::to_string(command.channel) +
                    "," + std::to_string(command.data1) + " ";
        }
        return text;
    }
    void Begin() {
        commands_.reset();
        dispatcher_.emplace();
        commands_.emplace(*dispatcher_, path_);
    }
    void Begin(const std::string& contents) {
        folder_.Put("commands", contents);
        Begin();
    }
    /// The file that is left.
    std::string End() {
        commands_.reset();
        return TemporaryFolder::Contents(path_);
    }
    std::vector<std::string> Process(const MIDIMessage& message) {
        dispatcher_->ProcessMessage(message);
        return log_.Take();
    }

    ThreeInputs inputs_;
    const TemporaryFolder folder_;
    const std::string path_ = (folder_ / "commands").string();
    CommandLog log_;
    ConsoleCapture console_;
    std::optional<MidiMessageDispatcher> dispatcher_;
    std::optional<MidiCommands> commands_;
};

TEST_F(LearnedCommands, AreLearnedAndKeptFromShowToShow) {
    Begin();
    commands_->LearnMidiCommandNoAssign(4);
    commands_->LearnMidiCommandNoAssign(5);
    EXPECT_TRUE(commands_->IsMidiCommandLearning(4));
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("learned 4 144 60", "learned"));
    EXPECT_FALSE(commands_->IsMidiCommandLearning(4));
    EXPECT_THAT(Process({0xBF, 7, 0}), ElementsAre("learned 5 191 7", "learned"));
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("fired 4"));
    EXPECT_EQ(End(), kFile);

    Begin();
    EXPECT_EQ(Text(), "4:144,0,60 5:176,15,7 ");
    EXPECT_THAT(log_.Take(), IsEmpty());
    commands_->ConnectSourceByIndex(2);
    EXPECT_THAT(log_.Take(),
                ElementsAre("source 2", "learned 4 144 60", "learned", "learned 5 191 7", "learned", "connected"));
    EXPECT_EQ(commands_->GetConnectedSourceIndex(), 2);
    EXPECT_TRUE(commands_->HasMidiSource());
    EXPECT_EQ(End(), kHeader + "\x01\x02\x00\x00\x00"s + kRecords);
    // What a host disconnects by itself is remembered.
    Begin();
    EXPECT_EQ(log_.Take().size(), 6u);
    dispatcher_->Disconnect();
    EXPECT_EQ(End(), kHeader + "\x01\x02\x00\x00\x00"s + kRecords);
    EXPECT_EQ(console_.Take(), "");
}

TEST_F(LearnedCommands, WhatANewSourceAnswersComesBehindItsNotice) {
    Begin();
    std::atomic<bool> isOver{false};
    std::thread flood([&] {
        while (!isOver)
            inputs_.Send(0, {0x90, 60, 1});
    });
    // Whoever connects has to wait for what others change.
    std::thread changes([&] {
        while (!isOver)
            commands_->SetMidiCommand(9, 0x90, 1, 1);
    });
    for (int round = 0; round < 400; ++round) {
        dispatcher_->Disconnect();
        commands_->UnsetMidiCommand(2);
        log_.Take();
        commands_->LearnMidiCommandNoAssign(2);
        commands_->ConnectSourceByIndex(0);
        const std::vector<std::string> lines = log_.Take();
        const auto answer = std::ranges::find(lines, "learned 2 144 60");
        EXPECT_LT(std::ranges::find(lines, "source 0"), answer) << "round " << round;
    }
    isOver = true;
    flood.join();
    changes.join();
}

TEST_F(LearnedCommands, AnswersThatComeLateOrOutOfOrderDoNoHarm) {
    Begin();
    testing::internal::CaptureStderr();
    const std::string mismatch = "Error: Learned Midi Command Id Does Not match expected command id.\n";
    commands_->OnLearnedMidiCommandNoAssign(3, {0x9F, 1});
    commands_->LearnMidiCommandNoAssign(2);
    commands_->OnLearnedMidiCommandNoAssign(5, {0xB0, 2});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), mismatch + mismatch);
    EXPECT_EQ(Text(), "3:144,15,1 5:176,0,2 ");
    const std::string file = End();
    log_.Take();

    EXPECT_THAT(Process({0x90, 60, 1}), IsEmpty()) << "the request outlived the commands";
    EXPECT_FALSE(dispatcher_->IsLearning());
    EXPECT_EQ(TemporaryFolder::Contents(path_), file);
}

TEST_F(LearnedCommands, AShortFileGivesNone) {
    for (std::size_t length = 0; length < kFile.size(); ++length) {
        Begin(kFile.substr(0, length));
        EXPECT_EQ(Text(), "") << length;
        const std::string line = console_.Take();
        EXPECT_EQ(line.find("WARNING: LoadFromFile error: "), 0u) << length;
        EXPECT_EQ(line.find('\n'), line.size() - 1) << length;
        EXPECT_EQ(End(), kHeader + std::string(7, '\0')) << length;
    }
}

TEST_F(LearnedCommands, AFlippedByteIsAnotherValueOrNone) {
    const std::string flippedRecords[] = {
        "5:176,15,7 251:144,0,60 ", "4:111,0,60 5:176,15,7 ", "4:144,255,60 5:176,15,7 ", "4:144,0,195 5:176,15,7 ",
        "4:144,0,60 250:176,15,7 ", "4:144,0,60 5:79,15,7 ",  "4:144,0,60 5:176,240,7 ",  "4:144,0,60 5:176,15,248 "};
    for (std::size_t at = 0; at < kFile.size(); ++at) {
        std::string contents = kFile;
        contents[at] = static_cast<char>(~contents[at]);
        Begin(contents);
        const std::string line = console_.Take();
        const bool isCutShort = at == 0 || at == 26 || at == 27;
        if (isCutShort) {
            EXPECT_EQ(line.find("WARNING: LoadFromFile error: "), 0u) << at;
        } else {
            EXPECT_EQ(line,
                      at <= 20 ? "WARNING: VemoMidiError on LoadFromFile: Unrecognized command settings file.\n" : "")
                << at;
        }
        EXPECT_EQ(Text(), isCutShort || at <= 20 ? ""
                          : at < 28              ? "4:144,0,60 5:176,15,7 "
                                                 : flippedRecords[at - 28])
            << at;
        EXPECT_THAT(log_.Take(), IsEmpty()) << at;
        commands_.reset();
    }
}

TEST_F(LearnedCommands, AreKeptWhereTheirSourceIsNotThere) {
    for (const std::string& source : {"\x01\x01\x00\x00\x00"s, "\x01\x03\x00\x00\x00"s, "\x01\xFF\x00\x00\x00"s}) {
        std::string file = kHeader;
        Begin(file.append(source).append(kRecords));
        EXPECT_FALSE(commands_->HasMidiSource());
        EXPECT_EQ(End(), kFile);
    }
    Begin(kHeader + "\x02\x00\x00\x00\x00"s + kRecords);
    EXPECT_FALSE(commands_->HasMidiSource());
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_EQ(console_.Take(), "");

    commands_->ConnectSourceByIndex(0);
    log_.Take();
    EXPECT_THAT([&] { commands_->ConnectSourceByIndex(1); },
                testing::ThrowsMessage<MidiPortError>("Invalid MIDI source."));
    EXPECT_EQ(commands_->GetConnectedSourceIndex(), 0) << "the input stays";
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("fired 4"));
    EXPECT_EQ(End(), kFile);
}

TEST_F(LearnedCommands, ARecordIsTakenAsItIs) {
    const std::string connected = kHeader + "\x01\x00\x00\x00\x00"s;
    // One message twice: the lower id keeps it. A note-off is bound and never fires.
    Begin(connected + "\x03\x00\x04\x90\x00\x3C\x02\x90\x00\x3C\x05\x80\x00\x3C"s);
    EXPECT_THAT(log_.Take(), ElementsAre("source 0", "canceled 4", "learned 2 144 60", "learned", "learned 5 128 60",
                                         "learned", "connected"));
    EXPECT_EQ(Text(), "2:144,0,60 5:128,0,60 ");
    EXPECT_THAT(Process({0x80, 60, 1}), IsEmpty());
    EXPECT_THAT(Process({0x90, 60, 1}), ElementsAre("fired 2"));
    commands_.reset();
    EXPECT_THROW(Begin(connected + "\x01\x00\x0C\x90\x00\x3C"s), std::out_of_range);
}

TEST_F(LearnedCommands, AreNotLostByASaveThatFails) {
    Begin(kFile);
    commands_->SetMidiCommand(2, 0x90, 0, 1);
    {
        const FullDisk full;
        EXPECT_EQ(End(), kFile);
    }
    EXPECT_EQ(console_.Take(), "");
    for (const char* name : {"missing/commands", "."}) {
        const std::string path = (folder_ / name).string();
        { MidiCommands(*dispatcher_, path); }
        const std::string said = console_.Take();
        const std::string expected = "WARNING: Unable to save settings to " + path + "\n";
        EXPECT_EQ(said.substr(said.size() - std::min(said.size(), expected.size())), expected);
        EXPECT_EQ(said == expected, *name != '.') << "a folder is opened and cannot be read";
    }
}

}  // namespace
