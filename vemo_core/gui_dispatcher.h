#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "vemo_core/vemo_core_export.h"

namespace notify {

/// Carries values to the user interface's display.
///
/// Owner:   the process; see guiDispatcher.
/// Threads: any; the receiver runs on the sending thread. One that was replaced
///          may still be running on another.
/// Lock:    mutex_, not held while the receiver runs.
/// Errors:  none leave it: what a receiver throws is logged.
class VEMO_CORE_EXPORT GuiDispatcher {
public:
    /// What a display shows; each member is called for one message and may be empty.
    struct Receiver {
        std::function<void(int milliseconds)> guiDelay;
        std::function<void(const std::string& text)> midiClockDebug;
        std::function<void(bool isActive)> mtcActiveState{};
        std::function<void(const std::string& name)> mtcFrameRate{};
        std::function<void(unsigned int portIndex)> mtcOutputPort{};
        std::function<void()> midiActivity{};
        /// command: id, status with channel and first data byte, 16, 8 and 0 bits up.
        std::function<void(unsigned int command)> learnedMidiCommand{};
        std::function<void(unsigned int commandId)> midiCommandCanceled{};
        std::function<void(unsigned int sourceIndex)> sourceConnected{};
    };

    GuiDispatcher();
    ~GuiDispatcher();
    void SetReceiver(Receiver receiver);
    void SendGuiDelayMessage(int milliseconds);
    void SendMidiClockDebugMessage(const std::string& text);
    void SendMtcActiveStateNotification(bool isActive);
    void SendMtcFrameRateNotification(const std::string& name);
    void SendMtcOutputPortNotification(unsigned int portIndex);
    void SendMidiNotification();
    void SendLearnedMIDICommand(unsigned int command);
    void SendMidiCommandCanceled(unsigned int commandId);
    void SendSourceConnected(unsigned int sourceIndex);

private:
    std::shared_ptr<const Receiver> Current();

    std::mutex mutex_;
    std::shared_ptr<const Receiver> receiver_;
};

/// Never destroyed: engine threads may send while the process ends.
VEMO_CORE_EXPORT extern GuiDispatcher& guiDispatcher;

}  // namespace notify
