#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "midi/midi_message_dispatcher.h"
#include "player/command_answer.h"
#include "player/midi_input.h"
#include "player/show_document.h"

namespace player {

/// Hears a desk that fires the songs by MIDI Show Control: GO messages with a cue number.
///
/// Owner:   the program; the transport, which uses it, goes first.
/// Threads: OpenShow() and SetArmed() on one thread at a time, the transport's; the rest
///          on any. Messages arrive on a thread of the platform's.
/// Lock:    inputMutex_, held while the input is opened and closed; mutex_, which alone the
///          thread of the input takes, before those of posting.
/// Errors:  none leave it: what cannot be had is said, what cannot be understood counted.
/// Standard: MIDI Show Control 1.0; which parts of it, docs/commands.md says.
class ShowControl {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Settings {
        /// A cue that is to start; empty: what is selected. On a thread of the platform's;
        /// must only post. How it went is counted.
        std::function<std::future<CommandAnswer>(const std::string& cue)> go;
        /// Whether the song of that cue plays just now. On a thread of the platform's.
        std::function<bool(const std::string& cue)> plays;
        /// Something that the operator should read; must only post.
        std::function<void(const std::string&)> say;
        /// The input of the learned commands, which a desk cannot share; empty: none.
        std::function<std::string()> commandInput = [] { return std::string(); };
        std::function<Time()> now = [] { return std::chrono::steady_clock::now(); };
    };
    struct Report {
        std::string state = "none";  // "none", "on", "off" (disarmed) or "missing" (its input)
        bool isArmed = false;        // also while the input is missing
        std::uint64_t cues = 0;      // that were taken
        std::uint64_t refused = 0;   // of them or before
        std::string newestRefusal;
        bool operator==(const Report&) const = default;
    };

    /// A GO for the song that plays already means nothing for so long after it was obeyed:
    /// desks repeat themselves.
    static constexpr auto kRepeatTime = std::chrono::seconds(2);

    explicit ShowControl(Settings settings);
    ~ShowControl();
    ShowControl(const ShowControl&) = delete;
    ShowControl& operator=(const ShowControl&) = delete;

    void OpenShow(const std::optional<ShowDocument::ShowControl>& wanted);
    /// The name that the show wants, whether or not it is there; empty: none.
    std::string GetInput() const;
    void SetArmed(bool armed);
    /// Several times a second: counts what became of the cues, opens an input that was
    /// missing.
    void Poll();
    Report GetReport() const;

private:
    /// A cue that is still to be carried out, or to be counted.
    struct Pending {
        std::string cue;
        std::future<CommandAnswer> answer;
    };

    void OpenInput(bool mayComplain);
    void TellLoss();
    void Take(const std::uint8_t* bytes, std::size_t count);
    void CountAnswers();
    void Refuse(const std::string& reason);

    const Settings settings_;

    std::mutex inputMutex_;
    Time nextLook_{};          // guarded by inputMutex_
    unsigned int device_ = 0;  // of input_; guarded by inputMutex_

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::optional<ShowDocument::ShowControl> wanted_;
    bool isOpen_ = false;
    std::uint64_t discarded_ = 0;  // by the input, and counted
    bool isLost_ = false;          // it is open, and unplugged
    bool isArmed_ = true;
    Report counts_;
    std::deque<Pending> pending_;
    std::string obeyedCue_;  // the latest
    Time obeyedAt_{};

    MidiMessageDispatcher dispatcher_;  // has no input of its own: is told of every cue
    // The last member: its thread uses the others.
    std::unique_ptr<MidiInput> input_;  // guarded by inputMutex_
};

}  // namespace player
