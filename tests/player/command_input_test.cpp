#include "player/command_input.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "player/pedal_settings.h"
#include "tests/player/temporary_folder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;
using testing::UnorderedElementsAre;
using win32_layer::Layer;
using win32_layer::VirtualMidiInput;
using Kinds = std::vector<CommandKind>;

/// A pedal board and a keyboard, a show's folder, and time that stands until it is moved.
class CommandInputTest : public ::testing::Test {
protected:
    CommandInputTest() {
        Layer::Instance().Reset();
        Layer::Instance().AddInput(keys_);
        Layer::Instance().AddInput(pedals_);
    }
    ~CommandInputTest() override {
        input_.reset();
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 0);
    }

    CommandInput& Open(ShowKind kind = ShowKind::kRanges, const std::filesystem::path& commands = {}) {
        input_.reset();
        CommandInput::Settings settings;
        settings.file = commands;
        settings.fire = [this](CommandKind kindOfCommand) {
            const std::lock_guard lock(mutex_);
            fired_.push_back(kindOfCommand);
            changed_.notify_all();
        };
        settings.say = [this](const std::string& text) {
            const std::lock_guard lock(mutex_);
            said_.push_back(text);
        };
        settings.now = [this] { return now_.load(); };
        input_ = std::make_unique<CommandInput>(settings);
        input_->OpenShow(show_, kind);
        return *input_;
    }
    void LearnFrom(const std::string& command, const std::vector<std::uint8_t>& bytes) {
        input_->Learn(command);
        pedals_->Send(bytes);
        WaitForAnswer();
    }
    void WaitForAnswer() {
        for (const auto start = std::chrono::steady_clock::now();
             !input_->GetReport().learning.empty() && std::chrono::steady_clock::now() - start < 20s; input_->Poll())
            std::this_thread::yield();
    }
    /// All that has fired, once this and everything sent before has been taken: behind it a program of channel 16 plays
    /// the bound Stop.
    Kinds Fired(const std::vector<std::uint8_t>& sent = {}) {
        if (!sent.empty())
            pedals_->Send(sent);
        pedals_->Send({0xCF, 0x7F});
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, 20s, [this] { return !fired_.empty() && fired_.back() == CommandKind::kStop; })) {
            ADD_FAILURE() << "the end does not come";
            return {};
        }
        fired_.pop_back();
        return std::exchange(fired_, {});
    }
    std::vector<std::string> Said() {
        const std::lock_guard lock(mutex_);
        return std::exchange(said_, {});
    }
    std::string BindingOf(const std::string& name) const {
        for (const CommandInput::Command& command : input_->GetReport().commands)
            if (command.name == name)
                return command.binding;
        return "no such command";
    }
    std::string SettingsFile() const { return TemporaryFolder::Contents(folder_ / "show.json.commands"); }

    const std::shared_ptr<VirtualMidiInput> keys_ = std::make_shared<VirtualMidiInput>(L"Keys");
    const std::shared_ptr<VirtualMidiInput> pedals_ = std::make_shared<VirtualMidiInput>(L"Pedals");
    const TemporaryFolder folder_;
    const std::filesystem::path show_ = folder_ / "show.json";
    std::atomic<CommandInput::Time> now_{CommandInput::Time()};
    std::mutex mutex_;
    std::condition_variable changed_;
    Kinds fired_;                    // guarded by mutex_
    std::vector<std::string> said_;  // guarded by mutex_
    std::unique_ptr<CommandInput> input_;
};

