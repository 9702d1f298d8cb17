#include "player/command_input.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cctype>
#include <exception>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "midi/midi_port_error.h"
#include "player/atomic_file.h"
#include "player/commands_file.h"
#include "player/display_text.h"
#include "player/midi_input.h"
#include "vemo_core/callback_dispatcher.h"
#include "zell/format.h"

namespace player {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using CommandNames = std::map<unsigned char, std::string>;

constexpr auto kBetweenLooks = 1s;
constexpr auto kBetweenWrites = 1s;
constexpr char kNoShow[] = "learned commands belong to a show file, and here is none";
constexpr unsigned char kPressed = 64;
// A note that no controller can send: data bytes end at 127.
constexpr MIDIMessage kNobodysMessage = {0x90, 0xFF, 0x01};

struct Obeyed {
    unsigned char id;
    std::string_view notification;
    CommandKind kind;
};
constexpr Obeyed kObeyed[] = {
    {0, notify::names::midiCommandConductBeat, CommandKind::kConduct},
    {1, notify::names::midiCommandContinuousMode, CommandKind::kContinue},
    {2, notify::names::midiCommandPlay, CommandKind::kPlay},
    {3, notify::names::midiCommandPause, CommandKind::kPause},
    {4, notify::names::midiCommandStop, CommandKind::kStop},
    {5, notify::names::midiCommandNextSong, CommandKind::kNextSong},
    {6, notify::names::midiCommandPreviousSong, CommandKind::kPreviousSong},
    {7, notify::names::midiCommandNextMarker, CommandKind::kNextMarker},
    {8, notify::names::midiCommandPreviousMarker, CommandKind::kPreviousMarker},
    {9, notify::names::midiCommandContinue, CommandKind::kContinue},
    {10, notify::names::midiCommandNextPatch, CommandKind::kNextPatch},
    {11, notify::names::midiCommandPreviousPatch, CommandKind::kPreviousPatch},
};

const CommandNames& NamesOf(ShowKind kind) {
    return kind == ShowKind::kRanges ? midi_commands::ambrelCommandNames : midi_commands::commandNames;
}

/// "Next Song" as it may be typed: "next song", "nextsong".
std::string Typed(const std::string& name) {
    std::string typed;
    for (const char character : name)
        if (character != ' ')
            typed += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return typed;
}

std::string TextOf(const midi_commands::LearnedCommand& learned) {
    const char* const what = learned.status == 0x90   ? "note"
                             : learned.status == 0xB0 ? "controller"
                             : learned.status == 0xC0 ? "program"
                                                      : "message";
    return zell::format("%s %d, channel %d", what, learned.data1 + (learned.status == 0xC0 ? 1 : 0),
                        learned.channel + 1);
}

fs::path PedalsPathOf(const fs::path& settings) {
    return fs::path(settings) += ".pedals";
}

std::string ReadText(const fs::path& path) {
    std::ifstream input(path, std::ios::binary);
    std::ostringstream text;
    text << input.rdbuf();
    return text.str();
}

void WriteText(const fs::path& path, const std::string& text) {
    AtomicFile file(path);
    file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    file.Commit();
}

/// Renames it to the first name that is free of NAME.why, NAME.why2, ...; says which.
std::string PutAside(const fs::path& path, const std::string& why) {
    if (!fs::is_regular_file(path))
        throw std::runtime_error("it is no plain file");
    const fs::path first = fs::path(path) += "." + why;
    fs::path aside = first;
    std::error_code error;
    for (int count = 2; fs::exists(aside, error); ++count)
        aside = fs::path(first) += std::to_string(count);
    fs::rename(path, aside);
    return "it is kept as " + DisplayText(aside.filename().string());
}

}  // namespace

CommandInput::CommandInput(Settings settings) : settings_(std::move(settings)) {
    for (const Obeyed& obeyed : kObeyed)
        notify::callbackDispatcher.AddCallback(obeyed.notification, this,
                                               [this, id = obeyed.id](const void*) { Fire(id); });
    notify::callbackDispatcher.AddCallback(notify::names::midiCommandLearned, this,
                                           [this](const void*) { isAnswered_ = true; });
    notify::callbackDispatcher.AddCallback(notify::names::midiSourceConnected, this,
                                           [this](const void*) { hasStarted_ = true; });
}

