#include "player/operator_keys.h"

#include <algorithm>
#include <utility>

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr auto kTwice = 1s;
// Longer than the first wait of a keyboard that repeats a held key.
constexpr auto kHeldFor = 700ms;
constexpr std::size_t kLongestTyped = 1000;

struct Binding {
    int key;
    const char* command;
    const char* guardedAs;  // what it does to playing music; null: nothing
    bool ofTrack = false;   // takes the channel of the selected track
    bool repeats = false;   // goes on while it is held, where nothing guards it
};

constexpr Binding kBindings[] = {
    {'s', "stop", "stop"},
    {'n', "next song", "go to the next song"},
    {'p', "previous song", "go to the previous song"},
    {OperatorKeys::kRight, "next measure", "go to the next bar", false, true},
    {OperatorKeys::kLeft, "previous measure", "go to the bar before", false, true},
    {OperatorKeys::kPageDown, "next marker", "go to the next marker", false, true},
    {OperatorKeys::kPageUp, "previous marker", "go to the marker before", false, true},
    {'+', "tempo up", nullptr},
    {'=', "tempo up", nullptr},
    {'-', "tempo down", nullptr},
    {'0', "tempo reset", nullptr},
    {'u', "transpose up", nullptr},
    {'d', "transpose down", nullptr},
    {'o', "transpose reset", nullptr},
    {'M', "unmute all", nullptr},
    {'>', "trim up", nullptr, true},
    {'<', "trim down", nullptr, true},
    {'.', "next patch", nullptr},
    {',', "previous patch", nullptr},
    {'f', "follow programs", nullptr},
    {')', "gui delay up", nullptr},
    {'(', "gui delay down", nullptr},
    {'r', "resend", nullptr},
    {'w', "save", nullptr},
    {'K', "skip", nullptr},
};

std::string Utf8Of(int character) {
    std::string text;
    const auto put = [&](int bits) { text += static_cast<char>(bits); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | character >> 18);
        put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
    return text;
}

void EraseLastCharacter(std::string& text) {
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80)
        text.pop_back();
    if (!text.empty())
        text.pop_back();
}

std::string NameOf(int key) {
    switch (key) {
        case ' ': return "SPACE";
        case OperatorKeys::kLeft: return "LEFT";
        case OperatorKeys::kRight: return "RIGHT";
        case OperatorKeys::kPageUp: return "PAGE UP";
        case OperatorKeys::kPageDown: return "PAGE DOWN";
        default: return Utf8Of(key);
    }
}

}  // namespace

const std::vector<OperatorKeys::Help>& OperatorKeys::GetHelp() {
    static const std::vector<Help> help = {
        {"SPACE", "play/pause", true},
        {"s", "stop", true},
        {"n p", "song", true},
        {"x", "PANIC", true},
        {"g", "go to bar", true},
        {"+ -", "tempo", true},
        {"u d", "pitch", true},
        {"m", "mute", true},
        {"< >", "trim", true},
        {"k", "click", true},
        {":", "command", true},
        {"Tab", "mode", true},
        {"q", "quit", true},
        {"?", "help", true},
        {"F8", "panic, also while typing", false},
        {"Left Right", "a bar back, on", false},
        {"PgUp PgDn", "a marker back, on", false},
        {"Up Down", "choose a track", false},
        {"M", "unmute all", false},
        {"0  o", "tempo, pitch as written", false},
        {"h", "hold both, song to song", false},
        {". ,", "next, previous patch", false},
        {"f", "the song's own programs", false},
        {"K", "skip the next song", false},
        {"( )", "show sooner, later", false},
        {"r", "resend to the device", false},
        {"w", "save the balance", false},
        {"c", "show control on, off", false},
        {"L", "pedals (in rehearsal)", false},
        {"l", "leave; the music goes on", false},
    };
    return help;
}

OperatorKeys::Action OperatorKeys::Press(int key, Time now, const ScreenModel& model) {
    if (key == kPanic)
        return {"panic", false, false};
    if (asking_ == Asking::kPlace || asking_ == Asking::kCommand)
        return Type(key);
    // Nothing comes before this key.
    if (key == 'x')
        return {"panic", false, false};
    if (asking_ == Asking::kQuit)
        return AnswerQuit(key);
    if (std::exchange(showsHelp_, false))
        return {};
    pedalsAreLocked_ = false;
    if (showsPedals_)
        return ChoosePedal(key, model);
    if (key == firedKey_ && now - firedAt_ < kHeldFor) {
        firedAt_ = now;
        return {};
    }
    return Act(key, now, model);
}

OperatorKeys::Action OperatorKeys::Ask(Asking asking) {
    asking_ = asking;
    typed_.clear();
    armedKey_ = 0;
    return {};
}