TEST_F(CommandInputTest, APedalDrivesWhatItWasTaughtAlsoTheNextEvening) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    LearnFrom("next song", {0xB0, 64, 127});
    EXPECT_THAT(Said(), ElementsAre("Stop: program 128, channel 16", "Next Song: controller 64, channel 1"));
    EXPECT_EQ(Fired({0xB0, 64, 0, 0xB0, 64, 127, 0xB1, 64, 127, 0x90, 64, 127}), Kinds{CommandKind::kNextSong});
    LearnFrom("previousSong", {0xB0, 64, 0, 0xB0, 64, 100});
    EXPECT_THAT(Said(), ElementsAre("Previous Song: controller 64, channel 1, taken from Next Song"));
    EXPECT_EQ(BindingOf("Next Song"), "");
    const std::string kept = SettingsFile();
    EXPECT_EQ(kept, std::string("\x14MidiCommandsSettings\1\1\0\0\0\2\0\4\xC0\x0F\x7F\6\xB0\0\x40", 36));
    input_.reset();
    EXPECT_EQ(SettingsFile(), kept) << "what the engine writes";

    // Nothing is written that the files say already.
    const auto longAgo = std::filesystem::file_time_type::clock::now() - 24h;
    for (const char* name : {"show.json.commands", "show.json.commands.pedals"}) {
        std::filesystem::last_write_time(folder_ / name, longAgo);
        Open().SetInput("Pedals");
        input_.reset();
        EXPECT_EQ(std::filesystem::last_write_time(folder_ / name), longAgo) << name;
    }

    // Plugged in elsewhere.
    Layer::Instance().Reset();
    Layer::Instance().AddInput(pedals_);
    Layer::Instance().AddInput(keys_);
    Open();
    EXPECT_FALSE(keys_->IsOpen());
    EXPECT_EQ(Fired({0xB0, 64, 127}), Kinds{CommandKind::kPreviousSong});
    input_->Unlearn("previous song");
    EXPECT_EQ(BindingOf("Previous Song"), "");
    EXPECT_THROW(input_->Unlearn("previous song"), std::invalid_argument);
    EXPECT_THROW(input_->Learn("next patch"), std::invalid_argument) << "this kind of show has none";
    input_->OpenShow({}, ShowKind::kPrograms);
    EXPECT_THROW(input_->Learn("play"), std::invalid_argument) << "there is no show";
    EXPECT_THAT(Said(), IsEmpty());

    // One board for all, also without a show.
    Open(ShowKind::kRanges, folder_ / "board").OpenShow({}, ShowKind::kRanges);
    input_->SetInput("Pedals");
    EXPECT_EQ(BindingOf("Stop"), "");
    LearnFrom("play", {0x90, 60, 100});
    input_->OpenShow(show_, ShowKind::kPrograms);
    EXPECT_EQ(BindingOf("Play"), "note 60, channel 1");
}

TEST_F(CommandInputTest, ARequestIsGivenUpAndWhatWasBoundComesBack) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    LearnFrom("play", {0x90, 60, 100});
    const std::string kept = SettingsFile();
    input_->Learn("play");
    EXPECT_EQ(input_->GetReport().learning, "Play");
    EXPECT_THROW(input_->Learn("pause"), std::invalid_argument);
    now_ = now_.load() + CommandInput::kLearnPatience - 1ms;
    input_->Poll();
    EXPECT_EQ(input_->GetReport().learning, "Play");
    now_ = now_.load() + 1ms;
    input_->Poll();
    EXPECT_EQ(input_->GetReport().learning, "");
    input_->Learn("pause");
    input_->GiveUp();
    EXPECT_THROW(input_->GiveUp(), std::invalid_argument);
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("Stop:"), HasSubstr("Play:"), "nothing was learned for Play",
                                    "nothing was learned for Pause"));
    EXPECT_EQ(BindingOf("Play"), "note 60, channel 1");
    EXPECT_EQ(BindingOf("Pause"), "");
    EXPECT_EQ(SettingsFile(), kept);
    EXPECT_EQ(Fired({0x90, 60, 100}), Kinds{CommandKind::kPlay});
}

TEST_F(CommandInputTest, PressesAndIntervalsAreOfTheirInputAndCommand) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    LearnFrom("next marker", {0xB2, 5, 127});
    const std::vector<std::uint8_t> twice = {0xB2, 5, 0, 0xB2, 5, 64, 0xB2, 5, 127, 0xB2, 5, 63, 0xB2, 5, 70};
    EXPECT_EQ(Fired(twice), Kinds(2, CommandKind::kNextMarker));
    input_->SetOnlyPresses(false);
    EXPECT_EQ(Fired(twice), Kinds(5, CommandKind::kNextMarker));
    input_->SetLeastInterval("next marker", 300ms);
    EXPECT_THAT(Fired(twice), IsEmpty()) << "it has fired just now";
    now_ = now_.load() + 300ms;
    EXPECT_EQ(Fired(twice), Kinds{CommandKind::kNextMarker});
    input_->SetInput("Keys");
    EXPECT_TRUE(input_->GetReport().onlyPresses);
    input_->SetInput("Pedals");
    Open();
    EXPECT_FALSE(input_->GetReport().onlyPresses);
    EXPECT_EQ(Fired(twice), Kinds{CommandKind::kNextMarker});
}