CommandInput::~CommandInput() {
    {
        const std::lock_guard lock(mutex_);
        Close();
    }
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
}

fs::path CommandInput::SettingsPathFor(const fs::path& showFile) {
    return fs::path(showFile) += ".commands";
}

void CommandInput::OpenShow(const fs::path& file, ShowKind kind) {
    const std::lock_guard lock(mutex_);
    Close();
    kind_ = kind;
    path_ = !settings_.file.empty() ? settings_.file : file.empty() ? file : SettingsPathFor(file);
    pedals_ = {};
    writtenPedals_.reset();
    pedalsAreBroken_ = false;
    settingsTrouble_.clear();
    pedalsTrouble_.clear();
    nextWrite_ = {};
    whyClosed_ = kNoShow;
    if (path_.empty()) {
        if (!settings_.input.empty())
            settings_.say(whyClosed_);
        Publish();
        return;
    }
    const bool nameWasLost = !ReadPedals();
    if (!settings_.input.empty()) {
        try {
            const std::vector<std::string> names = MidiInput::GetNames();
            pedals_.input = names.at(MidiInput::Select(settings_.input));
            WritePedals();
        } catch (const std::invalid_argument& error) {
            settings_.say(error.what());
        }
    }
    if (!PrepareSettingsFile(nameWasLost)) {
        settings_.say(whyClosed_);
        path_.clear();
        Publish();
        return;
    }
    onlyPresses_ = !pedals_.everyValueOf.contains(pedals_.input);
    dispatcher_ = std::make_unique<MidiMessageDispatcher>();
    SetFilter();
    const std::u8string path = path_.u8string();
    hasStarted_ = false;
    commands_ = std::make_unique<midi_commands::MidiCommands>(*dispatcher_, std::string(path.begin(), path.end()));
    std::string connected;
    if (hasStarted_) {
        const std::vector<std::string> names = MidiInput::GetNames();
        if (const unsigned char index = commands_->GetConnectedSourceIndex(); index < names.size())
            connected = names[index];
    }
    // The engine keeps an input that does not start; and where the file could not be told the
    // index of today, it has opened another device.
    isConnected_ = hasStarted_ && ((!nameWasLost && pedals_.input.empty()) || connected == pedals_.input);
    if (isConnected_)
        pedals_.input = connected;
    else
        dispatcher_->Disconnect();
    written_ = ReadText(path_);
    UseLeastIntervals();
    nextLook_ = {};
    nextReading_ = {};
    if (!isConnected_ && !pedals_.input.empty())
        SayWhyNotConnected();
    Publish();
}

/// False where the file was there and could not be read: then the input has no name.
bool CommandInput::ReadPedals() {
    try {
        writtenPedals_ = PedalSettings::Read(PedalsPathOf(path_));
        pedals_ = writtenPedals_.value_or(PedalSettings());
        return true;
    } catch (const std::invalid_argument& error) {
        PutPedalsAside(error.what());
    }
    settings_.say("the command input has to be chosen");
    return false;
}

void CommandInput::PutPedalsAside(std::string trouble) {
    try {
        trouble += "; " + PutAside(PedalsPathOf(path_), "damaged");
    } catch (const std::exception& error) {
        pedalsAreBroken_ = true;
        trouble += "; it stays as it is, and nothing is written: " + std::string(error.what());
    }
    settings_.say(trouble);
}

void CommandInput::SayWhyNotConnected() {
    settings_.say("the command input '" + DisplayText(pedals_.input) +
                  (MidiInput::Find(pedals_.input) ? "' is in use or refuses; it is tried again"
                                                  : "' is not there; it is waited for"));
}

void CommandInput::Close() {
    if (commands_) {
        WritePedals();  // where the disk refused it before
        // The engine writes at its end what it knows.
        TakeOverCommands();
        KeepWhatOthersWrote();
    }
    request_.reset();
    commands_.reset();
    dispatcher_.reset();
    isConnected_ = false;
    isLost_ = false;
    const std::lock_guard firing(firingMutex_);
    leastIntervals_.clear();
    fired_.clear();
}

