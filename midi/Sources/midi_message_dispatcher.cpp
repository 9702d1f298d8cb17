#include "midi/midi_message_dispatcher.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <iostream>
#include <string>
#include <thread>

#include "midi/Sources/midi_input_factory.h"
#include "vemo_core/gui_dispatcher.h"

namespace {

constexpr unsigned char kNoteOn = 0x90;
constexpr unsigned char kControlChange = 0xB0;
constexpr unsigned char kProgramChange = 0xC0;

constexpr std::size_t kUsualPacket = 64;
constexpr std::size_t kLongestPacket = 65536;

// A plain function's type would show the outside the names of this library.
constexpr auto kForwardNothing = [](const std::vector<MIDIMessage>& /*packet*/) {};

void KeepLatest(std::vector<MIDIMessage>& messages, std::size_t most) {
    if (messages.size() > most)
        messages.erase(messages.begin(), messages.end() - kLongestPacket / 2);
}

bool IsBindable(const MIDIMessage& message) {
    const bool isNoteOff = message.GetStatus() == kNoteOn && message.data2 == 0;
    return allowedStatuses.contains(message.GetStatus()) && !isNoteOff;
}

}  // namespace

const std::set<unsigned char> allowedStatuses{kNoteOn, kControlChange, kProgramChange};

bool operator<(const std::pair<unsigned char, unsigned char>& left,
               const std::pair<unsigned char, unsigned char>& right) {
    return (left.second << 8 | left.first) < (right.second << 8 | right.first);
}

struct MidiMessageDispatcher::Calls {
    std::mutex mutex;
    std::condition_variable ended;
    // Guarded by mutex.
    std::vector<std::thread::id> threads;  // each as often as it is in a call
};

