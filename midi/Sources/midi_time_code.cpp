#include "midi/midi_time_code.h"

#include <algorithm>
#include <cmath>

#include "midi/invalid_frame_count.h"
#include "midi/invalid_hour_count.h"
#include "midi/invalid_minute_count.h"
#include "midi/invalid_second_count.h"
#include "midi/midi_time_code_frame_rate_error.h"
#include "zell/format.h"

namespace {

// Of the rate that drops two labels a minute, but none every tenth minute.
constexpr std::int64_t kDropFramesPerMinute = 1798;
constexpr std::int64_t kDropFramesPerTenMinutes = 17982;
constexpr std::int64_t kDropFramesPerHour = 107892;

// Whatever the seconds are, a conversion that does not fit is not defined.
std::int64_t WholePart(double value) {
    constexpr double kLimit = 1e15;
    return std::isnan(value) ? 0 : static_cast<std::int64_t>(std::floor(std::clamp(value, -kLimit, kLimit)));
}

// The quotients below may round up to the count of the next place, and the rest
// then comes out a little below zero: both stay inside the place.
std::int64_t WholePart(double value, std::int64_t highest) {
    return std::clamp<std::int64_t>(WholePart(value), 0, highest);
}

/// Adds labels column by column, from the fastest up, each with the carry of the
/// one below it; a negative sum borrows.
class Columns {
public:
    unsigned char Add(std::int64_t sum, std::int64_t modulus) {
        sum += carry_;
        const std::int64_t rest = (sum % modulus + modulus) % modulus;
        carry_ = (sum - rest) / modulus;
        return static_cast<unsigned char>(rest);
    }

private:
    std::int64_t carry_ = 0;
};

}  // namespace

MidiTimeCode::MidiTimeCode() {
    DeriveFromFrameRate();
}

MidiTimeCode::MidiTimeCode(unsigned char hours, unsigned char minutes, unsigned char seconds, unsigned char frames,
                           FrameRate frameRate)
    : hours_(hours), minutes_(minutes), seconds_(seconds), frames_(frames), frameRate_(frameRate) {
    DeriveFromFrameRate();
    if (!FrameCountIsValid())
        throw InvalidFrameCount(zell::format("Invalid frameCount: %i", frames_));
    if (!SecondCountIsValid())
        throw InvalidSecondCount(zell::format("Invalid secondCount: %i", seconds_));
    if (!MinuteCountIsValid())
        throw InvalidMinuteCount(zell::format("Invalid minuteCount: %i", minutes_));
    if (!HourCountIsValid())
        throw InvalidHourCount(zell::format("Invalid hourCount: %i", hours_));
}

MidiTimeCode::MidiTimeCode(double seconds, FrameRate frameRate) : frameRate_(frameRate) {
    DeriveFromFrameRate();
    SetFromSeconds(seconds);
}

MidiTimeCode::MidiTimeCode(const MidiTimeCode& other)
    : hours_(other.hours_),
      minutes_(other.minutes_),
      seconds_(other.seconds_),
      frames_(other.frames_),
      frameRate_(other.frameRate_),
      subFrameSeconds_(other.subFrameSeconds_),
      quarterFrameIndex_(other.quarterFrameIndex_) {
    DeriveFromFrameRate();
}

// Not the members' own assignment: the functions that step would step the other.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): each member may be assigned to itself
MidiTimeCode& MidiTimeCode::operator=(const MidiTimeCode& other) {
    hours_ = other.hours_;
    minutes_ = other.minutes_;
    seconds_ = other.seconds_;
    frames_ = other.frames_;
    subFrameSeconds_ = other.subFrameSeconds_;
    quarterFrameIndex_ = other.quarterFrameIndex_;
    SetFrameRate(other.frameRate_);
    return *this;
}

MidiTimeCode::~MidiTimeCode() = default;

void MidiTimeCode::SetFrameRate(FrameRate frameRate) {
    frameRate_ = frameRate;
    DeriveFromFrameRate();
}