/// What the engine could not read, and would write over, is put aside. Where the input is
/// known by name, the engine finds it in the file by the index that it has today, or not
/// at all. False for a file that must be left alone.
bool CommandInput::PrepareSettingsFile(bool nameWasLost) {
    std::error_code error;
    if (fs::exists(path_, error) && !std::ifstream(path_).good()) {
        whyClosed_ = DisplayText(path_.string()) + ": cannot be read; no pedal is heard, so that it stays as it is";
        return false;
    }
    const std::string found = ReadText(path_);
    std::string text = found;
    if (!text.empty() && !IsCommandsFileText(text)) {
        const std::string trouble = DisplayText(path_.string()) + ": holds no learned commands; ";
        try {
            settings_.say(trouble + PutAside(path_, "damaged"));
        } catch (const std::exception& failure) {
            whyClosed_ = trouble + failure.what();
            return false;
        }
        text.clear();
    }
    // What has no name would be any device that has the index today.
    if (pedals_.input.empty() && (!nameWasLost || text.empty()))
        return true;
    if (text.empty())
        text = CommandsFileText({}, std::nullopt);
    const std::optional<unsigned int> index = MidiInput::Find(pedals_.input);
    const bool isAimed = index && *index <= UINT8_MAX;
    const std::string aimed =
        WithSource(text, isAimed ? std::optional(static_cast<unsigned char>(*index)) : std::nullopt);
    if (aimed != found)
        Write(settingsTrouble_, [&] { WriteText(path_, aimed); });
    return true;
}

// ---- learning

std::string CommandInput::Learn(const std::string& command) {
    const std::lock_guard lock(mutex_);
    BeginChange();
    const unsigned char id = IdOf(command);
    if (request_)
        throw std::invalid_argument(NameOf(request_->id) + " waits for its pedal already");
    if (!commands_->HasMidiSource())
        throw std::invalid_argument("no command input is open; see: command input DEVICE, learn --input");
    request_ = Request{id, settings_.now(), commands_->GetLearnedCommands(), false};
    isAnswered_ = false;
    commands_->LearnMidiCommandNoAssign(id);
    Publish();
    return "press the pedal or key for " + NameOf(id) + "; until then no other one fires";
}

void CommandInput::GiveUp() {
    const std::lock_guard lock(mutex_);
    if (!GiveUpRequest())
        throw std::invalid_argument("no command waits for its pedal");
}

bool CommandInput::GiveUpRequest() {
    if (!request_)
        return false;
    // The engine knows no way back: the request is answered with what nobody can send.
    // Bound before, that message is swallowed where the pedal was faster.
    const std::pair<unsigned char, unsigned char> key = {kNobodysMessage.status, kNobodysMessage.data1};
    dispatcher_->SetMidiBinding(key, [] {});
    dispatcher_->ProcessMessage(kNobodysMessage);
    const LearnedCommands learned = commands_->GetLearnedCommands();
    const unsigned char id = request_->id;
    if (const auto now = learned.find(id); now != learned.end() && now->second.data1 == kNobodysMessage.data1) {
        if (const auto before = request_->before.find(id); before != request_->before.end())
            commands_->SetMidiCommand(id, before->second.status, before->second.channel, before->second.data1);
        else
            commands_->UnsetMidiCommand(id);
        request_.reset();
        settings_.say("nothing was learned for " + NameOf(id));
    }
    dispatcher_->RemoveMidiBinding(key);
    // The pedal was faster; where its answer is still being taken down, the next look tells.
    TellWhatWasLearned();
    if (request_ && std::exchange(request_->isGivenUp, true))
        request_.reset();
    WriteSettings();
    Publish();
    return true;
}

/// Where the request has been answered.
void CommandInput::TellWhatWasLearned() {
    if (!request_ || !isAnswered_ || dispatcher_->IsLearning())
        return;
    const LearnedCommands learned = commands_->GetLearnedCommands();
    const auto now = learned.find(request_->id);
    if (now == learned.end())
        return;
    std::string text = NameOf(request_->id) + ": " + TextOf(now->second);
    for (const auto& [id, command] : request_->before)
        if (id != request_->id && !learned.contains(id))
            text += ", taken from " + NameOf(id);
    request_.reset();
    ++learnedCount_;
    settings_.say(text);
}

