#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <queue>
#include <set>
#include <utility>
#include <vector>

#include "midi/midi_input_interface.h"
#include "midi/midi_message.h"
#include "midi/msc_message.h"
#include "midi/vemo_midi_export.h"

/// The statuses, without their channel, of the messages that can be bound or
/// learned: Note On, Control Change, Program Change.
VEMO_MIDI_EXPORT extern const std::set<unsigned char> allowedStatuses;

/// By the second element, then by the first. The dispatcher's own order is the
/// pair's.
VEMO_MIDI_EXPORT bool operator<(const std::pair<unsigned char, unsigned char>& left,
                                const std::pair<unsigned char, unsigned char>& right);

/// Lets performers set things off from a MIDI controller: owns the one MIDI input,
/// calls the function that a message is bound to, and learns bindings from the
/// messages that come next. What nothing consumes is collected and forwarded.
///
/// Owner:   the host. Destroying it closes the input first, and waits for the
///          message being processed; not from a function that it calls.
/// Threads: ProcessMessage and the packet operations on the input thread, one at a
///          time; SetForwardingFunction while no packet is delivered; the rest on
///          any. Bound functions, learned callbacks and the filter are called on
///          the input thread.
/// Lock:    mutex_, a leaf, held while none of these functions runs nor a device is
///          opened, started or closed. A thread that waits for an input to close
///          must hold no lock that such a function takes.
/// Units:   a key is a status byte with its channel and the first data byte.
/// Errors:  MidiPortError where an input cannot be opened or started;
///          std::bad_function_call for an empty function when its turn comes. What
///          is thrown on the input thread is logged.
class VEMO_MIDI_EXPORT MidiMessageDispatcher {
public:
    using Key = std::pair<unsigned char, unsigned char>;

    MidiMessageDispatcher();
    ~MidiMessageDispatcher();
    MidiMessageDispatcher(const MidiMessageDispatcher&) = delete;
    MidiMessageDispatcher& operator=(const MidiMessageDispatcher&) = delete;

    /// Opens that input device in place of the current one, which is closed only
    /// then, and stays where the new one cannot be opened. It delivers nothing
    /// before Start(). May be called by a bound function, which must not wait for
    /// another thread that connects or disconnects.
    void ConnectWithSourceIndex(unsigned char sourceIndex);
    void Start();
    void Disconnect();
    bool GetIsConnected();
    /// Of the input or, after Disconnect(), of the one that it closed.
    unsigned char GetPortIndex();

    /// Any key is taken; one of another status than those allowed never fires.
    void SetMidiBinding(const Key& key, std::function<void()> function);
    void RemoveMidiBinding(const Key& key);
    /// The next message that can be bound answers the oldest request and sets off
    /// nothing else. Requests cannot be taken back, and no binding fires while one
    /// is pending.
    void LearnMidiBinding(std::function<void()> assign, std::function<void(Key)> learned);
    void LearnMidiBindingNoAssign(std::function<void(Key)> learned);
    bool IsLearning();

    void ProcessMessage(const MIDIMessage& message);
    /// Counts as MIDI activity and has no other effect.
    void ProcessMscMessage(const MscMessage& message);
    void MidiNotification();
    /// Asked for each message; one for which it answers false counts as activity
    /// and has no other effect. Without one, or with an empty one, all pass. It
    /// must not connect or disconnect.
    void SetInputFilter(std::function<bool(const MIDIMessage&)> filter);

    /// A packet is what came since PacketStart() or the packet before. One that
    /// nobody ends keeps the latest messages, 32,768 to 65,536 of them.
    void PacketStart();
    void PacketEnd();
    void SetForwardingFunction(std::function<void(const std::vector<MIDIMessage>&)> function);

    void DisplayCallbackMap(std::ostream& stream);

private:
    std::shared_ptr<MidiInputInterface> ReplaceInput(std::shared_ptr<MidiInputInterface> input);
    bool PassesFilter(const MIDIMessage& message);
    bool AnswerLearnRequest(const Key& key);
    bool CallBinding(const Key& key);
    void AppendToPacket(const MIDIMessage& message);

    std::mutex mutex_;
    // Guarded by mutex_. Both queues have the same length, 0 unless learning.
    bool isLearning_ = false;
    std::shared_ptr<MidiInputInterface> input_;  // shared with a Start() under way
    std::queue<std::function<void(Key)>> learnedCallbacks_;
    std::queue<std::function<void()>> assignCallbacks_;  // an empty one assigns nothing
    std::map<Key, std::function<void()>> callbackMap_;
    std::function<void(const std::vector<MIDIMessage>&)> forwardingFunction_;  // the input thread's
    std::vector<MIDIMessage> packetMessages_;
    unsigned char lastPortIndex_ = 0;
    bool hadConnection_ = false;
    std::shared_ptr<const std::function<bool(const MIDIMessage&)>> filter_;  // null where all pass
};
