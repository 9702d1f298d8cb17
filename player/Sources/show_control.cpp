#include "player/show_control.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

#include "midi/msc_message.h"
#include "player/display_text.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenLooks = 1s;
// Universal real-time system exclusive, and of that show control.
constexpr std::uint8_t kSysEx = 0xF0;
constexpr std::uint8_t kRealTime = 0x7F;
constexpr std::uint8_t kShowControl = 0x02;
constexpr std::size_t kDeviceIdAt = 2;
constexpr std::size_t kSubIdAt = 3;
constexpr int kAllCall = 0x7F;

}  // namespace

ShowControl::ShowControl(Settings settings) : settings_(std::move(settings)) {}

ShowControl::~ShowControl() = default;

void ShowControl::OpenShow(const std::optional<ShowDocument::ShowControl>& wanted) {
    const std::lock_guard input(inputMutex_);
    input_.reset();
    {
        const std::lock_guard lock(mutex_);
        wanted_ = wanted;
        isOpen_ = false;
        isLost_ = false;
        counts_ = {};
        obeyedCue_.clear();
        pending_.clear();
    }
    nextLook_ = settings_.now() + kBetweenLooks;
    if (wanted)
        OpenInput(true);
}

void ShowControl::OpenInput(bool mayComplain) {
    std::string name;
    {
        const std::lock_guard lock(mutex_);
        name = wanted_->input;
    }
    const std::optional<unsigned int> device = MidiInput::Find(name);
    std::string trouble;
    if (name == settings_.commandInput())
        trouble = "'" + DisplayText(name) + "' is the input of the pedals, and a device can be opened once";
    else if (!device)
        trouble = "its input '" + DisplayText(name) + "' is not there; it is waited for";
    else
        try {
            input_ = std::make_unique<MidiInput>(
                *device, [this](const std::uint8_t* bytes, std::size_t count, double) { Take(bytes, count); });
            device_ = *device;
            const std::lock_guard lock(mutex_);
            isOpen_ = true;
        } catch (const std::runtime_error& error) {
            trouble = error.what();
        }
    if (!trouble.empty() && mayComplain)
        settings_.say("show control is not heard: " + trouble);
}

void ShowControl::TellLoss() {
    const bool isLost = input_ && MidiInput::IsLost(device_);
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isLost_, isLost) == isLost)
            return;
    }
    settings_.say(isLost ? "the input of show control is lost; it will be heard again when it is back"
                         : "show control is heard");
}

void ShowControl::Poll() {
    const std::lock_guard input(inputMutex_);
    TellLoss();
    const Time now = settings_.now();
    const std::uint64_t discarded = input_ ? input_->GetDiscarded() : 0;
    {
        const std::lock_guard lock(mutex_);
        CountAnswers();
        if (discarded > discarded_) {
            counts_.refused += discarded - discarded_;
            counts_.newestRefusal = "a message was broken off, too long or badly received";
        }
        discarded_ = discarded;
        if (!wanted_ || isOpen_ || now < nextLook_)
            return;
    }
    nextLook_ = now + kBetweenLooks;
    OpenInput(false);
    if (input_)
        settings_.say("show control is heard");
}

std::string ShowControl::GetInput() const {
    const std::lock_guard lock(mutex_);
    return wanted_ ? wanted_->input : std::string();
}

void ShowControl::SetArmed(bool armed) {
    const std::lock_guard lock(mutex_);
    if (!wanted_)
        throw std::invalid_argument("this show has no show control; see showControl in its file");
    isArmed_ = armed;
}

void ShowControl::Take(const std::uint8_t* bytes, std::size_t count) {
    const bool isShowControl =
        count > kSubIdAt && bytes[0] == kSysEx && bytes[1] == kRealTime && bytes[kSubIdAt] == kShowControl;
    if (!isShowControl)
        return;
    std::string cue;
    try {
        const int deviceId = bytes[kDeviceIdAt];
        {
            const std::lock_guard lock(mutex_);
            if (deviceId != kAllCall && deviceId != wanted_->deviceId)
                return;
        }
        const MscMessage message(bytes + kDeviceIdAt, count - kDeviceIdAt);
        dispatcher_.ProcessMscMessage(message);
        const MscCueNumber place = message.EventId();
        const std::lock_guard lock(mutex_);
        if (!wanted_->cueList.empty() && !place.list.empty() && place.list != wanted_->cueList)
            throw std::runtime_error("cue list '" + DisplayText(place.list) + "' is not this show's");
        if (!isArmed_)
            return;
        cue = place.number;
    } catch (const std::runtime_error& error) {
        Refuse(error.what());
        return;
    }
    const Time now = settings_.now();
    bool isPending = false;
    {
        const std::lock_guard lock(mutex_);
        CountAnswers();
        isPending = !pending_.empty();
        if (isPending && pending_.back().cue == cue)
            return;
    }
    // In this order: one that is still to be carried out will play.
    const bool isPlaying = !cue.empty() && settings_.plays(cue);
    const std::lock_guard lock(mutex_);
    if (!isPending && isPlaying && cue == obeyedCue_ && now - obeyedAt_ < kRepeatTime)
        return;
    ++counts_.cues;
    pending_.push_back({cue, settings_.go(cue)});
}

void ShowControl::CountAnswers() {
    while (!pending_.empty() && pending_.front().answer.wait_for(0s) == std::future_status::ready) {
        const std::string cue = pending_.front().cue;
        const CommandAnswer answer = pending_.front().answer.get();
        pending_.pop_front();
        if (answer.done) {
            obeyedCue_ = cue;
            obeyedAt_ = settings_.now();  // a song may take its time to be there
        } else {
            ++counts_.refused;
            counts_.newestRefusal = answer.message;
        }
    }
}

void ShowControl::Refuse(const std::string& reason) {
    const std::lock_guard lock(mutex_);
    ++counts_.refused;
    counts_.newestRefusal = reason;
}

ShowControl::Report ShowControl::GetReport() const {
    const std::lock_guard lock(mutex_);
    Report report = counts_;
    report.state = !wanted_ ? "none" : !isOpen_ || isLost_ ? "missing" : isArmed_ ? "on" : "off";
    report.isArmed = wanted_ && isArmed_;
    return report;
}

}  // namespace player