void CommandInput::Unlearn(const std::string& command) {
    const std::lock_guard lock(mutex_);
    BeginChange();
    const unsigned char id = IdOf(command);
    if (request_)
        throw std::invalid_argument(NameOf(request_->id) + " waits for its pedal; see: give up learning");
    if (!commands_->GetLearnedCommands().contains(id))
        throw std::invalid_argument("no pedal was learned for " + NameOf(id));
    commands_->UnsetMidiCommand(id);
    WriteSettings();
    Publish();
}

// ---- the input

void CommandInput::SetInput(const std::string& device) {
    const std::lock_guard lock(mutex_);
    BeginChange();
    const unsigned int index = MidiInput::Select(device);
    const std::string name = MidiInput::GetNames().at(index);
    if (index > UINT8_MAX)
        throw std::invalid_argument("'" + DisplayText(name) + "' is beyond the 256 inputs that can be chosen");
    if (request_)
        throw std::invalid_argument(NameOf(request_->id) + " waits for its pedal; see: give up learning");
    // Before the one that is heard, which may be the same, is let go.
    if (MidiInput::IsLost(index))
        throw std::invalid_argument(MidiInput::DescribeRefusal(index));
    try {
        ConnectTo(name, static_cast<unsigned char>(index));
    } catch (const MidiPortError&) {  // tells the platform's number, and no name
        throw std::invalid_argument(MidiInput::DescribeRefusal(index));
    }
    WritePedals();
    WriteSettings();
    Publish();
}

void CommandInput::ConnectTo(const std::string& name, unsigned char index) {
    // A device is opened once: the same one has to be let go first. It is opened anew also
    // where it seems to be heard, since that may be what the operator doubts.
    if (name == pedals_.input)
        dispatcher_->Disconnect();
    isConnected_ = false;
    isLost_ = false;
    onlyPresses_ = !pedals_.everyValueOf.contains(name);
    SetFilter();
    commands_->ConnectSourceByIndex(index);
    isConnected_ = true;
    // Binding anew what was learned is no answer.
    if (dispatcher_->IsLearning())
        isAnswered_ = false;
    pedals_.input = name;
}

void CommandInput::SetOnlyPresses(bool onlyPresses) {
    const std::lock_guard lock(mutex_);
    BeginChange();
    if (pedals_.input.empty())
        throw std::invalid_argument("no command input was chosen; see: command input DEVICE");
    if (onlyPresses)
        pedals_.everyValueOf.erase(pedals_.input);
    else
        pedals_.everyValueOf.insert(pedals_.input);
    onlyPresses_ = onlyPresses;
    WritePedals();
    Publish();
}

void CommandInput::SetLeastInterval(const std::string& command, std::chrono::milliseconds interval) {
    const std::lock_guard lock(mutex_);
    BeginChange();
    const unsigned char id = IdOf(command);
    pedals_.leastIntervals[NameOf(id)] = static_cast<int>(interval.count());
    if (interval == 0ms)
        pedals_.leastIntervals.erase(NameOf(id));
    UseLeastIntervals();
    WritePedals();
    Publish();
}

void CommandInput::UseLeastIntervals() {
    const std::lock_guard firing(firingMutex_);
    leastIntervals_.clear();
    for (const auto& [name, interval] : pedals_.leastIntervals)
        for (const auto& [id, known] : NamesOf(kind_))
            if (Typed(known) == Typed(name))
                leastIntervals_[id] = std::chrono::milliseconds(interval);
}

/// With nothing pressed, as an input begins.
void CommandInput::SetFilter() {
    using Pressed = std::array<std::bitset<128>, 16>;  // by channel and controller
    dispatcher_->SetInputFilter([this, pressed = std::make_shared<Pressed>()](const MIDIMessage& message) {
        if (message.GetStatus() != 0xB0)
            return true;
        const std::size_t controller = message.data1 & 0x7Fu;
        const bool isPressed = message.data2 >= kPressed;
        const bool wasPressed = (*pressed)[message.GetChannel()][controller];
        (*pressed)[message.GetChannel()][controller] = isPressed;
        return !onlyPresses_ || (isPressed && !wasPressed);
    });
}

