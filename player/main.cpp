// vemo_player: plays standard MIDI files through the engine.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "player/exit_status.h"
#include "player/input_commands.h"
#include "player/midi_file_import.h"
#include "player/midi_file_reader.h"
#include "player/midi_input.h"
#include "player/operator_commands.h"
#include "player/output_devices.h"
#include "player/play_options.h"
#include "player/show_commands.h"
#include "player/song_inspection.h"
#include "player/time_code_command.h"

namespace {

int Inspect(const std::vector<std::string>& files) {
    int number = 0;
    for (const std::string& file : files) {
        try {
            ++number;
            std::cout << player::InspectSong(player::ImportMidiFile(player::ReadMidiFile(file), number));
        } catch (const std::exception& error) {
            std::cout.flush();  // what was said of the files before it comes first
            return player::Complain(error.what(), player::kRefused);
        }
    }
    return player::kDone;
}

int ListDevices() {
    const player::OutputDevices devices(player::OutputDevices::Kinds::kAll,
                                        [](const std::string& text) { player::Complain(text); });
    std::cout << player::OutputDevices::Describe() << '\n';
    const std::vector<std::string> inputs = player::MidiInput::GetNames();
    std::cout << "MIDI inputs:" << (inputs.empty() ? " none\n" : "\n");
    for (std::size_t index = 0; index < inputs.size(); ++index)
        std::cout << index << ": " << inputs[index] << '\n';
    return player::kDone;
}

/// A show that somebody sits before, and not a run whose course is given.
bool IsForScreen(const player::PlayOptions& options) {
    const bool isShow = options.files.size() == 1 && options.files.front().ends_with(".json");
    return isShow && player::HasTerminal() && options.serveAt.empty() && !options.offline && !options.json &&
           options.script.empty() && options.recordTo.empty() && options.mtcRecordTo.empty();
}

std::string Joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App program("Plays standard MIDI files on a MIDI output, live.");
    program.require_subcommand(1);