void MidiTimeCode::DeriveFromFrameRate() {
    maxFrameIndex_ = CreateMaxFrameIndex(frameRate_);
    frameCountSeparator_ = GetFrameCountSeparator();
    incrementFunction_ = GetIncrementFunction();
    decrementFunction_ = GetDecrementFunction();
    secondsPerFrame_ = CreateSecondsPerFrame(frameRate_);
}

unsigned char MidiTimeCode::CreateMaxFrameIndex(FrameRate frameRate) {
    switch (frameRate) {
        case FrameRate::k24: return 23;
        case FrameRate::k25: return 24;
        default: return 29;
    }
}

double MidiTimeCode::CreateSecondsPerFrame(FrameRate frameRate) {
    switch (frameRate) {
        case FrameRate::k24: return 1.0 / 24.0;
        case FrameRate::k25: return 0.04;
        case FrameRate::k2997Drop: return 1.0 / 29.97;
        default: return 1.0 / 30.0;
    }
}

char MidiTimeCode::GetFrameCountSeparator() const {
    return IsDropFrame() ? ';' : ':';
}

void MidiTimeCode::SetFromSeconds(double seconds) {
    const std::int64_t hours = WholePart(seconds / 3600.0);
    const double secondsOfHour = seconds - 3600.0 * static_cast<double>(hours);
    hours_ = static_cast<unsigned char>(hours);
    if (IsDropFrame())
        SetDropFrameLabel(secondsOfHour);
    else
        SetPlainLabel(secondsOfHour);
}

void MidiTimeCode::SetPlainLabel(double secondsOfHour) {
    const std::int64_t minutes = WholePart(secondsOfHour / 60.0, 59);
    const double secondsOfMinute = secondsOfHour - 60.0 * static_cast<double>(minutes);
    const std::int64_t seconds = WholePart(secondsOfMinute, 59);
    const double restOfSecond = secondsOfMinute - static_cast<double>(seconds);
    const std::int64_t frames = WholePart(restOfSecond / secondsPerFrame_, maxFrameIndex_);
    minutes_ = static_cast<unsigned char>(minutes);
    seconds_ = static_cast<unsigned char>(seconds);
    frames_ = static_cast<unsigned char>(frames);
    SetSubFrameSeconds(restOfSecond - static_cast<double>(frames) * secondsPerFrame_);
}

void MidiTimeCode::SetDropFrameLabel(double secondsOfHour) {
    const std::int64_t number = WholePart(secondsOfHour / secondsPerFrame_, kDropFramesPerHour - 1);
    SetSubFrameSeconds(secondsOfHour - static_cast<double>(number) * secondsPerFrame_);
    // The first minute of ten keeps its two labels.
    const std::int64_t tens = number / kDropFramesPerTenMinutes;
    const std::int64_t rest = number % kDropFramesPerTenMinutes;
    const std::int64_t dropMinutes = rest < 1800 ? 0 : 1 + (rest - 1800) / kDropFramesPerMinute;
    const std::int64_t label = number + 2 * (9 * tens + dropMinutes);
    minutes_ = static_cast<unsigned char>(label / 1800);
    seconds_ = static_cast<unsigned char>(label / 30 % 60);
    frames_ = static_cast<unsigned char>(label % 30);
}

void MidiTimeCode::SetSubFrameSeconds(double seconds) {
    subFrameSeconds_ = seconds > 0.0 ? seconds : 0.0;
    quarterFrameIndex_ = static_cast<unsigned char>(WholePart(subFrameSeconds_ / (secondsPerFrame_ / 4.0), 3));
}

double MidiTimeCode::GetAsSeconds() const {
    const double secondsOfHour = IsDropFrame() ? static_cast<double>(GetFrameNumberWithinHour()) * secondsPerFrame_
                                               : minutes_ * 60.0 + seconds_ + frames_ * secondsPerFrame_;
    return hours_ * 3600.0 + secondsOfHour + subFrameSeconds_;
}