void CommandInput::Fire(unsigned char id) {
    {
        const std::lock_guard lock(firingMutex_);
        const Time now = settings_.now();
        const auto interval = leastIntervals_.find(id);
        const auto latest = fired_.find(id);
        if (interval != leastIntervals_.end() && latest != fired_.end() && now - latest->second < interval->second)
            return;
        fired_[id] = now;
    }
    for (const Obeyed& obeyed : kObeyed)
        if (obeyed.id == id)
            settings_.fire(obeyed.kind);
}

void CommandInput::Poll() {
    const std::lock_guard lock(mutex_);
    if (!commands_)
        return;
    const Time now = settings_.now();
    TellWhatWasLearned();
    if (now >= nextReading_) {
        nextReading_ = now + kBetweenLooks;
        TakeOverWhatOthersWrote();
    }
    if (request_ && (request_->isGivenUp || now - request_->since >= kLearnPatience))
        GiveUpRequest();
    if (!isConnected_ && !pedals_.input.empty() && now >= nextLook_) {
        nextLook_ = now + kBetweenLooks;
        try {
            if (const auto index = MidiInput::Find(pedals_.input); index && *index <= UINT8_MAX) {
                ConnectTo(pedals_.input, static_cast<unsigned char>(*index));
                settings_.say("the command input '" + DisplayText(pedals_.input) + "' is there");
            }
        } catch (const std::exception&) {
            // It is tried again.
        }
        if (std::exchange(isInputOfOthers_, false) && !isConnected_)
            SayWhyNotConnected();
    }
    TellLoss();
    if (now >= nextWrite_) {  // what the disk refused, not at every look
        WritePedals();
        WriteSettings();
    }
    Publish();
}

void CommandInput::TellLoss() {
    const bool isLost = isConnected_ && MidiInput::IsLost(commands_->GetConnectedSourceIndex());
    if (std::exchange(isLost_, isLost) == isLost)
        return;
    SetFilter();  // nobody has heard the pedal rise meanwhile
    settings_.say("the command input '" + DisplayText(pedals_.input) +
                  (isLost ? "' is lost; it will be heard again when it is back" : "' is there"));
}

// ---- what is kept

void CommandInput::WriteSettings() {
    const auto source =
        isConnected_ ? std::optional<unsigned char>(commands_->GetConnectedSourceIndex()) : std::nullopt;
    const std::string text = CommandsFileText(commands_->GetLearnedCommands(), source);
    // Nobody wants an empty file beside a show that has no pedals.
    if (text == written_ || (written_.empty() && text == CommandsFileText({}, std::nullopt))) {
        settingsTrouble_.clear();
        return;
    }
    KeepWhatOthersWrote();
    Write(settingsTrouble_, [&] {
        WriteText(path_, text);
        written_ = text;
    });
}

/// What another program has decided since, where nothing was decided here.
void CommandInput::TakeOverWhatOthersWrote() {
    if (request_)  // what is bound now is what it may have to put back
        return;
    bool hasOthers = false;
    try {
        hasOthers = TakeOverPedals();
    } catch (const std::invalid_argument&) {  // which the next change puts aside
    }
    if (TakeOverCommands() || hasOthers)
        settings_.say("what another program decided about the pedals holds from now on");
}

bool CommandInput::TakeOverCommands() {
    const std::string found = ReadText(path_);
    const LearnedCommands own = commands_->GetLearnedCommands();
    const std::string known = written_.empty() ? CommandsFileText({}, std::nullopt) : written_;
    if (WithoutSource(found) == WithoutSource(known) || !IsCommandsFileText(found) ||
        WithoutSource(CommandsFileText(own, std::nullopt)) != WithoutSource(known))
        return false;
    const LearnedCommands others = LearnedIn(found);
    for (const auto& [id, command] : own)
        if (!others.contains(id))
            commands_->UnsetMidiCommand(id);
    for (const auto& [id, command] : others)
        commands_->SetMidiCommand(id, command.status, command.channel, command.data1);
    written_ = found;
    return true;
}

