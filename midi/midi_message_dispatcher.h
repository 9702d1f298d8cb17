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
/// Owner:   the host, until the statics of this library end. Destroying it closes
///          the input, and waits for the messages being processed, also those of an
///          input that has been replaced; not for its own where a bound function or
///          a learned callback destroys it, after which that message is done with.
///          The filter and the forwarding function must not destroy it, nor may it
///          end during PacketEnd().
/// Threads: the packet operations on the input thread, one at a time;
///          SetForwardingFunction while no packet is delivered; the rest, with
///          ProcessMessage, on any. Bound functions, learned callbacks and the
///          filter are called on the thread that processes the message; two at
///          once where an input that is being closed still delivers.
/// Lock:    connectingMutex_, held while an input is started or exchanged for
///          another, so that none is started that was let go, or that of the calls,
///          while it looks whether one can still begin; then mutex_, a leaf. None
///          is held while one of these functions runs nor a device is
///          opened or closed. A thread that waits for an input to close must hold no
///          lock that such a function takes.
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
    /// before Start(). A bound function may call it, as far as the platform lets an
    /// input be closed by its own message (see MidiInputWin32); it must not wait for
    /// another thread that connects or disconnects.
    void ConnectWithSourceIndex(unsigned char sourceIndex);
    void Start();
    /// Once it returns, that input delivers nothing more, also where another thread
    /// was starting it.
    void Disconnect();
    bool GetIsConnected();
    /// Of the input or, after Disconnect(), of the one that it closed.
    unsigned char GetPortIndex();

    /// Any key is taken; one of another status than those allowed never fires. What
    /// was bound before may still be running when this or RemoveMidiBinding()
    /// returns: it has to own what it uses.
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
    /// must not connect or disconnect. The one before may still be running when
    /// this returns.
    void SetInputFilter(std::function<bool(const MIDIMessage&)> filter);

    /// A packet is what came since PacketStart() or the packet before. One that
    /// nobody ends keeps the latest messages, 32,768 to 65,536 of them.
    void PacketStart();
    void PacketEnd();
    void SetForwardingFunction(std::function<void(const std::vector<MIDIMessage>&)> function);

    void DisplayCallbackMap(std::ostream& stream);

private:
    /// The messages being processed; outlives a dispatcher that one of them ends.
    struct Calls;
    class Call;

    std::unique_ptr<MidiInputInterface> ReplaceInput(std::unique_ptr<MidiInputInterface> input);
    bool WaitForOtherCalls();
    bool PassesFilter(const MIDIMessage& message);
    bool AnswerLearnRequest(const Key& key);
    bool CallBinding(const Key& key);
    void AppendToPacket(const MIDIMessage& message);

    const std::shared_ptr<Calls> calls_;
    std::mutex connectingMutex_;
    std::mutex mutex_;
    // Guarded by mutex_. Both queues have the same length, 0 unless learning.
    bool isLearning_ = false;
    std::unique_ptr<MidiInputInterface> input_;  // changes under both mutexes
    std::queue<std::function<void(Key)>> learnedCallbacks_;
    std::queue<std::function<void()>> assignCallbacks_;  // an empty one assigns nothing
    std::map<Key, std::function<void()>> callbackMap_;
    std::function<void(const std::vector<MIDIMessage>&)> forwardingFunction_;  // the input thread's
    std::vector<MIDIMessage> packetMessages_;
    unsigned char lastPortIndex_ = 0;
    bool hadConnection_ = false;
    std::shared_ptr<const std::function<bool(const MIDIMessage&)>> filter_;  // null where all pass
};