std::string MidiTimeCode::GetAsString() const {
    return zell::format("%02i:%02i:%02i%s%02i", hours_, minutes_, seconds_, std::string(1, frameCountSeparator_),
                        frames_);
}

void MidiTimeCode::SetQuarterFrameIndex(unsigned char index) {
    quarterFrameIndex_ = index;
    subFrameSeconds_ = index * GetSecondsPerFrame() / 4.0;
}

void MidiTimeCode::IncrementQuarterFrame() {
    if (quarterFrameIndex_ < 3) {
        ++quarterFrameIndex_;
        return;
    }
    quarterFrameIndex_ = 0;
    incrementFunction_();
}

FullFrameMessage MidiTimeCode::GetFullFrameMessage() const {
    return {hours_, minutes_, seconds_, frames_, frameRate_};
}

void MidiTimeCode::SetFullFrameMessage(const FullFrameMessage& message) {
    hours_ = message.GetHours();
    minutes_ = message.GetMinutes();
    seconds_ = message.GetSeconds();
    frames_ = message.GetFrames();
    SetFrameRate(message.GetFrameRate());
}

QuarterFrameMessage MidiTimeCode::GetQuarterFrameMessage(unsigned char index) const {
    switch (index / 2) {
        case 0: return {index, frames_};
        case 1: return {index, seconds_};
        case 2: return {index, minutes_};
        default:
            return index == 6 ? QuarterFrameMessage(index, hours_) : QuarterFrameMessage(index, hours_, frameRate_);
    }
}

void MidiTimeCode::ProcessQuarterFrameMessage(const QuarterFrameMessage& message) {
    const auto replaceNibble = [&message](unsigned char& value) {
        const int kept = message.GetIndex() % 2 == 1 ? 0x0F : 0xF0;
        value = static_cast<unsigned char>((value & kept) | message.GetNibble());
    };
    switch (message.GetIndex()) {
        case 0:
        case 1: replaceNibble(frames_); break;
        case 2:
        case 3: replaceNibble(seconds_); break;
        case 4:
        case 5: replaceNibble(minutes_); break;
        case 6: replaceNibble(hours_); break;
        case 7:
            hours_ = static_cast<unsigned char>((hours_ & ~0x10) | (message.GetDataByte() & 0x01) << 4);
            SetFrameRate(static_cast<FrameRate>(message.GetDataByte() >> 1 & 0x03));
            break;
        default: break;
    }
}

std::uint64_t MidiTimeCode::GetDifferenceAsQuarterFrameCount(const MidiTimeCode& other) const {
    return static_cast<std::uint64_t>((*this - other).GetQuarterFrameCount());
}

bool MidiTimeCode::operator==(const MidiTimeCode& other) const {
    return frames_ == other.frames_ && seconds_ == other.seconds_ && minutes_ == other.minutes_ &&
           hours_ == other.hours_ && frameRate_ == other.frameRate_ && quarterFrameIndex_ == other.quarterFrameIndex_;
}

bool MidiTimeCode::operator<(const MidiTimeCode& other) const {
    return GetQuarterFrameCount() < other.GetQuarterFrameCount();
}

MidiTimeCode& MidiTimeCode::operator++() {
    incrementFunction_();
    return *this;
}

MidiTimeCode MidiTimeCode::operator++(int) {
    const MidiTimeCode before = *this;
    incrementFunction_();
    return before;
}

MidiTimeCode& MidiTimeCode::operator--() {
    decrementFunction_();
    return *this;
}

MidiTimeCode MidiTimeCode::operator--(int) {
    const MidiTimeCode before = *this;
    decrementFunction_();
    return before;
}

