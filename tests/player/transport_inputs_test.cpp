#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "player/input_posting.h"
#include "player/pedal_settings.h"
#include "player/transport.h"
#include "tests/player/temporary_folder.h"
#include "vemo_core/song_builder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {
namespace {

using win32_layer::Layer;
using win32_layer::VirtualMidiInput;

constexpr unsigned kResolution = 96;

/// Of eight bars in 4/4, with a marker at the third.
ShowSong Song(int number) {
    ShowSong song;
    song.key = song.title = std::to_string(number);
    song.number = number;
    std::vector<vemo_midi::VoiceEvent> events;
    events.emplace_back(0, 0x90, 0, 60, 90);
    events.emplace_back(kResolution, 0x80, 0, 60, 64);
    SongBuilder builder(kResolution);
    builder.Title(1, song.title).Track(0, "part", 0, 127, 0, std::move(events));
    builder.Marker(8 * kResolution, "B").EndAt(32 * kResolution);
    song.song =
        std::make_shared<const ImportedSong>(ImportedSong{builder.BuildSong(), builder.BuildLog(), song.title, {}});
    return song;
}

/// A show of songs 1 and 2 in a file, which a desk called "Desk" may fire.
class TransportInputs : public testing::Test {
protected:
    TransportInputs() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
            L"Receiver", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
        for (const wchar_t* name : {L"Pedals", L"Desk"})
            Layer::Instance().AddInput(std::make_shared<VirtualMidiInput>(name));
        CommandInput::Settings pedals;
        pedals.fire = [](CommandKind) {};
        pedals.say = [](const std::string&) {};
        commandInput_.emplace(pedals);
        ShowControl::Settings desk;
        desk.say = [this](const std::string& text) { said_.push_back(text); };
        desk.commandInput = [this] { return commandInput_->GetReport().input; };
        desk.now = [this] { return now_; };
        showControl_.emplace(desk);
    }
    ~TransportInputs() override {
        transport_.reset();
        showControl_.reset();
        commandInput_.reset();
        Layer::Instance().Reset();
    }

    Transport& Open(Transport::Settings settings) {
        ShowDocument document;
        document.showControl = ShowDocument::ShowControl{"Desk", 0, ""};
        document.setList = {{"1", AfterSong::kStop}, {"2", AfterSong::kStop}};
        settings.show =
            std::make_shared<const Show>(document, folder_ / "show.json", std::vector<ShowSong>{Song(1), Song(2)});
        return transport_.emplace(settings, currentShow_, feed_);
    }
    std::string Do(const std::string& command) { return transport_->Post(ParseCommand(command)).get().message; }
    std::string Place() const {
        const auto snapshot = transport_->GetSnapshot();
        return std::string(NameOf(snapshot->state)) + " " + std::to_string(snapshot->song);
    }

    const TemporaryFolder folder_;
    ShowControl::Time now_;
    CurrentShow currentShow_;
    PlaybackFeed feed_;
    std::vector<std::string> said_;
    std::optional<CommandInput> commandInput_;
    std::optional<ShowControl> showControl_;
    std::optional<Transport> transport_;
};

TEST_F(TransportInputs, ACueStartsItsSongOrWhatIsSelected) {
    Open({});
    EXPECT_EQ(Do("go"), "");
    EXPECT_EQ(Place(), "playing 1");
    const std::size_t messages = transport_->GetSnapshot()->messages.size();
    for (int stuck = 0; stuck < 3; ++stuck)
        EXPECT_EQ(Do("go"), "the music plays already");
    EXPECT_EQ(transport_->GetSnapshot()->messages.size(), messages + 1) << "others are not put away";
    EXPECT_EQ(Do("go 3"), "no song or marker has the cue number '3'");
    EXPECT_EQ(Place(), "playing 1");
    EXPECT_EQ(Do("go 2.1"), "");
    EXPECT_EQ(Place(), "playing 2");
    EXPECT_GE(transport_->GetHost().GetTick(), 8 * kResolution);
    EXPECT_EQ(Do("stop"), "");
    EXPECT_EQ(Do("go 1"), "");
    EXPECT_EQ(Place(), "playing 1");
    EXPECT_LT(transport_->GetHost().GetTick(), 8 * kResolution);
}