    player::PlayOptions options;
    CLI::App& play = *program.add_subcommand("play", "Play files, one after another.");
    play.add_option("FILE", options.files, "Standard MIDI files, each a song")->required();
    play.add_flag("--offline", options.offline, "Play in virtual time, as fast as the machine goes");
    play.add_option("--record", options.recordTo, "Write everything that is sent to this MIDI file");
    play.add_option("--output", options.output, "The output device, by its name or index (see: devices)");
    play.add_option("--tempo-scale", options.tempoScale, "Play faster or slower: 0.5 is half the tempo, 2 twice")
        ->check(CLI::Range(0.5, 2.0))
        // "nan" is neither below nor above the range.
        ->check([](const std::string& text) { return text.find_first_of("nN") == text.npos ? "" : "not a number"; });
    play.add_option("--transpose", options.transposition, "Play higher or lower by so many semitones")
        ->check(CLI::Range(-12, 12));
    play.add_option("--mute", options.mutedChannels, "Mute the track of this MIDI channel (may be repeated)")
        ->check(CLI::Range(1, 16))
        ->allow_extra_args(false);
    play.add_option("--from", options.fromBar, "Start at this bar, sounding as it would there (single file)")
        ->check(CLI::Range(1, 999'999));
    play.add_option("--to", options.toBar, "Stop before this bar (single file)")->check(CLI::Range(1, 999'999));
    play.add_flag("--json", options.json, "Report the position as JSON, one object a line");
    play.add_flag("--resume", options.resume, "A show file: come back, stopped, to where it was");
    play.add_flag("--allow-outside", options.allowOutside, "A show file's songs may lie outside its folder");
    play.add_option("--script", options.script, "Carry out the timed commands of this file: at BAR:BEAT COMMAND");

    play.add_option("--mtc", options.mtc, "Send MIDI Time Code, at 24, 25, 29.97df or 30 frames a second");
    play.add_option("--mtc-output", options.mtcOutput, "The output for time code, by its name or index");
    play.add_option("--mtc-start", options.mtcStart, "The time at which the show begins, as 01:00:00:00");
    play.add_option("--mtc-record", options.mtcRecordTo, "Write every message of the time code to this file of lines");

    play.add_option("--input", options.input, "The input of pedals and keys, by its name or index");
    play.add_option("--commands", options.commands, "What pedals were taught, in this file and not beside the show");

    std::string socket;
    play.add_option("--serve", options.serveAt,
                    "Stand ready at the first song and obey at a control socket with this path")
        ->excludes("--offline");
    play.add_option("--socket", socket, "Where a show in a terminal listens (see: attach)");

    CLI::App& attach = *program.add_subcommand("attach", "Show the screen of a show that is running.");
    attach.add_option("SOCKET", socket, "Where the player listens; the same place as for play where it is left out");
    std::vector<std::string> words;
    CLI::App& send = *program.add_subcommand("send", "Send one command to a show that is running.");
    send.add_option("--socket", socket, "Where the player listens");
    send.add_option("COMMAND", words, "The command, as: locate 12:1 (all of them: send commands)")->required();

    std::vector<std::string> inspected;
    CLI::App& inspect = *program.add_subcommand("inspect", "Say what files hold.");
    inspect.add_option("FILE", inspected, "Standard MIDI files")->required();
    std::string showFile;
    std::vector<std::string> showSongs;
    bool overwrite = false;
    bool allowOutside = false;
    CLI::App& newShow = *program.add_subcommand("new", "Write a show file for these songs.");
    newShow.add_option("SHOW", showFile, "The show file to write")->required();
    newShow.add_option("FILE", showSongs, "Standard MIDI files, each a song")->required();
    newShow.add_flag("--overwrite", overwrite, "Replace a show file that is there already");
    CLI::App& verify = *program.add_subcommand("verify", "Name every fault of a show file and its songs.");
    verify.add_option("SHOW", showFile, "The show file")->required();
    verify.add_flag("--allow-outside", allowOutside, "Take songs from elsewhere than below the show's folder");
    std::string timeCodeSource;
    CLI::App& timeCode = *program.add_subcommand("timecode", "Follow MIDI Time Code as a receiver does.");
    timeCode.add_option("SOURCE", timeCodeSource, "A recording (see: play --mtc-record) or a MIDI input")->required();
    std::string monitored;
    CLI::App& monitor = *program.add_subcommand("monitor", "Print what arrives on a MIDI input.");
    monitor.add_option("INPUT", monitored, "The input, by its name or index; left out, the inputs are listed");
    player::LearnRequest learned;
    CLI::App& learn = *program.add_subcommand("learn", "Have a pedal or key drive a command of a show; list them.");
    learn.add_option("SHOW", learned.show, "The show file")->required();
    std::vector<std::string> learnedWords;
    CLI::Option& learnedCommand = *learn.add_option("COMMAND", learnedWords, "The command, as: next song");
    learn.add_option("--input", learned.input, "The input of pedals and keys, by its name or index");
    learn.add_option("--commands", learned.file, "What was taught, in this file and not beside the show");
    bool forgets = false;
    learn.add_flag("--forget", forgets, "Forget the pedal of the command")->needs(&learnedCommand);
    player::ShowControlGo go;
    CLI::App& msc = *program.add_subcommand("msc", "MIDI Show Control, for testing a rig.");
    msc.require_subcommand(1);
    CLI::App& mscSend = *msc.add_subcommand("send", "Write one GO to an output.");
    mscSend.add_option("OUTPUT", go.output, "The output, by its name or index")->required();
    mscSend.add_option("CUE", go.cue, "The cue number; left out: GO alone");
    mscSend.add_option("--list", go.list, "The cue list");
    mscSend.add_option("--path", go.path, "The cue path");
    mscSend.add_option("--device", go.deviceId, "The device id; 127 is all-call")->check(CLI::Range(0, 127));
    mscSend.add_flag("--effects", go.isForEffects, "The command format of audio effects devices, not of music");
    CLI::App& devices = *program.add_subcommand("devices", "List the MIDI outputs and inputs.");

    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? player::kDone : player::kRefused;
    }
    try {
        if (play.parsed() && IsForScreen(options))
            return player::PlayOnScreen({argv, argv + argc}, socket);
        if (play.parsed())
            return player::Play(options);
        if (attach.parsed())
            return player::Attach(socket);
        if (send.parsed())
            return player::SendOneCommand(socket, Joined(words));
        if (inspect.parsed())
            return Inspect(inspected);
        if (newShow.parsed())
            return player::NewShow(showFile, showSongs, overwrite);
        if (verify.parsed())
            return player::VerifyShow(showFile, allowOutside);
        if (timeCode.parsed())
            return player::FollowTimeCode(timeCodeSource);
        if (monitor.parsed())
            return player::MonitorInput(monitored);
        if (learn.parsed()) {
            (forgets ? learned.forgotten : learned.command) = Joined(learnedWords);
            return player::LearnCommand(learned);
        }
        if (mscSend.parsed())
            return player::SendShowControl(go);
        if (devices.parsed())
            return ListDevices();
    } catch (const std::exception& error) {
        return player::Complain(error.what(), player::kFailed);
    }
    return player::kFailed;
}