MidiTimeCode& MidiTimeCode::operator+=(const MidiTimeCode& other) {
    RequireSameFrameRate(other);
    const std::int64_t realFrames = GetRealFrameCount() + other.GetRealFrameCount();
    Columns columns;
    quarterFrameIndex_ = columns.Add(quarterFrameIndex_ + other.quarterFrameIndex_, 4);
    frames_ = columns.Add(realFrames, GetMaxFrameCount());
    seconds_ = columns.Add(seconds_ + other.seconds_, 60);
    minutes_ = columns.Add(minutes_ + other.minutes_, 60);
    hours_ = columns.Add(hours_ + other.hours_, 24);
    if (IsDropFrame()) {
        frames_ = static_cast<unsigned char>(frames_ + GetMinFrameCount());
        if (frames_ > maxFrameIndex_) {
            frames_ = static_cast<unsigned char>(frames_ % GetMaxFrameCount());
            IncrementSecondCount();
        }
    }
    return *this;
}

MidiTimeCode& MidiTimeCode::operator-=(const MidiTimeCode& other) {
    RequireSameFrameRate(other);
    const std::int64_t realFrames = GetRealFrameCount() - other.GetRealFrameCount();
    Columns columns;
    quarterFrameIndex_ = columns.Add(quarterFrameIndex_ - other.quarterFrameIndex_, 4);
    frames_ = columns.Add(realFrames, GetMaxFrameCount());
    seconds_ = columns.Add(seconds_ - other.seconds_, 60);
    minutes_ = columns.Add(minutes_ - other.minutes_, 60);
    hours_ = columns.Add(hours_ - other.hours_, 24);
    if (IsDropFrame() && frames_ < GetMinFrameCount()) {
        frames_ = static_cast<unsigned char>(frames_ - 1 + maxFrameIndex_);
        DecrementSecondCount();
    }
    return *this;
}

MidiTimeCode MidiTimeCode::operator+(const MidiTimeCode& other) const {
    MidiTimeCode sum = *this;
    sum += other;
    return sum;
}

MidiTimeCode MidiTimeCode::operator-(const MidiTimeCode& other) const {
    MidiTimeCode difference = *this;
    difference -= other;
    return difference;
}

MidiTimeCode& MidiTimeCode::operator+=(unsigned char frameCount) {
    return *this += MidiTimeCode(0, 0, 0, frameCount, frameRate_);
}

MidiTimeCode& MidiTimeCode::operator-=(unsigned char frameCount) {
    return *this -= MidiTimeCode(0, 0, 0, frameCount, frameRate_);
}

MidiTimeCode MidiTimeCode::operator+(unsigned char frameCount) const {
    return *this + MidiTimeCode(0, 0, 0, frameCount, frameRate_);
}

MidiTimeCode MidiTimeCode::operator-(unsigned char frameCount) const {
    return *this - MidiTimeCode(0, 0, 0, frameCount, frameRate_);
}

void MidiTimeCode::RequireSameFrameRate(const MidiTimeCode& other) const {
    if (frameRate_ != other.frameRate_)
        throw MidiTimeCodeFrameRateError("Cannot add together time codes with different frame rates.");
}

std::function<void()> MidiTimeCode::GetIncrementFunction() {
    if (IsDropFrame())
        return [this] { IncrementForDropFrame(); };
    return [this] { IncrementForNonDropFrame(); };
}

std::function<void()> MidiTimeCode::GetDecrementFunction() {
    if (IsDropFrame())
        return [this] { DecrementForDropFrame(); };
    return [this] { DecrementForNonDropFrame(); };
}

void MidiTimeCode::IncrementForDropFrame() {
    const bool wraps = frames_ >= maxFrameIndex_;
    IncrementFrameCount(0);
    // Only the new minute tells whether its first labels are dropped.
    if (wraps)
        frames_ = GetMinFrameCount();
}

void MidiTimeCode::IncrementForNonDropFrame() {
    IncrementFrameCount(0);
}

void MidiTimeCode::DecrementForDropFrame() {
    DecrementFrameCount(GetMinFrameCount());
}

void MidiTimeCode::DecrementForNonDropFrame() {
    DecrementFrameCount(0);
}

