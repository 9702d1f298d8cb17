#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <latch>
#include <map>
#include <optional>
#include <random>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "midi/midi_commands.h"
#include "midi/midi_port_error.h"
#include "tests/midi/at_once.h"
#include "tests/midi/command_log.h"
#include "tests/midi/message_of.h"
#include "tests/midi/patience.h"
#include "tests/midi/three_inputs.h"
#include "tests/player/temporary_folder.h"

namespace {

using midi_commands::MidiCommands;

/// Draws from few values, so that commands, messages and sources meet often.
class Draw {
public:
    explicit Draw(unsigned int seed) : generator_(seed) {}
    int Below(int count) { return std::uniform_int_distribution<int>(0, count - 1)(generator_); }
    unsigned char Command() { return static_cast<unsigned char>(Below(13)); }
    MIDIMessage Message() {
        constexpr std::uint8_t kStatuses[] = {0x90, 0x90, 0xB0, 0xC0, 0x80, 0xE0};
        return {static_cast<std::uint8_t>(kStatuses[Below(6)] | Below(2)), static_cast<std::uint8_t>(Below(3)),
                static_cast<std::uint8_t>(Below(3))};
    }

private:
    std::mt19937 generator_;
};

/// What commands do, one thing after another: a message is a key, and a key has at
/// most one command.
struct Model {
    using Key = std::pair<int, int>;
    std::map<Key, int> owner;                  // of the commands' present object
    std::map<Key, int> bound;                  // in the dispatcher, where bindings outlive it
    std::deque<std::pair<int, int>> requests;  // command, object
    int object = 0;
    bool hasSource = false;
    int input = -1;      // of the dispatcher; -1 for none
    int remembered = 0;  // by the dispatcher, of the one that it closed
    bool conducts = false;
    std::vector<std::string> log;

    std::optional<Key> KeyOf(int command) const {
        for (const auto& [key, has] : owner)
            if (has == command)
                return key;
        return {};
    }
    void Cancel(int command) {
        if (const auto key = KeyOf(command)) {
            owner.erase(*key);
            bound.erase(*key);
        }
        conducts = conducts && command != 0;
        log.push_back("canceled " + std::to_string(command));
    }
    void Set(int command, Key key) {
        if (owner.contains(key) && owner.at(key) != command)
            Cancel(owner.at(key));
        if (command >= 12)
            return;
        if (const auto old = KeyOf(command); old && *old != key) {
            bound.erase(*old);
            owner.erase(*old);
        }
        owner[key] = bound[key] = command;
        conducts = conducts || command == 0;
        log.push_back("learned " + std::to_string(command) + " " + std::to_string(key.first) + " " +
                      std::to_string(key.second));
        log.push_back("learned");
    }
    void Process(const MIDIMessage& message) {
        const int status = message.status & 0xF0;
        if ((status != 0x90 || message.data2 == 0) && status != 0xB0 && status != 0xC0)
            return;
        const Key key(message.status, message.data1);
        if (!requests.empty()) {
            const auto [command, asker] = requests.front();
            requests.pop_front();
            if (asker == object)
                Set(command, key);
        } else if (bound.contains(key)) {
            log.push_back("fired " + std::to_string(bound.at(key)));
        }
    }
    void Connect(int index) {
        hasSource = index != 1 && index != input;  // what is open cannot be opened again
        if (!hasSource)
            return;
        input = index;
        log.push_back("source " + std::to_string(index));
        for (int command = 0; command < 12; ++command)
            if (const auto key = KeyOf(command))
                Set(command, *key);
        log.push_back("connected");
    }
    void Disconnect() {
        remembered = std::max(input, 0);
        input = -1;
    }
    void Restart() {
        ++object;
        conducts = false;
        if (hasSource)
            Connect(input >= 0 ? input : remembered);
    }
};

class RandomCommands : public testing::Test {
protected:
    void Restart() {
        commands_.reset();
        commands_.emplace(*dispatcher_, path_);
    }

    /// That it is open already is no fault.
    void Connect(unsigned char source) {
        try {
            commands_->ConnectSourceByIndex(source);
        } catch (const MidiPortError&) {
        }
    }

