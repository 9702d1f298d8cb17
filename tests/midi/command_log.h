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
        using namespace notify::names;
        for (const std::string_view name :
             {midiCommandConductBeat, midiCommandContinuousMode, midiCommandPlay, midiCommandPause, midiCommandStop,
              midiCommandNextSong, midiCommandPreviousSong, midiCommandNextMarker, midiCommandPreviousMarker,
              midiCommandContinue, midiCommandNextPatch, midiCommandPreviousPatch, midiCommandLearned,
              midiSourceConnected})
            notify::callbackDispatcher.AddCallback(name, this, [this, name](const void*) { Add(std::string(name)); });
    }
    ~CommandLog() {
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        notify::guiDispatcher.SetReceiver({});
    }
    CommandLog(const CommandLog&) = delete;
    CommandLog& operator=(const CommandLog&) = delete;

    std::vector<std::string> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    void Add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
    }

    std::mutex mutex_;
    std::vector<std::string> lines_;
};