void MidiTimeCode::IncrementFrameCount(unsigned char labelToWrapTo) {
    if (frames_ < maxFrameIndex_) {
        ++frames_;
        return;
    }
    frames_ = labelToWrapTo;
    IncrementSecondCount();
}

void MidiTimeCode::IncrementSecondCount() {
    if (seconds_ < 59) {
        ++seconds_;
        return;
    }
    seconds_ = 0;
    IncrementMinuteCount();
}

void MidiTimeCode::IncrementMinuteCount() {
    if (minutes_ < 59) {
        ++minutes_;
        return;
    }
    minutes_ = 0;
    IncrementHourCount();
}

void MidiTimeCode::IncrementHourCount() {
    hours_ = hours_ < 23 ? static_cast<unsigned char>(hours_ + 1) : 0;
}

void MidiTimeCode::DecrementFrameCount(unsigned char lowestLabel) {
    if (frames_ > lowestLabel) {
        --frames_;
        return;
    }
    frames_ = maxFrameIndex_;
    DecrementSecondCount();
}

void MidiTimeCode::DecrementSecondCount() {
    if (seconds_ != 0) {
        --seconds_;
        return;
    }
    seconds_ = 59;
    DecrementMinuteCount();
}

void MidiTimeCode::DecrementMinuteCount() {
    if (minutes_ != 0) {
        --minutes_;
        return;
    }
    minutes_ = 59;
    DecrementHourCount();
}

void MidiTimeCode::DecrementHourCount() {
    hours_ = hours_ != 0 ? static_cast<unsigned char>(hours_ - 1) : 23;
}

bool MidiTimeCode::FrameCountIsValid() const {
    return frames_ >= GetMinFrameCount() && frames_ <= maxFrameIndex_;
}

bool MidiTimeCode::SecondCountIsValid() const {
    return seconds_ < 60;
}

bool MidiTimeCode::MinuteCountIsValid() const {
    return minutes_ < 60;
}

bool MidiTimeCode::HourCountIsValid() const {
    return hours_ < 24;
}

bool MidiTimeCode::GetIsDropMinute() const {
    return minutes_ % 10 != 0;
}

unsigned char MidiTimeCode::GetMinFrameCount() const {
    return IsDropFrame() && GetIsDropMinute() && seconds_ == 0 ? 2 : 0;
}

unsigned char MidiTimeCode::GetMaxFrameCount() const {
    return static_cast<unsigned char>(maxFrameIndex_ + 1);
}

std::int64_t MidiTimeCode::GetRealFrameCount() const {
    return std::int64_t{frames_} - GetMinFrameCount();
}

std::int64_t MidiTimeCode::GetFrameCount() const {
    return GetFrameCountFromHours() + GetFrameCountFromMinutes() + GetFrameCountFromSeconds() + GetRealFrameCount();
}

std::int64_t MidiTimeCode::GetFrameCountFromHours() const {
    return hours_ * (IsDropFrame() ? kDropFramesPerHour : 3600 * std::int64_t{GetMaxFrameCount()});
}

std::int64_t MidiTimeCode::GetFrameCountFromMinutes() const {
    const std::int64_t count = 60 * std::int64_t{GetMaxFrameCount()} * minutes_;
    return IsDropFrame() ? count - 2 * (minutes_ - (minutes_ + 9) / 10) : count;
}

std::int64_t MidiTimeCode::GetFrameCountFromSeconds() const {
    const std::int64_t count = std::int64_t{GetMaxFrameCount()} * seconds_;
    return IsDropFrame() && GetIsDropMinute() && seconds_ > 0 ? count - 2 : count;
}

std::int64_t MidiTimeCode::GetQuarterFrameCount() const {
    return 4 * GetFrameCount() + quarterFrameIndex_;
}

std::int64_t MidiTimeCode::GetFrameNumberWithinHour() const {
    return 30 * (std::int64_t{60} * minutes_ + seconds_) + frames_ - 2 * (minutes_ - minutes_ / 10);
}
