#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "midi/learned_command.h"
#include "midi/midi_message_dispatcher.h"
#include "midi/vemo_midi_export.h"

namespace midi_commands {

/// Lets performers drive the transport from a MIDI controller: learns which message
/// fires which command, binds it in the dispatcher, and keeps the commands and the
/// input that they come from in a file between two shows.
///
/// Owner:   the host. The dispatcher outlives it; the bindings stay there. Learn
///          requests that it leaves behind are answered without effect. It saves
///          when it is destroyed, and only then.
/// Threads: any; not from a handler of its notifications, which only posts.
///          A learn answer arrives on the input thread. Notifications are sent on
///          the thread whose call changes something.
/// Lock:    mutex_, then the dispatcher's; notifications of changes are sent with
///          mutex_ held. Connecting is one at a time by sourceMutex_, then, while an
///          input is started, by the answers' own, by which answers come one at a
///          time; requesting by learnMutex_. Each of them comes before mutex_.
///          Closing an input waits for an answer: sourceMutex_ is never taken by
///          one, and alone while an input is closed.
/// Units:   command ids of commandIds; status without channel, channel 0 to 15.
/// Errors:  MidiPortError where a source cannot be connected or started;
///          std::out_of_range for a command that does not exist. Loading and
///          saving report on the console, but an unknown command in the file,
///          whose source is there, is thrown by the constructor.
class VEMO_MIDI_EXPORT MidiCommands {
public:
    /// settingsFilePath: in UTF-8. Takes over the commands in the file, and connects
    /// and starts the source where it is there. Without one, the commands are bound
    /// once a source is connected.
    MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsFilePath);
    ~MidiCommands();
    MidiCommands(const MidiCommands&) = delete;
    MidiCommands& operator=(const MidiCommands&) = delete;

    /// The next message that can be bound, and is not wanted by an earlier request,
    /// becomes the command's. A command that does not exist is refused only then:
    /// another command has lost that message, and the refusal is logged.
    void LearnMidiCommandNoAssign(unsigned char commandId);
    void OnLearnedMidiCommandNoAssign(unsigned char commandId, std::pair<unsigned char, unsigned char> key);
    bool IsMidiCommandLearning(unsigned char commandId);

    /// Takes the message away from another command that has it, which is canceled.
    /// This happens before a command that does not exist is refused.
    void SetMidiCommand(unsigned char commandId, unsigned char status, unsigned char channel, unsigned char data1);
    void UnsetMidiCommand(unsigned char commandId);
    std::map<unsigned char, LearnedCommand> GetLearnedCommands();
    bool GetHasConductBeat();

    /// Selects, opens and starts the source. A refusal or a failure to open leaves
    /// the input of before, which the next save then forgets; a failure to start
    /// leaves the new one silent. std::out_of_range where a command of the file
    /// does not exist: the source is there, and those behind it are not bound.
    void ConnectSourceByIndex(unsigned char sourceIndex);
    unsigned char GetConnectedSourceIndex();
    bool HasMidiSource();

private:
    /// Whom learn answers go to, if it is still there.
    struct Answers;

    void RemoveDuplicateLearnedCommand(const LearnedCommand& command);
    void ReconnectLearnedCommands();
    void LoadFromFile();
    void SaveToFile();
    static void SendLearnedCommand(const LearnedCommand& command);
    static void SendCommandCanceled(unsigned char commandId);

    std::recursive_mutex mutex_;
    MidiMessageDispatcher& dispatcher_;
    // Guarded by mutex_.
    std::deque<unsigned char> pendingLearnCommandIds_;
    bool hasConductBeat_ = false;
    bool sourceIsConnected_ = false;
    bool sourceIsUniqueId_ = false;
    std::int32_t sourceUniqueId_ = 0;
    std::map<unsigned char, LearnedCommand> learnedCommands_;

    const std::string settingsFilePath_;
    std::mutex sourceMutex_;
    std::mutex learnMutex_;
    const std::shared_ptr<Answers> answers_;
};

}  // namespace midi_commands