TEST_F(CommandInputTest, AnInputThatIsNotThereIsWaitedForAndNoOtherTaken) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    input_.reset();
    Layer::Instance().RemoveInput(pedals_);
    const auto stranger = std::make_shared<VirtualMidiInput>(L"Stranger");
    Layer::Instance().AddInput(stranger);
    Said();
    Open();
    EXPECT_FALSE(stranger->IsOpen());
    EXPECT_FALSE(input_->GetReport().isOpen);
    EXPECT_THROW(input_->Learn("play"), std::invalid_argument);
    Layer::Instance().AddInput(pedals_);
    input_->Poll();
    EXPECT_THAT(Said(), ElementsAre("the command input 'Pedals' is not there; it is waited for",
                                    "the command input 'Pedals' is there"));
    EXPECT_THAT(Fired(), IsEmpty());
    // Or it goes in mid-show, with the pedal down.
    LearnFrom("next song", {0xB0, 64, 127});
    Said();
    Layer::Instance().RemoveInput(pedals_);
    input_->Poll();
    EXPECT_FALSE(input_->GetReport().isOpen);
    EXPECT_THAT([this] { input_->SetInput("Pedals"); },
                ThrowsMessage<std::invalid_argument>("MIDI input 'Pedals' is not there now"));
    EXPECT_THAT([this] { input_->SetInput("Nothing"); },
                ThrowsMessage<std::invalid_argument>("no input device 'Nothing'; there are 'Keys', 'Stranger'"));
    Layer::Instance().AddInput(pedals_);
    input_->Poll();
    EXPECT_TRUE(input_->GetReport().isOpen);
    EXPECT_THAT(Said(), ElementsAre("the command input 'Pedals' is lost; it will be heard again when it is back",
                                    "the command input 'Pedals' is there"));
    EXPECT_EQ(Fired({0xB0, 64, 127}), Kinds{CommandKind::kNextSong});
    // It stays what it is where another one cannot be had.
    keys_->SetRefusesOpen(true);
    EXPECT_THAT(
        [this] { input_->SetInput("Keys"); },
        ThrowsMessage<std::invalid_argument>("MIDI input 'Keys' is in use by another, or refuses to be opened"));
    now_ = now_.load() + 2s;
    input_->Poll();
    EXPECT_EQ(input_->GetReport().input, "Pedals");
    EXPECT_THAT(Fired(), IsEmpty());
}

TEST_F(CommandInputTest, WhatCannotBeReadIsPutAsideAndNotWrittenOver) {
    const std::string whole("\x14MidiCommandsSettings\0\0\0\0\0\1\0\2\x90\0\x3C", 32);
    std::string kept = "show.json.commands.damaged";
    int count = 2;
    std::vector<std::string> damages = {whole + '\0', whole.substr(0, 26) + "\2" + whole.substr(27) + whole.substr(28)};
    for (std::size_t length = 1; length < whole.size(); ++length)
        damages.push_back(whole.substr(0, length));
    for (std::size_t at = 0; at < whole.size(); ++at) {
        damages.push_back(whole);
        damages.back()[at] = static_cast<char>(~damages.back()[at]);
    }
    for (const std::string& damaged : damages) {
        input_.reset();
        folder_.Put("show.json.commands", damaged);
        Open();
        EXPECT_EQ(TemporaryFolder::Contents(folder_ / kept), damaged);
        EXPECT_THAT(Said(), ElementsAre(AllOf(HasSubstr("show.json.commands: holds no learned commands"),
                                              HasSubstr("kept as " + kept))));
        kept = "show.json.commands.damaged" + std::to_string(count++);
        EXPECT_EQ(BindingOf("Play"), "");
    }
    input_.reset();
    // With a source, which is some device of that index today, and cannot be taken out.
    std::filesystem::permissions(folder_.Put("show.json.commands", whole.substr(0, 21) + "\1" + whole.substr(22)),
                                 std::filesystem::perms::owner_write, std::filesystem::perm_options::remove);
    folder_.Put("show.json.commands.pedals", "{\"input\": 1}");
    Open();
    EXPECT_FALSE(keys_->IsOpen());
    EXPECT_EQ(BindingOf("Play"), "note 60, channel 1");
    EXPECT_EQ(input_->GetReport().input, "");
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("it is kept as show.json.commands.pedals.damaged"),
                                    HasSubstr("to be chosen"), HasSubstr("write-protected")));
    input_->SetInput("Pedals");
    Open();
    EXPECT_EQ(input_->GetReport().input, "Pedals") << "what is decided anew is kept";
    EXPECT_EQ(TemporaryFolder::Contents(folder_ / "show.json.commands.pedals.damaged"), "{\"input\": 1}");
    // Also what is damaged while it is open.
    int file = 2;
    for (const char* const times :
         {"null", "[]", "{\"Play\": -5}", "{\"Play\": 60001}", "{\"Play\": 9223372036854775808}"}) {
        const std::string text =
            R"({"input": "Pedals", "everyValueOf": [], "leastMilliseconds": )" + std::string(times) + "}";
        folder_.Put("show.json.commands.pedals", text);
        input_->SetLeastInterval("stop", std::chrono::milliseconds(file));
        EXPECT_EQ(TemporaryFolder::Contents(folder_ / ("show.json.commands.pedals.damaged" + std::to_string(file++))),
                  text);
        EXPECT_EQ(PedalSettings::Read(folder_ / "show.json.commands.pedals")->leastIntervals.at("Stop"), file - 1);
    }
}

