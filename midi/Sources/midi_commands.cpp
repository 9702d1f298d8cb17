#include "midi/midi_commands.h"

#include <algorithm>
#include <ios>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "midi/Sources/settings_file.h"
#include "midi/midi_command_tables.h"
#include "midi/midi_port_error.h"
#include "midi/midi_ports.h"
#include "midi/vemo_midi_error.h"
#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/gui_dispatcher.h"
#include "vemo_core/notify_names.h"
#include "zell/cout_buffer.h"
#include "zell/errors.h"

namespace midi_commands {

namespace {

constexpr char kHeader[] = "MidiCommandsSettings";
constexpr unsigned char kConductBeat = 0;

// How the file says which source it was.
constexpr std::uint8_t kNoSource = 0;
constexpr std::uint8_t kSourceIndex = 1;
constexpr std::uint8_t kSourceUniqueId = 2;

unsigned char StatusByte(const LearnedCommand& command) {
    return command.status | command.channel;
}

MidiMessageDispatcher::Key KeyOf(const LearnedCommand& command) {
    return {StatusByte(command), command.data1};
}

bool HaveSameMessage(const LearnedCommand& left, const LearnedCommand& right) {
    return left.status == right.status && left.channel == right.channel && left.data1 == right.data1;
}

}  // namespace

struct MidiCommands::Answers {
    std::mutex mutex;  // held while an answer is given, or has to wait
    MidiCommands* commands;
};

MidiCommands::MidiCommands(MidiMessageDispatcher& dispatcher, const std::string& settingsFilePath)
    : dispatcher_(dispatcher), settingsFilePath_(settingsFilePath), answers_(std::make_shared<Answers>()) {
    answers_->commands = this;
    try {
        LoadFromFile();
    } catch (const zell::IoError&) {  // before the first save there is no file
    } catch (const std::ios_base::failure& error) {
        zell::CoutBuffer() << "WARNING: LoadFromFile error: " << error.what() << zell::endl;
    } catch (const VemoMidiError& error) {
        zell::CoutBuffer() << "WARNING: VemoMidiError on LoadFromFile: " << error.what() << zell::endl;
    }
}

MidiCommands::~MidiCommands() {
    {
        const std::lock_guard lock(answers_->mutex);
        answers_->commands = nullptr;
    }
    try {
        SaveToFile();
    } catch (...) {  // whatever it is, the show ends all the same
        zell::CoutBuffer() << "WARNING: Unable to save settings to " << settingsFilePath_ << zell::endl;
    }
}

void MidiCommands::LearnMidiCommandNoAssign(unsigned char commandId) {
    // Two at once would come to the dispatcher in another order than they are
    // pending in here.
    const std::lock_guard requesting(learnMutex_);
    {
        const std::lock_guard lock(mutex_);
        pendingLearnCommandIds_.push_back(commandId);
    }
    dispatcher_.LearnMidiBindingNoAssign([answers = answers_, commandId](MidiMessageDispatcher::Key key) {
        const std::lock_guard answering(answers->mutex);
        if (answers->commands)
            answers->commands->OnLearnedMidiCommandNoAssign(commandId, key);
    });
}

void MidiCommands::OnLearnedMidiCommandNoAssign(unsigned char commandId, std::pair<unsigned char, unsigned char> key) {
    bool isExpected = false;
    {
        const std::lock_guard lock(mutex_);
        if (!pendingLearnCommandIds_.empty()) {
            isExpected = pendingLearnCommandIds_.front() == commandId;
            pendingLearnCommandIds_.pop_front();
        }
    }
    if (!isExpected)
        std::cerr << "Error: Learned Midi Command Id Does Not match expected command id.\n";
    SetMidiCommand(commandId, key.first & 0xF0, key.first & 0x0F, key.second);
}

bool MidiCommands::IsMidiCommandLearning(unsigned char commandId) {
    const std::lock_guard lock(mutex_);
    return std::find(pendingLearnCommandIds_.begin(), pendingLearnCommandIds_.end(), commandId) !=
           pendingLearnCommandIds_.end();
}

void MidiCommands::SetMidiCommand(unsigned char commandId, unsigned char status, unsigned char channel,
                                  unsigned char data1) {
    const LearnedCommand command{commandId, status, channel, data1};
    // One hold: two commands that are given the same message at once must not both
    // keep it.
    const std::lock_guard lock(mutex_);
    RemoveDuplicateLearnedCommand(command);
    const auto found = commandIds.find(commandId);
    if (found == commandIds.end())
        throw std::out_of_range("invalid map<K, T> key");
    dispatcher_.SetMidiBinding(KeyOf(command), found->second);
    if (commandId == kConductBeat)
        hasConductBeat_ = true;
    SendLearnedCommand(command);
    learnedCommands_[commandId] = command;
}

void MidiCommands::RemoveDuplicateLearnedCommand(const LearnedCommand& command) {
    const std::lock_guard lock(mutex_);
    for (auto entry = learnedCommands_.begin(); entry != learnedCommands_.end();) {
        const LearnedCommand other = (entry++)->second;
        const bool isSameCommand = other.commandId == command.commandId;
        if (isSameCommand == HaveSameMessage(other, command))
            continue;
        dispatcher_.RemoveMidiBinding(KeyOf(other));
        if (isSameCommand)
            continue;
        learnedCommands_.erase(other.commandId);
        if (other.commandId == kConductBeat)
            hasConductBeat_ = false;
        SendCommandCanceled(other.commandId);
    }
}

void MidiCommands::UnsetMidiCommand(unsigned char commandId) {
    const std::lock_guard lock(mutex_);
    if (const auto found = learnedCommands_.find(commandId); found != learnedCommands_.end()) {
        dispatcher_.RemoveMidiBinding(KeyOf(found->second));
        learnedCommands_.erase(found);
    }
    if (commandId == kConductBeat)
        hasConductBeat_ = false;
    SendCommandCanceled(commandId);
}

std::map<unsigned char, LearnedCommand> MidiCommands::GetLearnedCommands() {
    const std::lock_guard lock(mutex_);
    return learnedCommands_;
}

bool MidiCommands::GetHasConductBeat() {
    const std::lock_guard lock(mutex_);
    return hasConductBeat_;
}

void MidiCommands::ReconnectLearnedCommands() {
    const std::lock_guard lock(mutex_);
    // A file may give two commands one message: the first takes the second out of
    // this very map.
    for (const auto& [id, command] : learnedCommands_)
        SetMidiCommand(id, command.status, command.channel, command.data1);
}

void MidiCommands::ConnectSourceByIndex(unsigned char sourceIndex) {
    const std::lock_guard connecting(sourceMutex_);
    try {
        if (!IsValidNonVemoSourceIndex(sourceIndex))
            throw MidiPortError("Invalid MIDI source.");
        // Not under mutex_: closing the input of before waits for an answer to a
        // learn request, and the answer for mutex_.
        dispatcher_.ConnectWithSourceIndex(sourceIndex);
    } catch (...) {
        const std::lock_guard lock(mutex_);
        sourceIsConnected_ = false;
        sourceIsUniqueId_ = false;
        throw;
    }
    // What the new input answers at once comes behind the notice of it.
    const std::lock_guard answering(answers_->mutex);
    dispatcher_.Start();
    const std::lock_guard lock(mutex_);
    sourceIsConnected_ = true;
    sourceIsUniqueId_ = false;
    notify::guiDispatcher.SendSourceConnected(sourceIndex);
    ReconnectLearnedCommands();
    notify::callbackDispatcher.Notify(notify::names::midiSourceConnected, nullptr);
}

unsigned char MidiCommands::GetConnectedSourceIndex() {
    const std::lock_guard lock(mutex_);
    return sourceIsUniqueId_ ? GetIndexFromUniqueId(sourceUniqueId_) : dispatcher_.GetPortIndex();
}

bool MidiCommands::HasMidiSource() {
    return dispatcher_.GetIsConnected();
}

void MidiCommands::LoadFromFile() {
    SettingsFile file(settingsFilePath_);
    file.Open();
    if (file.ReadString() != kHeader)
        throw VemoMidiError("Unrecognized command settings file.");
    const std::uint8_t sourceMode = file.ReadByte();
    const std::uint32_t source = file.ReadUint32();
    std::vector<LearnedCommand> commands;
    for (std::uint16_t count = file.ReadUint16(); count > 0; --count) {
        LearnedCommand command;
        command.commandId = file.ReadByte();
        command.status = file.ReadByte();
        command.channel = file.ReadByte();
        command.data1 = file.ReadByte();
        commands.push_back(command);
    }
    {
        const std::lock_guard lock(mutex_);
        for (const LearnedCommand& command : commands)
            learnedCommands_[command.commandId] = command;
    }
    if (sourceMode != kSourceIndex)
        return;
    try {
        ConnectSourceByIndex(static_cast<unsigned char>(source));
    } catch (const MidiPortError&) {  // the device is not here today: the commands are kept
    }
}

void MidiCommands::SaveToFile() {
    SettingsFile file(settingsFilePath_);
    file.WriteString(kHeader);
    {
        const std::lock_guard lock(mutex_);
        file.WriteByte(sourceIsConnected_ ? kSourceIndex : sourceIsUniqueId_ ? kSourceUniqueId : kNoSource);
        file.WriteUint32(sourceIsConnected_  ? dispatcher_.GetPortIndex()
                         : sourceIsUniqueId_ ? static_cast<std::uint32_t>(sourceUniqueId_)
                                             : 0);
        file.WriteUint16(static_cast<std::uint16_t>(learnedCommands_.size()));
        for (const auto& [id, command] : learnedCommands_)
            for (const std::uint8_t byte : {command.commandId, command.status, command.channel, command.data1})
                file.WriteByte(byte);
    }
    file.Save();
}

void MidiCommands::SendLearnedCommand(const LearnedCommand& command) {
    notify::guiDispatcher.SendLearnedMIDICommand(command.commandId * 65536u + StatusByte(command) * 256u +
                                                 command.data1);
    notify::callbackDispatcher.Notify(notify::names::midiCommandLearned, nullptr);
}

void MidiCommands::SendCommandCanceled(unsigned char commandId) {
    notify::guiDispatcher.SendMidiCommandCanceled(commandId);
}

}  // namespace midi_commands
