#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "player/screen_model.h"

namespace player {

/// What the keys of the operator's screen do.
///
/// In show mode, while the music plays, no single key stops it, goes elsewhere or
/// changes the song: such a key is pressed twice within a second, or held. In rehearsal
/// mode every key acts at once. In both, a key that starts or stops the music or changes
/// the song does so once, however long it is held, and panic is one key.
///
/// Owner:   the screen; a value.
/// Threads: one at a time.
/// Units:   a key is its character, or one of Key.
class OperatorKeys {
public:
    enum Key : int {
        kUp = 0x110000,  // behind every character
        kDown,
        kLeft,
        kRight,
        kPageUp,
        kPageDown,
        kBackspace,
        kInterrupt,  // Ctrl-C
        kPanic,      // F8: the same as x, but also while something is being typed
        kOther
    };
    static constexpr int kEnter = '\n';
    static constexpr int kEscape = 27;
    static constexpr int kTab = '\t';
    using Time = std::chrono::steady_clock::time_point;

    struct Action {
        std::string command;  // to be sent; empty: nothing
        bool leaves = false;  // this screen ends; the player goes on
        bool quits = false;   // the player ends, and this screen with it
    };

    Action Press(int key, Time now, const ScreenModel& model);

    bool IsShowMode() const { return isShowMode_; }
    bool ShowsHelp() const { return showsHelp_; }
    bool ShowsPedals() const { return showsPedals_; }
    /// The command, counted from 0, that is to be learned or forgotten.
    std::size_t GetSelectedPedal() const { return pedal_; }
    /// The track, counted from 0, that keys for one track act on.
    std::size_t GetSelectedTrack() const { return track_; }
    /// What is being typed or asked; empty otherwise.
    std::string GetPrompt(Time now) const;

    struct Help {
        std::string keys;
        std::string what;
        bool isShort;  // is among the keys at the bottom of the screen
    };
    static const std::vector<Help>& GetHelp();

private:
    enum class Asking { kNothing, kQuit, kPlace, kCommand };

    Action Ask(Asking asking);
    Action Type(int key);
    Action AnswerQuit(int key);
    Action ChoosePedal(int key, const ScreenModel& model);
    Action Act(int key, Time now, const ScreenModel& model);

    bool isShowMode_ = true;
    bool showsHelp_ = false;
    bool showsPedals_ = false;
    std::size_t pedal_ = 0;
    std::size_t track_ = 0;
    bool pedalsAreLocked_ = false;  // they were asked for in show mode
    Asking asking_ = Asking::kNothing;
    std::string typed_;
    int armedKey_ = 0;  // pressed once
    std::string armedWhat_;
    Time armedAt_{};
    int firedKey_ = 0;  // has acted: held on, it does nothing more
    Time firedAt_{};
};

}  // namespace player