    ThreeInputs inputs_;
    const TemporaryFolder folder_;
    const std::string path_ = (folder_ / "commands").string();
    CommandLog log_;
    std::optional<MidiMessageDispatcher> dispatcher_{std::in_place};
    std::optional<MidiCommands> commands_;
};

TEST_F(RandomCommands, DoWhatTheSameStepsDoInAModel) {
    for (unsigned int seed = 1; seed <= 20; ++seed) {
        commands_.reset();
        std::filesystem::remove(path_);
        dispatcher_.emplace();
        Restart();
        log_.Take();
        Model model;
        Draw draw(seed);
        for (int step = 0; step < 400; ++step) {
            const std::string at = "seed " + std::to_string(seed) + ", step " + std::to_string(step);
            const unsigned char command = draw.Command();
            const MIDIMessage message = draw.Message();
            const int action = draw.Below(40);
            if (action < 8) {
                // An answer for a command that does not exist throws into the input.
                if (command < 12) {
                    commands_->LearnMidiCommandNoAssign(command);
                    model.requests.emplace_back(command, model.object);
                }
            } else if (action < 14) {
                const auto set = [&] {
                    commands_->SetMidiCommand(command, message.GetStatus(), message.GetChannel(), message.data1);
                };
                if (command < 12)
                    set();
                else
                    EXPECT_EQ(MessageOf<std::out_of_range>(set), "invalid map<K, T> key") << at;
                model.Set(command, {message.status, message.data1});
            } else if (action < 16) {
                commands_->UnsetMidiCommand(command);
                model.Cancel(command);
            } else if (action < 18) {
                const int source = draw.Below(3);
                model.Connect(source);
                const auto connect = [&] { commands_->ConnectSourceByIndex(static_cast<unsigned char>(source)); };
                if (model.hasSource)
                    connect();
                else
                    EXPECT_THROW(connect(), MidiPortError) << at;
            } else if (action < 21) {
                if (action > 18) {
                    dispatcher_->Disconnect();  // of which the commands know nothing
                    model.Disconnect();
                }
                if (action < 20) {
                    Restart();
                    model.Restart();
                }
            } else {
                dispatcher_->ProcessMessage(message);
                model.Process(message);
            }
            ASSERT_EQ(log_.Take(), std::exchange(model.log, {})) << at << ", action " << action;
            std::map<Model::Key, int> owner;
            for (const auto& [id, learned] : commands_->GetLearnedCommands())
                owner[{learned.status | learned.channel, learned.data1}] = id;
            ASSERT_EQ(owner, model.owner) << at << ", action " << action;
            ASSERT_EQ(commands_->GetHasConductBeat(), model.conducts) << at;
            ASSERT_EQ(dispatcher_->IsLearning(), !model.requests.empty()) << at;
            for (int id = 0; id < 12; ++id)
                ASSERT_EQ(commands_->IsMidiCommandLearning(static_cast<unsigned char>(id)),
                          std::find(model.requests.begin(), model.requests.end(), std::pair(id, model.object)) !=
                              model.requests.end())
                    << at << ", command " << id;
        }
    }
}

TEST_F(RandomCommands, StayWholeWhileSeveralThreadsChangeThem) {
    MustEnd("commands under random use", [&] {
        Restart();
        constexpr int kThreads = 4;
        constexpr int kSteps = 300;
        std::shared_mutex lifetime;  // a user knows whether the commands exist
        std::latch start(kThreads + 1);
        std::vector<std::jthread> threads;
        for (unsigned int seed = 1; seed <= kThreads; ++seed)
            threads.emplace_back([&, seed] {
                Draw draw(seed);
                start.arrive_and_wait();
                for (int step = 0; step < kSteps; ++step) {
                    const int action = draw.Below(20);
                    if (action == 0) {
                        const std::unique_lock alone(lifetime);
                        Restart();
                        continue;
                    }
                    const std::shared_lock together(lifetime);
                    const MIDIMessage message = draw.Message();
                    const auto command = static_cast<unsigned char>(draw.Below(12));
                    if (action < 6)
                        commands_->LearnMidiCommandNoAssign(command);
                    else if (action < 10)
                        commands_->SetMidiCommand(command, message.GetStatus(), message.GetChannel(), message.data1);
                    else if (action < 12)
                        commands_->UnsetMidiCommand(command);
                    else if (action < 15)
                        Connect(draw.Below(2) == 0 ? 0 : 2);
                    else if (action < 16)
                        dispatcher_->Disconnect();
                    else if (action < 18)
                        dispatcher_->SetInputFilter([](const MIDIMessage& one) { return one.data1 != 2; });
                    else
                        commands_->GetLearnedCommands();
                }
            });
        threads.emplace_back([&] {
            Draw draw(0);
            start.arrive_and_wait();
            for (int step = 0; step < 20 * kSteps; ++step)
                inputs_.Send(draw.Below(2) == 0 ? 0 : 2, draw.Message());
        });
        threads.clear();

        dispatcher_->Disconnect();  // and what was still on its way is through
        dispatcher_->SetInputFilter({});
        while (dispatcher_->IsLearning())
            dispatcher_->ProcessMessage({0xC5, 0, 0});
        log_.Take();
        // A message fires the one command that has it, and nothing is left over.
        std::map<Model::Key, std::vector<std::string>> expected;
        for (const auto& [id, learned] : commands_->GetLearnedCommands())
            expected[{learned.status | learned.channel, learned.data1}].push_back("fired " + std::to_string(id));
        for (const std::uint8_t status : {0x90, 0x91, 0xB0, 0xB1, 0xC0, 0xC1, 0xC5})
            for (std::uint8_t data1 = 0; data1 < 3; ++data1) {
                dispatcher_->ProcessMessage({status, data1, 1});
                EXPECT_EQ(log_.Take(), (expected[{status, data1}])) << +status << " " << +data1;
            }
    });
}

TEST_F(RandomCommands, AreAnsweredInTheOrderOfRequestsAndNeverOnceTheyAreGone) {
    MustEnd("answers to commands that come and go", [&] {
        testing::internal::CaptureStderr();
        std::atomic<bool> done{false};
        std::jthread input([&] {
            while (!done)
                dispatcher_->ProcessMessage({0x90, 1, 1});
        });
        for (int life = 0; life < 200; ++life) {
            Restart();
            const auto request = [&](unsigned char first) {
                for (unsigned char command = first; command < first + 5; ++command)
                    commands_->LearnMidiCommandNoAssign(command);
            };
            AtOnce([&] { request(5); }, [&] { request(0); });
        }
        done = true;
        input.join();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "two requests came in one order and went in another";
    });
}

TEST_F(RandomCommands, AFloodOfMessagesOutlastsTheReplacingOfInputs) {
    MustEnd("replacing inputs during a flood", [&] {
        constexpr int kReplacements = 400;  // every second of them in a dispatcher that is new
        constexpr int kMessagesEach = 100;
        std::atomic<bool> exists{true};
        std::atomic<int> late{0};
        Count fired;
        const auto slow = [&] {
            fired.Add();
            for (std::atomic<int> work{0}; work < 10000; ++work) {
            }
            if (!exists)
                ++late;
        };
        Restart();
        Count connected;
        std::jthread sender([&] {
            for (int round = 0; round < kReplacements && connected.WaitFor(round + 1); ++round)
                for (int message = 0; message < kMessagesEach; ++message)
                    inputs_.Send(static_cast<std::size_t>(round % 2 * 2), {0x90, 1, 1});
        });
        for (int round = 0; round < kReplacements; ++round) {
            if (round % 2 == 0) {
                commands_.reset();
                dispatcher_.reset();
                exists = false;
                dispatcher_.emplace();
                exists = true;
                dispatcher_->SetMidiBinding({0x90, 1}, slow);
                commands_.emplace(*dispatcher_, path_);
            }
            commands_->ConnectSourceByIndex(round % 2 == 0 ? 0 : 2);
            // The next one takes its place while it still has much to say.
            const int before = fired.Get();
            connected.Add();
            EXPECT_TRUE(fired.WaitFor(before + 1));
        }
        sender.join();
        dispatcher_->Disconnect();  // before what the function counts in is gone
        EXPECT_EQ(late, 0) << "a function ran on when its dispatcher was gone";
    });
}

}  // namespace
