#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace player {

/// What the operator's screen knows of the show: the control server's lines, understood.
///
/// Owner:   the screen; a value.
/// Units:   places of the set list, channels and programs from 1, 0: none; trims in
///          percent; seconds.
/// Errors:  a line that is no such line changes nothing.
struct ScreenModel {
    struct Entry {
        std::size_t song = 0;
        int number = 0;
        std::string title;
        std::string then;  // "stop", "wait" or "go"
        double seconds = 0;
        std::string fault;
    };
    struct Track {
        int channel = 0;
        std::string name;
        int program = 0;
        bool programIsUsers = false;
        int trim = 100;
        bool muted = false;
        bool active = false;  // has struck a note just now
    };
    struct Pedal {
        std::string command;
        std::string binding;  // empty: none was learned
        int leastMilliseconds = 0;
    };
    struct Message {
        std::uint64_t number = 0;
        std::string text;
    };

    /// One line of the server. Returns whether there is something new to draw.
    bool Take(std::string_view line);

    bool IsPlaying() const { return state == "playing"; }
    /// Null where there is none.
    const Entry* GetNext() const { return EntryAt(nextPlace); }
    const Entry* GetCurrent() const { return EntryAt(place); }

    bool isConnected = false;
    std::string state = "empty";
    std::string showTitle;
    bool hasTrims = false;
    std::vector<Entry> setList;
    std::size_t place = 0;
    std::size_t nextPlace = 0;
    std::size_t song = 0;
    int number = 0;
    std::string title;
    unsigned int bars = 0;
    double tempoScale = 1;
    int transposition = 0;  // the operator's
    bool holds = false;
    std::string patch;
    std::string click = "none";  // or "on", "off"
    int guiDelayMilliseconds = 0;
    std::vector<Track> tracks;
    std::vector<Message> messages;
    std::size_t songsLoaded = 0;
    std::size_t songsToLoad = 0;
    std::string deviceName;
    std::string deviceState;  // "ok", "stalled", "lost" or "fault"
    std::string timeCodeState = "off";
    std::string timeCodeRate;  // "25 fps"
    std::string timeCode;      // the label that is sent; empty: none

    std::string inputName;            // of pedals and keys; empty: none was chosen
    std::string inputState = "none";  // "none", "on" or "missing"
    bool onlyPresses = true;
    std::string learning;  // the command that waits for its pedal; empty: none
    std::vector<Pedal> pedals;
    std::string showControlState = "none";  // "none", "on", "off" or "missing"
    bool showControlIsArmed = false;
    int showControlRefused = 0;
    std::string showControlRefusal;  // the newest

    // Of the position.
    int bar = 0;  // below 0: bars of the count-in that are left
    int beat = 0;
    bool isCountIn = false;
    int clock = 0;
    int clocks = 0;
    double tempo = 0;
    std::string meter;
    std::string key;
    int soundingTransposition = 0;
    std::string marker;
    unsigned int page = 0;
    bool hasPages = false;
    double seconds = 0;
    double length = 0;
    double showSeconds = 0;
    double showLength = 0;
    std::vector<int> activeChannels;

    /// Of the latest command of this screen that was refused or had something to say.
    std::string answer;
    bool answerIsRefusal = false;
    std::uint64_t answeredBehind = 0;  // the number of the newest message by then

    /// What has been said since that answer, and is not the answer; empty: nothing.
    std::string GetNewsBehindAnswer() const;

private:
    const Entry* EntryAt(std::size_t at) const { return at > 0 && at <= setList.size() ? &setList[at - 1] : nullptr; }
};

}  // namespace player
