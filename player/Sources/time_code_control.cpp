#include "player/time_code_control.h"

#include <array>
#include <charconv>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "player/display_text.h"
#include "player/output_devices.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::array<std::pair<std::string_view, FrameRate>, 4> kFrameRates = {
    {{"24", FrameRate::k24}, {"25", FrameRate::k25}, {"29.97df", FrameRate::k2997Drop}, {"30", FrameRate::k30}}};

bool IsFrameRate(FrameRate frameRate) {
    return static_cast<std::size_t>(frameRate) < kFrameRates.size();
}

}  // namespace

TimeCodeControl::TimeCodeControl(const Settings& settings)
    : settings_(settings),
      sender_({settings.frameRate.value_or(FrameRate::k30), settings.start, settings.virtualTime, settings.observer}) {
    output_ = settings_.output.empty() ? settings_.musicOutput : OutputDevices::Select(settings_.output);
}

std::filesystem::path TimeCodeControl::SettingsPathFor(const std::filesystem::path& showFile) {
    std::filesystem::path path = showFile;
    path += ".mtc";
    return path;
}

FrameRate TimeCodeControl::ParseFrameRate(const std::string& name) {
    for (const auto& [known, frameRate] : kFrameRates)
        if (name == known)
            return frameRate;
    throw std::invalid_argument("frame rate '" + DisplayText(name) + "' is none of 24, 25, 29.97df and 30");
}

std::array<unsigned char, 4> TimeCodeControl::ParseLabel(const std::string& text) {
    std::array<unsigned char, 4> label{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < label.size(); ++i) {
        const bool hasSeparator = i == 0 || (at != end && (*at == ':' || (i == 3 && *at == ';')));
        if (hasSeparator && i > 0)
            ++at;
        const char* const begin = at;
        const auto parsed = std::from_chars(at, end, label[i]);
        at = parsed.ptr;
        if (!hasSeparator || parsed.ec != std::errc() || at - begin != 2)
            throw std::invalid_argument("time '" + DisplayText(text) + "' is not HH:MM:SS:FF, as 01:00:00:00");
    }
    if (at != end)
        throw std::invalid_argument("time '" + DisplayText(text) + "' is not HH:MM:SS:FF, as 01:00:00:00");
    return label;
}

void TimeCodeControl::OpenShow(const std::filesystem::path& file, bool isActive) {
    path_ = file.empty() ? file : SettingsPathFor(file);
    stored_.reset();
    missingOutput_.clear();
    output_ = settings_.output.empty() ? settings_.musicOutput : OutputDevices::Select(settings_.output);
    bool canSend = true;
    FrameRate frameRate = settings_.frameRate.value_or(FrameRate::k30);
    if (!file.empty()) {
        const std::u8string path = path_.u8string();
        stored_ = std::make_unique<MidiTimeCodeController>(std::string(path.begin(), path.end()));
        if (!settings_.frameRate && IsFrameRate(stored_->GetFrameRate()))
            frameRate = stored_->GetFrameRate();
        else if (!settings_.frameRate)
            settings_.say(zell::format("%s: frame rate %d cannot be sent; 30 fps is", DisplayText(path_.string()),
                                       stored_->GetFrameRate()));
        ReadOutput(RememberedDevice(path_));
    }
    try {
        if (frameRate != sender_.GetRate())
            sender_.ChangeFrameRate(frameRate);
    } catch (const std::invalid_argument& error) {  // the start of the show is no label of that rate
        canSend = false;
        settings_.say(std::string(error.what()) + "; no time code is sent");
    }
    if (settings_.frameRate && stored_ && stored_->GetFrameRate() != *settings_.frameRate) {
        stored_->SetFrameRate(*settings_.frameRate);
        stored_->Shutdown();
    }
    SetActive(canSend && (isActive || settings_.frameRate));
}

/// The command line's choice goes before the stored one, and is stored.
void TimeCodeControl::ReadOutput(const RememberedDevice& remembered) {
    if (!settings_.output.empty()) {
        StoreOutput(output_);
        return;
    }
    if (!stored_->GetHasOutputPortIndex())
        return;
    if (const auto index = remembered.Find(stored_->GetOutputPortIndex(), OutputDevices::GetNames())) {
        output_ = std::to_string(*index);
        return;
    }
    output_.clear();
    missingOutput_ = remembered.GetName();
    if (missingOutput_.empty())
        missingOutput_ = zell::format("output %d", stored_->GetOutputPortIndex());
}

void TimeCodeControl::SetActive(bool active) {
    isActive_ = active;
    if (active)
        OpenPort();
    sender_.SetActive(active);
}

void TimeCodeControl::SetFrameRate(FrameRate frameRate) {
    sender_.ChangeFrameRate(frameRate);
    if (!stored_)
        return;
    stored_->SetFrameRate(frameRate);
    stored_->Shutdown();
}

void TimeCodeControl::SetOutput(const std::string& device) {
    const std::string wanted = OutputDevices::Select(device);
    if (isActive_ && !settings_.virtualTime) {
        sender_.SetOutputPortIndex(static_cast<unsigned int>(std::stoul(wanted)));
        openOutput_ = wanted;
    }
    output_ = wanted;
    missingOutput_.clear();
    if (stored_)
        StoreOutput(output_);
}

void TimeCodeControl::StoreOutput(const std::string& index) {
    const auto number = static_cast<unsigned int>(std::stoul(index));
    try {
        RememberedDevice(path_).Store(OutputDevices::GetNames().at(number));
    } catch (const std::exception& error) {
        settings_.say(error.what());
    }
    stored_->SetOutputPortIndex(number);
    stored_->Shutdown();
}

void TimeCodeControl::OpenPort() {
    if (settings_.virtualTime)
        return;
    if (output_.empty()) {
        settings_.say("time code is not sent: its output '" + missingOutput_ + "' is not there");
        return;
    }
    if (output_ == openOutput_ && sender_.IsPortWorking())
        return;
    openOutput_.clear();
    try {
        sender_.SetOutputPortIndex(static_cast<unsigned int>(std::stoul(output_)));
        openOutput_ = output_;
    } catch (const std::exception& error) {
        settings_.say(error.what());
    }
}

}  // namespace player
