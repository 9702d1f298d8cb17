#include "midi/midi_time_code_controller.h"

#include <ios>

#include "midi/Sources/settings_file.h"
#include "midi/vemo_midi_error.h"
#include "vemo_core/gui_dispatcher.h"
#include "zell/cout_buffer.h"
#include "zell/errors.h"

namespace {

constexpr char kHeader[] = "MidiTimeCodeSettings";

// Not plain functions, of whose types the library would show the outside the names.
constexpr auto kIgnoreInterval = [](double /*currentSeconds*/, double /*nextSeconds*/, double /*intervalSeconds*/) {};
constexpr auto kIgnoreSeconds = [](double /*seconds*/) {};

void ReportLoadFailure(const std::exception& error) {
    zell::CoutBuffer() << "MidiTimeCodeController::MidiTimeCodeController"
                       << "::LoadFromFile failed with " << error.what() << zell::endl;
}

}  // namespace

MidiTimeCodeController::MidiTimeCodeController(const std::string& settingsFilePath)
    : settingsFilePath_(settingsFilePath), intervalFunction_(kIgnoreInterval), secondsFunction_(kIgnoreSeconds) {
    try {
        LoadFromFile();
    } catch (const zell::IoError&) {  // before the first save there is no file
    } catch (const std::ios_base::failure& error) {
        ReportLoadFailure(error);
    } catch (const VemoMidiError& error) {
        ReportLoadFailure(error);
    }
}

MidiTimeCodeController::~MidiTimeCodeController() = default;

void MidiTimeCodeController::ActivateMidiTimeCode() {}

void MidiTimeCodeController::CancelMidiTimeCode() {
    PrepareForExit();
    notify::guiDispatcher.SendMtcActiveStateNotification(isActive_);
}

void MidiTimeCodeController::PrepareForExit() {
    if (!isActive_)
        return;
    isActive_ = false;
    intervalFunction_ = kIgnoreInterval;
    secondsFunction_ = kIgnoreSeconds;
    midiTimeCodeThread_.reset();
}

void MidiTimeCodeController::Shutdown() {
    try {
        SaveToFile();
    } catch (...) {  // whatever it is, the show ends all the same
        zell::CoutBuffer() << "WARNING: Unable to save settings to " << settingsFilePath_ << zell::endl;
    }
    CancelMidiTimeCode();
}

void MidiTimeCodeController::SetFrameRate(FrameRate frameRate) {
    frameRate_ = frameRate;
    if (midiTimeCodeThread_)
        midiTimeCodeThread_->SetFrameRate(frameRate);
    notify::guiDispatcher.SendMtcFrameRateNotification(ConvertFrameRateToString(frameRate));
}

void MidiTimeCodeController::SetOutputPortIndex(unsigned int portIndex) {
    outputPortIndex_ = portIndex;
    hasOutputPortIndex_ = true;
    SetMtcThreadOutputPortIndex_();
}

void MidiTimeCodeController::SetMtcThreadOutputPortIndex_() {
    if (!midiTimeCodeThread_ || !hasOutputPortIndex_)
        return;
    try {
        midiTimeCodeThread_->SetOutputPortIndex(outputPortIndex_);
    } catch (const VemoMidiError&) {
        hasOutputPortIndex_ = false;
        throw;
    }
    notify::guiDispatcher.SendMtcOutputPortNotification(outputPortIndex_);
}

void MidiTimeCodeController::SendMidiTimeCodeWithSeconds(double seconds) {
    secondsFunction_(seconds);
}

void MidiTimeCodeController::SetMidiTimeCodeInterval(double currentSeconds, double nextSeconds,
                                                     double intervalSeconds) {
    intervalFunction_(currentSeconds, nextSeconds, intervalSeconds);
}

void MidiTimeCodeController::LoadFromFile() {
    SettingsFile file(settingsFilePath_);
    file.Open();
    if (file.ReadString() != kHeader)
        throw VemoMidiError("Unrecognized command settings file.");
    // Whether time code was being sent then says nothing about now.
    file.ReadByte();
    hasOutputPortIndex_ = file.ReadByte() != 0;
    outputPortIndex_ = file.ReadUint32();
    frameRate_ = static_cast<FrameRate>(file.ReadByte());
}

void MidiTimeCodeController::SaveToFile() {
    SettingsFile file(settingsFilePath_);
    file.WriteString(kHeader);
    file.WriteByte(isActive_ ? 1 : 0);
    file.WriteByte(hasOutputPortIndex_ ? 1 : 0);
    file.WriteUint32(outputPortIndex_);
    file.WriteByte(static_cast<std::uint8_t>(frameRate_));
    file.Save();
}