TEST_F(CommandInputTest, WhatCannotBeWrittenIsWrittenOnceItCan) {
    namespace fs = std::filesystem;
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    const fs::path file = folder_ / "show.json.commands";
    fs::permissions(file, fs::perms::owner_write, fs::perm_options::remove);
    Said();
    LearnFrom("play", {0x90, 60, 100});
    input_->Poll();
    EXPECT_THAT(Said(), UnorderedElementsAre(HasSubstr("Play:"), HasSubstr("write-protected")));
    EXPECT_FALSE(input_->GetReport().isKept);
    // The order of the devices is another one, and the file cannot be told.
    input_.reset();
    Layer::Instance().Reset();
    const auto stranger = std::make_shared<VirtualMidiInput>(L"Stranger");
    Layer::Instance().AddInput(pedals_);
    Layer::Instance().AddInput(stranger);
    Open();
    EXPECT_FALSE(stranger->IsOpen());
    EXPECT_FALSE(input_->GetReport().isOpen);
    input_->Poll();
    EXPECT_TRUE(input_->GetReport().isOpen);
    LearnFrom("play", {0x90, 60, 100});
    EXPECT_FALSE(input_->GetReport().isKept);
    fs::permissions(file, fs::perms::owner_write, fs::perm_options::add);
    now_ = now_.load() + 1s;
    input_->Poll();
    EXPECT_TRUE(input_->GetReport().isKept);
    const std::string kept = SettingsFile();
    EXPECT_EQ(kept.substr(26), std::string("\2\0\2\x90\0\x3C\4\xC0\x0F\x7F", 10));

    // Another player that only looks notes another index.
    folder_.Put("show.json.commands", kept.substr(0, 22) + "\1" + kept.substr(23));
    LearnFrom("pause", {0x90, 62, 100});
    EXPECT_FALSE(fs::exists(folder_ / "show.json.commands.other"));
    // Neither loses what it was taught in the same moment.
    input_->Learn("play");
    const std::string others = kept.substr(0, 26) + std::string("\1\0\3\x90\0\x3D", 6);
    folder_.Put("show.json.commands", others);
    pedals_->Send({0x90, 63, 100});
    WaitForAnswer();
    EXPECT_EQ(TemporaryFolder::Contents(folder_ / "show.json.commands.other"), others);
    EXPECT_EQ(SettingsFile().substr(26), std::string("\3\0\2\x90\0\x3F\3\x90\0\x3E\4\xC0\x0F\x7F", 14));
}

