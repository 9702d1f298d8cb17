#include "player/show_control.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/midi/patience.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

namespace player {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using win32_layer::Layer;
using win32_layer::VirtualMidiInput;
using Bytes = std::vector<std::uint8_t>;

Bytes Go(std::uint8_t device, const std::string& fields) {
    Bytes bytes = {0xF0, 0x7F, device, 0x02, 0x11, 0x01};
    for (const char byte : fields)
        bytes.push_back(static_cast<std::uint8_t>(byte));
    bytes.push_back(0xF7);
    return bytes;
}

class ShowControlTest : public ::testing::Test {
protected:
    ShowControlTest() {
        Layer::Instance().Reset();
        Layer::Instance().AddInput(desk_);
        ShowControl::Settings settings;
        settings.go = [this](const std::string& cue) {
            const std::lock_guard lock(mutex_);
            went_.push_back(cue);
            if (cue == "7.5")
                return slow_.get_future();
            std::promise<CommandAnswer> answer;
            answer.set_value({cue != "99", cue == "99" ? "no such cue" : "", 1});
            return answer.get_future();
        };
        settings.plays = [this](const std::string& cue) {
            const std::lock_guard lock(mutex_);
            return playing_ == cue;
        };
        settings.say = [this](const std::string& text) { said_.push_back(text); };
        settings.commandInput = [this] { return pedalsInput_; };
        settings.now = [this] { return now_.load(); };
        control_ = std::make_unique<ShowControl>(settings);
    }
    ~ShowControlTest() override {
        control_.reset();
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 0);
    }

    /// What was fired, once this and everything sent before has been taken: the cue 0 stands for its end.
    std::vector<std::string> Went(const Bytes& sent = {}) {
        if (!sent.empty())
            desk_->Send(sent);
        desk_->Send(Go(0x7F, "0"));
        for (const auto start = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() - start < 20s;
             std::this_thread::yield()) {
            const std::lock_guard lock(mutex_);
            if (went_.empty() || went_.back() != "0")
                continue;
            went_.pop_back();
            return std::exchange(went_, {});
        }
        ADD_FAILURE() << "the end does not come";
        return {};
    }
    /// Until everything sent has been taken: what is refused behind it tells.
    void WaitUntilTaken() {
        const std::uint64_t refused = Report().refused;
        desk_->Send({0xF0, 0x7F, 0, 0x02, 0x00, 0xF7});
        EXPECT_TRUE(WaitUntil([&] { return Report().refused != refused; }));
    }
    ShowControl::Report Report() {
        control_->Poll();
        return control_->GetReport();
    }

    std::shared_ptr<VirtualMidiInput> desk_ = std::make_shared<VirtualMidiInput>(L"Desk");
    std::atomic<ShowControl::Time> now_{ShowControl::Time()};
    std::mutex mutex_;
    std::vector<std::string> went_;     // guarded by mutex_
    std::string playing_;               // guarded by mutex_
    std::promise<CommandAnswer> slow_;  // what becomes of cue 7.5
    std::vector<std::string> said_;
    std::string pedalsInput_ = "Pedals";
    std::unique_ptr<ShowControl> control_;
};

TEST_F(ShowControlTest, CuesForThisShowGoAndEverythingElseIsCountedOrNoneOfIts) {
    control_->OpenShow(ShowDocument::ShowControl{"Desk", 3, "2"});
    EXPECT_EQ(Report().state, "on");
    for (const std::uint8_t byte : Go(3, "12"))
        desk_->Send({byte, 0xF8});
    desk_->Send(Go(0x7F, "1.5\0002"s));
    desk_->Send(Go(3, "8\0002\0007"s));
    EXPECT_THAT(Went(Go(3, "")), ElementsAre("12", "1.5", "8", ""));
    EXPECT_EQ(Report().refused, 0u);

    EXPECT_THAT(Went(Go(4, "12")), IsEmpty()) << "another device's";
    EXPECT_THAT(Went({0xF0, 0x7F, 0x7F, 0x01, 0x01, 1, 2, 3, 4, 0xF7, 0xF0, 0x7E, 0xF7}), IsEmpty()) << "none at all";
    EXPECT_EQ(Report().refused, 0u);
    EXPECT_THAT(Went({0xF0, 0x7F, 3, 0x02, 0x10, 0x01, '1', 0xF7}), IsEmpty());
    EXPECT_EQ(Report().newestRefusal, "Invalid MSC command format type");
    EXPECT_THAT(Went({0xF0, 0x7F, 3, 0x02, 0x11, 0x02, 0xF7}), IsEmpty());
    EXPECT_EQ(Report().newestRefusal, "Invalid Msc command");
    EXPECT_THAT(Went(Go(3, "1\0005"s)), IsEmpty());
    EXPECT_THAT(Report().newestRefusal, HasSubstr("cue list '5'"));
    EXPECT_THAT(Went(Go(3, "99")), ElementsAre("99"));
    EXPECT_EQ(Report().newestRefusal, "no such cue");
    EXPECT_EQ(Report().refused, 4u);
}