OperatorKeys::Action OperatorKeys::Type(int key) {
    if (key == kEscape || key == kInterrupt)
        return Ask(Asking::kNothing);
    if (key == kEnter || key == '\r') {
        Action action;
        if (!typed_.empty())
            action.command = (asking_ == Asking::kPlace ? "locate " : "") + typed_;
        Ask(Asking::kNothing);
        // Of the screen's own matters the server knows nothing.
        if (action.command == "quit now")
            action.quits = true;
        return action;
    }
    if (key == kBackspace || key == 127 || key == '\b')
        EraseLastCharacter(typed_);
    else if (key >= ' ' && key < kUp && typed_.size() < kLongestTyped)
        typed_ += Utf8Of(key);
    return {};
}

OperatorKeys::Action OperatorKeys::AnswerQuit(int key) {
    asking_ = Asking::kNothing;
    if (key == 'y')
        return {"quit now", false, true};
    if (key == 'l')
        return {{}, true, false};
    return {};
}

OperatorKeys::Action OperatorKeys::ChoosePedal(int key, const ScreenModel& model) {
    const std::size_t count = model.pedals.size();
    pedal_ = std::min(pedal_, count == 0 ? 0 : count - 1);
    if (!model.learning.empty())
        return {"give up learning", false, false};
    switch (key) {
        case kUp: pedal_ -= pedal_ > 0 ? 1 : 0; return {};
        case kDown: pedal_ += pedal_ + 1 < count ? 1 : 0; return {};
        case kEnter:
        case '\r': return {count > 0 ? "learn " + model.pedals[pedal_].command : "", false, false};
        case kBackspace:
        case 127:
        case '\b': return {count > 0 ? "unlearn " + model.pedals[pedal_].command : "", false, false};
        default: break;
    }
    if (key == kEscape || key == kInterrupt || key == 'L' || key == 'q' || key == kTab)
        showsPedals_ = false;
    return {};
}

OperatorKeys::Action OperatorKeys::Act(int key, Time now, const ScreenModel& model) {
    track_ = std::min(track_, model.tracks.empty() ? 0 : model.tracks.size() - 1);
    const bool hasTrack = !model.tracks.empty();
    const std::string channel = hasTrack ? " " + std::to_string(model.tracks[track_].channel) : std::string();
    const int armed = std::exchange(armedKey_, 0);
    // Another key in between: the one that fired is not held any more.
    firedKey_ = 0;
    const auto fire = [&](const std::string& command) -> Action {
        firedKey_ = key;
        firedAt_ = now;
        return {command, false, false};
    };
    // Pressed once, or for the second time.
    const auto guarded = [&](const std::string& command, const char* what, bool repeats = false) -> Action {
        if (!isShowMode_ || !model.IsPlaying())
            return repeats ? Action{command, false, false} : fire(command);
        if (armed == key && now - armedAt_ <= kTwice)
            return fire(command);
        armedKey_ = key;
        armedWhat_ = what;
        armedAt_ = now;
        return {};
    };
    for (const Binding& binding : kBindings) {
        if (binding.key != key)
            continue;
        if (binding.ofTrack && !hasTrack)
            return {};
        const std::string command = binding.command + (binding.ofTrack ? channel : std::string());
        return binding.guardedAs ? guarded(command, binding.guardedAs, binding.repeats) : Action{command, false, false};
    }
    switch (key) {
        case ' ': return model.IsPlaying() ? guarded("pause", "pause") : fire("play");
        case kUp: track_ -= track_ > 0 ? 1 : 0; return {};
        case kDown: track_ += track_ + 1 < model.tracks.size() ? 1 : 0; return {};
        case 'm': return {hasTrack ? (model.tracks[track_].muted ? "unmute" : "mute") + channel : "", false, false};
        case 'k': return {model.click == "on" ? "click off" : "click on", false, false};
        case 'h': return {model.holds ? "hold off" : "hold on", false, false};
        case 'c': return {model.showControlIsArmed ? "show control off" : "show control on", false, false};
        case 'L':
            // Nobody should change a pedal by a slip while an audience listens.
            showsPedals_ = !isShowMode_;
            pedalsAreLocked_ = isShowMode_;
            return {};
        case 'g': return Ask(Asking::kPlace);
        case ':': return Ask(Asking::kCommand);
        case kTab: isShowMode_ = !isShowMode_; return {};
        case '?': showsHelp_ = true; return {};
        case 'l': return {{}, true, false};
        case 'q':
        case kInterrupt:
            if (model.IsPlaying())
                return Ask(Asking::kQuit);
            return {"quit", false, true};
        default: return {};
    }
}

std::string OperatorKeys::GetPrompt(Time now) const {
    switch (asking_) {
        case Asking::kQuit: return "The music plays.  y: stop it and quit   l: leave this screen only   else: stay";
        case Asking::kPlace: return "Go to bar[:beat]  " + typed_ + "_";
        case Asking::kCommand: return ":" + typed_ + "_";
        case Asking::kNothing: break;
    }
    if (pedalsAreLocked_)
        return "Pedals are learned in rehearsal mode: Tab";
    if (armedKey_ != 0 && now - armedAt_ <= kTwice)
        return "Press " + NameOf(armedKey_) + " again to " + armedWhat_;
    return {};
}

}  // namespace player