TEST_F(CommandInputTest, WhatAnotherProgramTeachesMeanwhileHolds) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    LearnFrom("play", {0x90, 60, 100});
    input_->SetLeastInterval("pause", 5s);
    const std::string header = SettingsFile().substr(0, 26);
    const std::string others = header + std::string("\2\0\3\x90\0\x3C\4\xC0\x0F\x7F", 10);
    folder_.Put("show.json.commands", others);
    PedalSettings{"Pedals", {}, {{"Stop", 700}}}.Write(folder_ / "show.json.commands.pedals");
    now_ = now_.load() + 1s;
    input_->Poll();
    pedals_->Send({0x90, 60, 100, 0x90, 60, 100});
    EXPECT_THAT(Fired(), ElementsAre(CommandKind::kPause, CommandKind::kPause));
    // Each decides on another thing.
    folder_.Put("show.json.commands", header + std::string("\1\0\4\xC0\x0F\x7F", 6));
    PedalSettings{"Keys", {}, {{"Stop", 700}}}.Write(folder_ / "show.json.commands.pedals");
    input_->SetLeastInterval("play", 800ms);
    EXPECT_EQ(*PedalSettings::Read(folder_ / "show.json.commands.pedals"),
              (PedalSettings{"Keys", {}, {{"Play", 800}, {"Stop", 700}}}));
    input_->Poll();
    EXPECT_TRUE(keys_->IsOpen());
    EXPECT_FALSE(pedals_->IsOpen());
    // Nor is it undone by a player that only ends.
    folder_.Put("show.json.commands", others);
    input_.reset();
    EXPECT_EQ(SettingsFile().substr(26), others.substr(26));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "show.json.commands.other"));
}

TEST_F(CommandInputTest, AnInputThatDoesNotStartIsTriedAgain) {
    Open().SetInput("Pedals");
    LearnFrom("stop", {0xCF, 0x7F});
    input_.reset();
    Layer::Instance().Fail(win32_layer::Fault::kInputStart, 1, 1);
    Open();
    EXPECT_FALSE(input_->GetReport().isOpen);
    input_->Poll();
    EXPECT_TRUE(input_->GetReport().isOpen);
    EXPECT_THAT(Fired(), IsEmpty());
    // Chosen again, it is opened anew.
    pedals_->SetRefusesOpen(true);
    EXPECT_ANY_THROW(input_->SetInput("Pedals"));
    input_->Poll();
    EXPECT_FALSE(input_->GetReport().isOpen);
    pedals_->SetRefusesOpen(false);
    now_ = now_.load() + 2s;
    input_->Poll();
    EXPECT_TRUE(input_->GetReport().isOpen);
}

TEST_F(CommandInputTest, EverythingAtOnceUnderAFlood) {
    Open().SetInput("Pedals");
    std::atomic<bool> isOver{false};
    std::thread flood([&] {
        for (std::uint8_t i = 0; !isOver; ++i) {
            pedals_->Send({0x90, static_cast<std::uint8_t>(i % 8), 100, 0xB0, 7, i < 128 ? i : std::uint8_t{0}});
            keys_->Send({0x90, 1, 100});
        }
    });
    std::thread polling([&] {
        while (!isOver) {
            input_->Poll();
            static_cast<void>(input_->GetReport());
        }
    });
    for (int round = 0; round < 40; ++round) {
        now_ = now_.load() + 1s;
        for (const auto& step : std::vector<std::function<void()>>{
                 [&] { input_->Learn(round % 2 == 0 ? "play" : "pause"); }, [&] { input_->GiveUp(); },
                 [&] { input_->SetInput(round % 3 == 0 ? "Keys" : "Pedals"); }, [&] { input_->Unlearn("play"); },
                 [&] { input_->SetLeastInterval("play", std::chrono::milliseconds(round)); },
                 [&] {
                     if (round % 10 == 5)
                         input_->OpenShow(show_, ShowKind::kRanges);
                 }})
            try {
                step();
            } catch (const std::invalid_argument&) {
                // Refused as things stand just then.
            }
    }
    isOver = true;
    flood.join();
    polling.join();
    // What it says it has learned is what the files say.
    const CommandInput::Report before = input_->GetReport();
    Open();
    EXPECT_EQ(input_->GetReport().commands, before.commands);
    EXPECT_EQ(input_->GetReport().input, before.input);
    EXPECT_EQ(BindingOf("Play"), "") << "it was unlearned last";
}

}  // namespace
}  // namespace player
