#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "midi/frame_rate.h"
#include "midi/midi_time_code_controller.h"
#include "player/remembered_device.h"
#include "player/time_code_sender.h"

namespace player {

/// What is decided about time code, by the command line, the files beside a show and the
/// operator: whether it is sent, at which rate and on which output.
///
/// Owner:   the program; transport and host, which use it, go first.
/// Threads: OpenShow() and the setters on the transport's thread; the rest on any.
/// Lock:    none of its own.
/// Errors:  std::invalid_argument with one line for what cannot be had, before anything
///          changes.
class TimeCodeControl {
public:
    struct Settings {
        // Of the command line, instead of what a show's files say.
        std::optional<FrameRate> frameRate;  // also: it is sent
        std::string output;                  // name or index; empty: not said
        std::array<unsigned char, 4> start{};
        /// The device of the music, an index: where nobody has chosen another.
        std::string musicOutput;
        TimeCodeSender::Clock virtualTime;
        TimeCodeSender::Observer observer;
        /// Something that the operator should read; must only post.
        std::function<void(const std::string&)> say;
    };

    explicit TimeCodeControl(const Settings& settings);

    TimeCodeSender& GetSender() { return sender_; }
    const TimeCodeSender& GetSender() const { return sender_; }

    /// file: of the show, beside which its settings lie; empty: it has none.
    void OpenShow(const std::filesystem::path& file, bool isActive);
    void SetActive(bool active);
    bool IsActive() const { return isActive_; }
    void SetFrameRate(FrameRate frameRate);
    /// Name or index. VemoMidiError where it cannot be opened; the one before then goes on.
    void SetOutput(const std::string& device);

    static std::filesystem::path SettingsPathFor(const std::filesystem::path& showFile);
    /// "24", "25", "29.97df" or "30"; std::invalid_argument with one line.
    static FrameRate ParseFrameRate(const std::string& name);
    /// "01:00:00:00", with ';' or ':' before the frames.
    static std::array<unsigned char, 4> ParseLabel(const std::string& text);

private:
    void ReadOutput(const RememberedDevice& remembered);
    void OpenPort();
    void StoreOutput(const std::string& index);

    const Settings settings_;
    TimeCodeSender sender_;
    std::filesystem::path path_;                      // of the settings; empty: nothing is kept
    std::unique_ptr<MidiTimeCodeController> stored_;  // null: nothing is kept
    std::string output_;                              // an index; empty: the one that was chosen is not there
    std::string missingOutput_;                       // its name then
    bool isActive_ = false;
    std::string openOutput_;  // the index that the port was opened with
};

}  // namespace player
