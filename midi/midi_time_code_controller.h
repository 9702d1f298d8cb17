#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "midi/frame_rate.h"
#include "midi/midi_time_code_thread.h"
#include "midi/vemo_midi_export.h"

/// Keeps the settings of MIDI Time Code, its port and its frame rate, in a file
/// between two shows and tells the display of changes. It sends nothing itself.
///
/// Owner:   the host. Nothing is saved unless it calls Shutdown().
/// Threads: the host's, one at a time.
/// Lock:    none.
/// Units:   seconds of time code.
/// Errors:  loading and saving report on the console and never throw. A rate that
///          the file has is not checked; SetFrameRate throws std::logic_error for
///          one that is none of the four, once it is stored.
class VEMO_MIDI_EXPORT MidiTimeCodeController {
public:
    /// settingsFilePath: in UTF-8. Takes over what of the file can be read.
    explicit MidiTimeCodeController(const std::string& settingsFilePath);
    ~MidiTimeCodeController();
    MidiTimeCodeController(const MidiTimeCodeController&) = delete;
    MidiTimeCodeController& operator=(const MidiTimeCodeController&) = delete;

    /// Has no effect in this engine.
    void ActivateMidiTimeCode();
    void CancelMidiTimeCode();
    void PrepareForExit();
    /// Saves, then cancels.
    void Shutdown();

    void SetFrameRate(FrameRate frameRate);
    void SetOutputPortIndex(unsigned int portIndex);
    void SendMidiTimeCodeWithSeconds(double seconds);
    void SetMidiTimeCodeInterval(double currentSeconds, double nextSeconds, double intervalSeconds);

    bool GetIsActive() const { return isActive_; }
    FrameRate GetFrameRate() const { return frameRate_; }
    bool GetHasOutputPortIndex() const { return hasOutputPortIndex_; }
    unsigned int GetOutputPortIndex() const { return outputPortIndex_; }

private:
    void LoadFromFile();
    void SaveToFile();
    void SetMtcThreadOutputPortIndex_();

    std::string settingsFilePath_;
    bool isActive_ = false;
    std::unique_ptr<MidiTimeCodeThread> midiTimeCodeThread_;
    std::function<void(double, double, double)> intervalFunction_;
    std::function<void(double)> secondsFunction_;
    bool hasOutputPortIndex_ = false;
    std::uint32_t outputPortIndex_ = 0;
    FrameRate frameRate_ = FrameRate::k30;
};