bool CommandInput::TakeOverPedals() {
    const std::optional<PedalSettings> found = PedalSettings::Read(PedalsPathOf(path_));
    pedalsAreBroken_ = false;
    const PedalSettings known = writtenPedals_.value_or(PedalSettings());
    if (!found || *found == known)
        return false;
    if (pedals_.input == known.input && found->input != known.input) {
        if (dispatcher_)
            dispatcher_->Disconnect();
        isConnected_ = false;
        isLost_ = false;
        nextLook_ = {};
        pedals_.input = found->input;
        isInputOfOthers_ = true;
    }
    if (pedals_.everyValueOf == known.everyValueOf)
        pedals_.everyValueOf = found->everyValueOf;
    if (pedals_.leastIntervals == known.leastIntervals)
        pedals_.leastIntervals = found->leastIntervals;
    onlyPresses_ = !pedals_.everyValueOf.contains(pedals_.input);
    UseLeastIntervals();
    writtenPedals_ = found;
    return true;
}

/// Where both taught, the other's file is kept beside. A program that has only looked may
/// have written where the input is today.
void CommandInput::KeepWhatOthersWrote() {
    std::error_code error;
    const std::string found = ReadText(path_);
    if (WithoutSource(found) == WithoutSource(written_) || !fs::exists(path_, error))
        return;
    try {
        settings_.say(DisplayText(path_.string()) + ": was changed by another program; " + PutAside(path_, "other"));
    } catch (const std::exception& failure) {
        settings_.say(failure.what());
    }
    written_ = found;
}

void CommandInput::WritePedals() {
    if (pedalsAreBroken_ || pedals_ == writtenPedals_.value_or(PedalSettings())) {
        pedalsTrouble_.clear();
        return;
    }
    try {
        TakeOverPedals();
    } catch (const std::invalid_argument& error) {
        PutPedalsAside(error.what());
        if (pedalsAreBroken_)
            return;
    }
    Write(pedalsTrouble_, [this] {
        pedals_.Write(PedalsPathOf(path_));
        writtenPedals_ = pedals_;
    });
}

/// What is refused is said once, and tried again.
void CommandInput::Write(std::string& trouble, const std::function<void()>& write) {
    try {
        write();
        trouble.clear();
    } catch (const std::exception& error) {
        nextWrite_ = settings_.now() + kBetweenWrites;
        if (std::exchange(trouble, error.what()) != error.what())
            settings_.say(error.what());
    }
}

// ---- names and report

/// Whatever is decided comes behind what others have.
void CommandInput::BeginChange() {
    if (!commands_)
        throw std::invalid_argument(whyClosed_);
    TakeOverWhatOthersWrote();
}

unsigned char CommandInput::IdOf(const std::string& command) const {
    std::string all;
    for (const auto& [id, name] : NamesOf(kind_)) {
        if (Typed(name) == Typed(command))
            return id;
        all += (all.empty() ? "" : ", ") + name;
    }
    throw std::invalid_argument("no command '" + DisplayText(command) + "' for pedals; there are " + all);
}

std::string CommandInput::NameOf(unsigned char id) const {
    const auto& names = midi_commands::tarvikCommandNames;
    const auto found = names.find(id);
    return found == names.end() ? std::to_string(id) : found->second;
}

void CommandInput::Publish() {
    Report report;
    report.isKept =
        settingsTrouble_.empty() && pedalsTrouble_.empty() && !(pedalsAreBroken_ && pedals_ != PedalSettings());
    // Pedals whose file cannot be read have no input that a desk could not share.
    if (commands_) {
        const LearnedCommands learned = commands_->GetLearnedCommands();
        report.input = pedals_.input;
        report.isOpen = isConnected_ && !isLost_;
        report.onlyPresses = onlyPresses_;
        report.learned = learnedCount_;
        report.learning = request_ ? NameOf(request_->id) : std::string();
        for (const auto& [id, name] : NamesOf(kind_)) {
            Command command{name, {}, 0};
            if (const auto found = learned.find(id); found != learned.end())
                command.binding = TextOf(found->second);
            if (const auto found = pedals_.leastIntervals.find(name); found != pedals_.leastIntervals.end())
                command.leastInterval = found->second;
            report.commands.push_back(std::move(command));
        }
    }
    const std::lock_guard lock(reportMutex_);
    report_ = std::move(report);
}

CommandInput::Report CommandInput::GetReport() const {
    const std::lock_guard lock(reportMutex_);
    return report_;
}

}  // namespace player
