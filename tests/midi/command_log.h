#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/gui_dispatcher.h"
#include "vemo_core/notify_names.h"

/// What display and host are told of commands while it lives.
///
/// Threads: any thread may notify; Take() on the test's.
class CommandLog {
public:
    CommandLog() {
        notify::GuiDispatcher::Receiver receiver;
        receiver.learnedMidiCommand = [this](unsigned int command) {
            Add("learned " + std::to_string(command >> 16) + " " + std::to_string(command >> 8 & 0xFF) + " " +
                std::to_string(command & 0xFF));
        };
        receiver.midiCommandCanceled = [this](unsigned int id) { Add("canceled " + std::to_string(id)); };
        receiver.sourceConnected = [this](unsigned int index) { Add("source " + std::to_string(index)); };
        notify::guiDispatcher.SetReceiver(std::move(receiver));
        namespace names = notify::names;
        AddCallback(names::midiCommandLearned, "learned");
        AddCallback(names::midiSourceConnected, "connected");
        int id = 0;
        for (const std::string_view name :
             {names::midiCommandConductBeat, names::midiCommandContinuousMode, names::midiCommandPlay,
              names::midiCommandPause, names::midiCommandStop, names::midiCommandNextSong,
              names::midiCommandPreviousSong, names::midiCommandNextMarker, names::midiCommandPreviousMarker,
              names::midiCommandContinue, names::midiCommandNextPatch, names::midiCommandPreviousPatch})
            AddCallback(name, "fired " + std::to_string(id++));
    }
    ~CommandLog() {
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        notify::guiDispatcher.SetReceiver({});
    }

    std::vector<std::string> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    void AddCallback(std::string_view name, const std::string& line) {
        notify::callbackDispatcher.AddCallback(name, this, [this, line](const void*) { Add(line); });
    }
    void Add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
    }

    std::mutex mutex_;
    std::vector<std::string> lines_;
};