class MidiMessageDispatcher::Call {
public:
    explicit Call(std::shared_ptr<Calls> calls) : calls_(std::move(calls)) {
        const std::lock_guard lock(calls_->mutex);
        calls_->threads.push_back(std::this_thread::get_id());
    }
    ~Call() {
        const std::lock_guard lock(calls_->mutex);
        calls_->threads.erase(std::ranges::find(calls_->threads, std::this_thread::get_id()));
        calls_->ended.notify_all();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    const std::shared_ptr<Calls> calls_;
};

MidiMessageDispatcher::MidiMessageDispatcher()
    : calls_(std::make_shared<Calls>()), forwardingFunction_(kForwardNothing) {
    packetMessages_.reserve(kUsualPacket);
}

MidiMessageDispatcher::~MidiMessageDispatcher() {
    // More than once where a function that was running has connected anew.
    do {
        ReplaceInput(nullptr);
    } while (!WaitForOtherCalls());
}

/// Waits for the calls of other threads: closing an input waits for its own message
/// alone, not for that of one before it, which may have put this one in its place.
/// False where one of them has left an input.
bool MidiMessageDispatcher::WaitForOtherCalls() {
    std::unique_lock calling(calls_->mutex);
    calls_->ended.wait(calling, [this, own = std::this_thread::get_id()] {
        return std::ranges::all_of(calls_->threads, [own](std::thread::id id) { return id == own; });
    });
    // Still with no call beginning: with neither a call nor an input, none can.
    return !GetIsConnected();
}

void MidiMessageDispatcher::ConnectWithSourceIndex(unsigned char sourceIndex) {
    // The one before is closed at the end, outside the lock: closing waits for a
    // message being processed, which takes it.
    const auto before = ReplaceInput(CreateMidiInput(sourceIndex, this));
}

void MidiMessageDispatcher::Start() {
    const std::lock_guard connecting(connectingMutex_);
    if (input_)
        input_->Start();
    else
        std::cerr << "MidiMessageDispatcher::Start called before "
                  << "ConnectWithSourceIndex" << std::endl;
}

void MidiMessageDispatcher::Disconnect() {
    std::unique_ptr<MidiInputInterface> before;  // closed after the locks
    const std::lock_guard connecting(connectingMutex_);
    const std::lock_guard lock(mutex_);
    before.swap(input_);
    hadConnection_ = before != nullptr;
    lastPortIndex_ = before ? before->GetPortIndex() : 0;
}

std::unique_ptr<MidiInputInterface> MidiMessageDispatcher::ReplaceInput(std::unique_ptr<MidiInputInterface> input) {
    const std::lock_guard connecting(connectingMutex_);
    const std::lock_guard lock(mutex_);
    input_.swap(input);
    return input;
}

bool MidiMessageDispatcher::GetIsConnected() {
    const std::lock_guard lock(mutex_);
    return input_ != nullptr;
}

unsigned char MidiMessageDispatcher::GetPortIndex() {
    {
        const std::lock_guard lock(mutex_);
        if (input_)
            return input_->GetPortIndex();
        if (hadConnection_)
            return lastPortIndex_;
    }
    std::cerr << "MidiMessageDispatcher::GetPortIndex requested "
              << " without connection" << std::endl;
    return 0;
}

void MidiMessageDispatcher::SetMidiBinding(const Key& key, std::function<void()> function) {
    // What was bound ends with the parameter, after the lock.
    const std::lock_guard lock(mutex_);
    callbackMap_[key].swap(function);
}

void MidiMessageDispatcher::RemoveMidiBinding(const Key& key) {
    decltype(callbackMap_)::node_type removed;  // ends after the lock
    const std::lock_guard lock(mutex_);
    removed = callbackMap_.extract(key);
}

void MidiMessageDispatcher::LearnMidiBinding(std::function<void()> assign, std::function<void(Key)> learned) {
    const std::lock_guard lock(mutex_);
    isLearning_ = true;
    assignCallbacks_.push(std::move(assign));
    learnedCallbacks_.push(std::move(learned));
}

void MidiMessageDispatcher::LearnMidiBindingNoAssign(std::function<void(Key)> learned) {
    LearnMidiBinding({}, std::move(learned));
}

bool MidiMessageDispatcher::IsLearning() {
    const std::lock_guard lock(mutex_);
    return isLearning_;
}

void MidiMessageDispatcher::ProcessMessage(const MIDIMessage& message) {
    const Call call(calls_);
    MidiNotification();
    if (!PassesFilter(message))
        return;
    const Key key(message.status, message.data1);
    if (IsBindable(message) && (AnswerLearnRequest(key) || CallBinding(key)))
        return;
    AppendToPacket(message);
}

bool MidiMessageDispatcher::PassesFilter(const MIDIMessage& message) {
    decltype(filter_) filter;
    {
        const std::lock_guard lock(mutex_);
        filter = filter_;
    }
    return !filter || (*filter)(message);
}

bool MidiMessageDispatcher::AnswerLearnRequest(const Key& key) {
    std::function<void()> assign;
    std::function<void(Key)> learned;
    {
        const std::lock_guard lock(mutex_);
        if (!isLearning_)
            return false;
        assign.swap(assignCallbacks_.front());
        assignCallbacks_.pop();
        learned.swap(learnedCallbacks_.front());
        learnedCallbacks_.pop();
        isLearning_ = !assignCallbacks_.empty();
        if (assign)
            callbackMap_[key].swap(assign);
    }
    learned(key);
    return true;
}

bool MidiMessageDispatcher::CallBinding(const Key& key) {
    std::function<void()> function;
    {
        const std::lock_guard lock(mutex_);
        const auto found = callbackMap_.find(key);
        if (found == callbackMap_.end())
            return false;
        function = found->second;
    }
    function();
    return true;
}

void MidiMessageDispatcher::AppendToPacket(const MIDIMessage& message) {
    // Under the lock, since the input that is being closed may still be in here
    // when the one after it delivers.
    const std::lock_guard lock(mutex_);
    // Where a platform's input never ends a packet, a show must not fill the memory.
    KeepLatest(packetMessages_, kLongestPacket - 1);
    packetMessages_.push_back(message);
}

void MidiMessageDispatcher::ProcessMscMessage(const MscMessage& /*message*/) {
    MidiNotification();
}

void MidiMessageDispatcher::MidiNotification() {
    notify::guiDispatcher.SendMidiNotification();
}

void MidiMessageDispatcher::SetInputFilter(std::function<bool(const MIDIMessage&)> filter) {
    decltype(filter_) next;
    if (filter)
        next = std::make_shared<const std::function<bool(const MIDIMessage&)>>(std::move(filter));
    const std::lock_guard lock(mutex_);
    filter_.swap(next);
}

void MidiMessageDispatcher::PacketStart() {
    const std::lock_guard lock(mutex_);
    packetMessages_.clear();
}

void MidiMessageDispatcher::PacketEnd() {
    std::vector<MIDIMessage> packet;
    {
        const std::lock_guard lock(mutex_);
        packet.swap(packetMessages_);
    }
    try {
        forwardingFunction_(packet);
    } catch (...) {  // it is still to be passed on
        const std::lock_guard lock(mutex_);
        packetMessages_.insert(packetMessages_.begin(), packet.begin(), packet.end());
        KeepLatest(packetMessages_, kLongestPacket);
        throw;
    }
    packet.clear();
    const std::lock_guard lock(mutex_);
    if (packetMessages_.empty())
        packetMessages_.swap(packet);  // for its room
}

void MidiMessageDispatcher::SetForwardingFunction(std::function<void(const std::vector<MIDIMessage>&)> function) {
    forwardingFunction_ = std::move(function);
}

void MidiMessageDispatcher::DisplayCallbackMap(std::ostream& stream) {
    std::vector<std::pair<Key, const void*>> bindings;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [key, function] : callbackMap_)
            bindings.emplace_back(key, &function);
    }
    for (const auto& [key, address] : bindings)
        stream << "\tStatus: " << std::to_string(key.first) << " Data: " << std::to_string(key.second)
               << " Callback: " << address << "\n";
}