TEST_F(TransportInputs, PedalsAreTaughtAndADeskIsNotTakenFromShowControl) {
    Transport::Settings settings;
    settings.commandInput = &*commandInput_;
    settings.showControl = &*showControl_;
    Open(settings);
    const struct {
        std::string command, answer;
    } rows[] = {
        {"learn Play", "no command input is open; see: command input DEVICE, learn --input"},
        {"command input Desk", "'Desk' is the input of show control, and a device can be opened once"},
        {"command input Nothing", "no input device 'Nothing'; there are 'Pedals', 'Desk'"},
        {"command input Pedals", ""},
        {"learn Play", "press the pedal or key for Play; until then no other one fires"},
        {"learn Stop", "Play waits for its pedal already"},
        {"give up learning", ""},
        {"give up learning", "no command waits for its pedal"},
        {"unlearn Play", "no pedal was learned for Play"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Do(row.command), row.answer) << row.command;
    EXPECT_EQ(commandInput_->GetReport().input, "Pedals");
    EXPECT_EQ(showControl_->GetReport().state, "on");

    // A show that has given both the desk; show control gets it once it is free.
    showControl_->OpenShow(ShowDocument::ShowControl{"Pedals", 0, ""});
    EXPECT_EQ(Do("command input Pedals"), "");
    EXPECT_EQ(said_.back(),
              "show control is not heard: 'Pedals' is the input of the pedals, and a device can be opened once");
    EXPECT_EQ(Do("command input Desk"), "");
    now_ += std::chrono::seconds(1);
    showControl_->Poll();
    EXPECT_EQ(said_.back(), "show control is heard");
    // The next show's desk is what were the pedals here, and the other way round.
    PedalSettings{"Pedals", {}, {}}.Write(folder_ / "show.json.commands.pedals");
    Open(settings);
    EXPECT_TRUE(commandInput_->GetReport().isOpen);
    EXPECT_EQ(showControl_->GetReport().state, "on");

    Open({});
    EXPECT_EQ(Do("learn Play"), "no MIDI input is to be had here");
    EXPECT_EQ(Do("show control off"), "no show control is to be had here");
}

TEST_F(TransportInputs, AStuckTriggerDelaysNoOperator) {
    std::promise<void> door;
    CommandInput::Settings pedals;
    pedals.say = [](const std::string&) {};
    pedals.now = [opened = door.get_future().share()] {
        opened.wait();
        return std::chrono::steady_clock::now();
    };
    commandInput_.emplace(pedals);
    Transport::Settings settings;
    settings.commandInput = &*commandInput_;
    InputPosting posting;
    posting.Open(Open(settings));
    EXPECT_EQ(Do("command input Pedals"), "");
    auto stuck = transport_->Post(ParseCommand("learn Play"));
    for (int press = 0; press < 1000; ++press)
        posting.PostPress(CommandKind::kNextMarker);
    posting.PostPress(CommandKind::kStop);
    auto operators = transport_->Post(ParseCommand("next song"));
    door.set_value();
    const std::uint64_t carriedOut = operators.get().number;
    EXPECT_EQ(carriedOut, stuck.get().number + InputPosting::kMostPresses + 2);
    posting.PostPress(CommandKind::kNextMarker);
    EXPECT_EQ(transport_->Post(ParseCommand("stop")).get().number, carriedOut + 2) << "presses count again";
}

TEST_F(TransportInputs, WhatArrivesWithoutATransportIsRefused) {
    InputPosting posting;
    const auto post = [&] { return posting.Post(ParseCommand("go 2")).get().message; };
    EXPECT_EQ(post(), "no show is open");
    EXPECT_FALSE(posting.PlaysSongOf("2"));
    posting.Open(Open({}));
    EXPECT_FALSE(posting.PlaysSongOf("1")) << "it stands";
    EXPECT_EQ(post(), "");
    EXPECT_TRUE(posting.PlaysSongOf("2"));
    EXPECT_TRUE(posting.PlaysSongOf("2.1")) << "a marker of it";
    EXPECT_FALSE(posting.PlaysSongOf("1"));
    EXPECT_FALSE(posting.PlaysSongOf("9"));
    posting.Close();
    EXPECT_EQ(post(), "no show is open");
    EXPECT_FALSE(posting.PlaysSongOf("2"));
}

}  // namespace
}  // namespace player
