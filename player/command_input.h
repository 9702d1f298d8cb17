#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "midi/midi_command_tables.h"
#include "midi/midi_commands.h"
#include "midi/midi_message_dispatcher.h"
#include "player/commands_file.h"
#include "player/pedal_settings.h"
#include "player/show_document.h"
#include "player/transport_command.h"

namespace player {

/// The MIDI input of pedals and keys that were taught to drive the transport, and the
/// teaching. What was learned belongs to a show and lies in files beside it, or serves
/// all shows from one place.
///
/// Owner:   the program; the transport, which uses it, goes first.
/// Threads: OpenShow() to SetLeastInterval() on one thread at a time, the transport's;
///          Poll() and GetReport() on any. Learned messages arrive on a thread of the
///          platform's.
/// Lock:    mutex_, held while devices are opened and files written; firingMutex_ and
///          reportMutex_, leaves. The thread of the input takes firingMutex_ alone, so
///          that an input can be closed under mutex_.
/// Errors:  std::invalid_argument or what the engine throws, with one line, for what
///          cannot be had, before anything changes. What a file refuses is said.
class CommandInput {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Settings {
        /// Of the command line, instead of the show's own: name or index; empty: not said.
        std::string input;
        /// Where what was learned lies, for every show; empty: beside each.
        std::filesystem::path file = {};
        /// A learned message has come. On a thread of the platform's; must only post.
        std::function<void(CommandKind)> fire;
        /// Something that the operator should read; must only post.
        std::function<void(const std::string&)> say;
        std::function<Time()> now = [] { return std::chrono::steady_clock::now(); };
    };

    /// One command that the kind of show offers.
    struct Command {
        std::string name;
        std::string binding;    // "controller 64, channel 1"; empty: none was learned
        int leastInterval = 0;  // milliseconds
        bool operator==(const Command&) const = default;
    };
    struct Report {
        std::string input;  // its name; empty: none was chosen
        bool isOpen = false;
        bool isKept = true;  // the files say what was learned and decided
        bool onlyPresses = true;
        std::string learning;       // the command that waits for its pedal; empty: none
        std::uint64_t learned = 0;  // how often something was
        std::vector<Command> commands;
        bool operator==(const Report&) const = default;
    };

    /// So long a request to learn waits.
    static constexpr auto kLearnPatience = std::chrono::seconds(10);

    explicit CommandInput(Settings settings);
    ~CommandInput();
    CommandInput(const CommandInput&) = delete;
    CommandInput& operator=(const CommandInput&) = delete;

    /// The commands of another show. file: empty for one that has none, which then has
    /// no commands either, unless they lie elsewhere.
    void OpenShow(const std::filesystem::path& file, ShowKind kind);
    /// The next pedal or key that is pressed will drive that command; until then no
    /// binding fires. Returns what the operator should do. What became of it is said
    /// by Poll().
    std::string Learn(const std::string& command);
    /// Gives up what waits, and puts back what was bound before.
    void GiveUp();
    void Unlearn(const std::string& command);
    /// Name or index.
    void SetInput(const std::string& device);
    /// Whether a controller of this input fires only as it rises to 64 or more, as pedals
    /// and buttons need that send on press and on release.
    void SetOnlyPresses(bool onlyPresses);
    void SetLeastInterval(const std::string& command, std::chrono::milliseconds interval);

    /// Several times a second: says what was learned, gives up what has waited too long,
    /// opens an input that was missing, writes what a disk refused, takes over what another
    /// program wrote.
    void Poll();
    Report GetReport() const;

    static std::filesystem::path SettingsPathFor(const std::filesystem::path& showFile);

private:
    struct Request {
        unsigned char id = 0;
        Time since;
        LearnedCommands before;
        bool isGivenUp = false;  // and the pedal was faster
    };

    void Close();
    bool ReadPedals();
    void PutPedalsAside(std::string trouble);
    void SayWhyNotConnected();
    bool PrepareSettingsFile(bool nameWasLost);
    void ConnectTo(const std::string& name, unsigned char index);
    void TellWhatWasLearned();
    void TellLoss();
    void WriteSettings();
    void TakeOverWhatOthersWrote();
    bool TakeOverCommands();
    bool TakeOverPedals();
    void KeepWhatOthersWrote();
    void WritePedals();
    void Write(std::string& trouble, const std::function<void()>& write);
    void Publish();
    void BeginChange();
    unsigned char IdOf(const std::string& command) const;
    std::string NameOf(unsigned char id) const;
    void SetFilter();
    void UseLeastIntervals();
    bool GiveUpRequest();
    void Fire(unsigned char id);

    const Settings settings_;

    std::mutex mutex_;
    // Guarded by mutex_.
    std::filesystem::path path_;  // of the engine's settings; empty: nothing is open
    ShowKind kind_ = ShowKind::kPrograms;
    PedalSettings pedals_;
    std::optional<PedalSettings> writtenPedals_;  // what their file says
    bool pedalsAreBroken_ = false;                // the file can neither be read nor put aside
    bool isConnected_ = false;                    // to pedals_.input
    bool isLost_ = false;                         // it is connected to what is unplugged
    Time nextLook_{};                             // for an input that is missing
    Time nextReading_{};                          // of what others wrote
    bool isInputOfOthers_ = false;                // another program chose it, and it was not tried yet
    std::string written_;                         // what the settings file says
    Time nextWrite_{};                            // not before, once one was refused
    std::string settingsTrouble_;                 // why the settings file is behind; empty: it is not
    std::string pedalsTrouble_;                   // why the file of pedals_ is
    std::string whyClosed_;                       // why there are no commands
    std::optional<Request> request_;
    std::uint64_t learnedCount_ = 0;

    // The engine has taken an answer down; set on the thread of the input.
    std::atomic<bool> isAnswered_{false};
    // It has an input that delivers; set on the thread that connects.
    std::atomic<bool> hasStarted_{false};

    // Of the thread of the input.
    std::atomic<bool> onlyPresses_{true};
    std::mutex firingMutex_;
    std::map<unsigned char, std::chrono::milliseconds> leastIntervals_;  // guarded by firingMutex_
    std::map<unsigned char, Time> fired_;                                // guarded by firingMutex_

    mutable std::mutex reportMutex_;
    Report report_;  // guarded by reportMutex_

    // The input and its thread go before everything that they use.
    std::unique_ptr<MidiMessageDispatcher> dispatcher_;      // guarded by mutex_
    std::unique_ptr<midi_commands::MidiCommands> commands_;  // guarded by mutex_
};

}  // namespace player