TEST_F(ShowControlTest, ARepeatedCueOfThePlayingSongMeansNothingForTwoSeconds) {
    control_->OpenShow(ShowDocument::ShowControl{"Desk", 0, ""});
    const auto cuesAfter = [this](std::chrono::seconds passed) {
        now_ = now_.load() + passed;
        desk_->Send(Go(0, "5"));
        WaitUntilTaken();
        return Report().cues;
    };
    EXPECT_EQ(cuesAfter(0s), 1u);
    EXPECT_EQ(cuesAfter(0s), 2u) << "it does not play";
    {
        const std::lock_guard lock(mutex_);
        playing_ = "5";
    }
    EXPECT_EQ(cuesAfter(0s), 2u);
    EXPECT_EQ(cuesAfter(1s), 2u);
    EXPECT_EQ(cuesAfter(1s), 3u) << "counted from the one that went";
    EXPECT_EQ(cuesAfter(0s), 3u);
    desk_->Send(Go(0, "99"));
    EXPECT_EQ(cuesAfter(0s), 4u) << "only the one that is refused went in between";
    desk_->Send(Go(0, "6"));
    EXPECT_EQ(cuesAfter(0s), 6u) << "another cue went in between";

    // A song that takes its time to be there is not started twice by who waits for it.
    const auto cues = [this] {
        desk_->Send(Go(0, "7.5"));
        WaitUntilTaken();
        return Report().cues;
    };
    EXPECT_EQ(cues(), 7u);
    now_ = now_.load() + 3s;
    EXPECT_EQ(cues(), 7u);
    {
        const std::lock_guard lock(mutex_);
        playing_ = "7.5";
        slow_.set_value({true, "", 1});
    }
    EXPECT_EQ(cues(), 7u) << "it has only just started";
}

TEST_F(ShowControlTest, DisarmedOrWithoutItsInputNothingGoes) {
    control_->OpenShow(std::nullopt);
    EXPECT_EQ(Report().state, "none");
    EXPECT_THROW(control_->SetArmed(true), std::invalid_argument);
    pedalsInput_ = "Desk";
    control_->OpenShow(ShowDocument::ShowControl{"Desk", 0, ""});
    EXPECT_EQ(Report().state, "missing");
    EXPECT_THAT(said_.back(), HasSubstr("'Desk' is the input of the pedals, and a device can be opened once"));
    pedalsInput_.clear();
    Layer::Instance().RemoveInput(desk_);
    control_->OpenShow(ShowDocument::ShowControl{"Desk", 0, ""});
    EXPECT_THAT(said_.back(), HasSubstr("'Desk' is not there"));
    control_->SetArmed(false);
    EXPECT_FALSE(Report().isArmed) << "also while it is missing";
    control_->SetArmed(true);
    EXPECT_TRUE(Report().isArmed);
    Layer::Instance().AddInput(desk_);
    now_ = now_.load() + 2s;
    EXPECT_EQ(Report().state, "on");
    control_->SetArmed(false);
    control_->OpenShow(ShowDocument::ShowControl{"Desk", 0, ""});
    desk_->Send(Go(0, "1"));
    EXPECT_EQ(Report().state, "off") << "the next show is not obeyed either";
    WaitUntilTaken();
    control_->SetArmed(true);
    EXPECT_THAT(Went(), IsEmpty());
    // What leaves in the midst of a message, and comes back.
    desk_->Send({0xF0, 0x7F, 0x7F, 0x02});
    Layer::Instance().RemoveInput(desk_);
    EXPECT_EQ(Report().state, "missing");
    EXPECT_THAT(said_.back(), HasSubstr("lost"));
    desk_ = std::make_shared<VirtualMidiInput>(L"Desk");
    Layer::Instance().AddInput(desk_);
    EXPECT_EQ(Report().state, "on");
    EXPECT_THAT(Went(Go(0, "7")), ElementsAre("7"));
}

}  // namespace
}  // namespace player
