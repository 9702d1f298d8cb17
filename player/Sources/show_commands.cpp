#include "player/show_commands.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <set>

#include "midi/midi_time_code_controller.h"
#include "player/display_text.h"
#include "player/exit_status.h"
#include "player/midi_file_import.h"
#include "player/midi_file_reader.h"
#include "player/show_file.h"
#include "player/show_loading.h"
#include "player/song_inspection.h"
#include "player/song_starts.h"
#include "player/time_code_control.h"
#include "zell/format.h"

namespace player {

namespace fs = std::filesystem;

namespace {

void ComplainOf(const std::string& name, const std::string& fault) {
    Complain(name + ": " + fault);
}

std::string Utf8(const std::u8string& text) {
    return {text.begin(), text.end()};
}

bool AreReadable(const std::vector<std::string>& files) {
    bool all = true;
    for (const std::string& file : files) {
        try {
            ImportMidiFile(ReadMidiFile(file), 1);
        } catch (const std::exception& fault) {
            Complain(fault.what());
            all = false;
        }
    }
    return all;
}

/// From the show's folder to the file. Of the file's own name a link is kept: what
/// it leads to may change.
std::string RelativeName(const fs::path& folder, const fs::path& file) {
    const fs::path whole = fs::canonical(fs::absolute(file).parent_path()) / file.filename();
    const fs::path relative = whole.lexically_relative(folder);
    return Utf8((relative.empty() ? whole : relative).generic_u8string());  // empty: on another drive
}

std::string UniqueKey(const fs::path& file, std::set<std::string>& taken) {
    std::string stem = DisplayText(Utf8(file.stem().u8string()));
    if (stem.empty())
        stem = "song";
    std::string key = stem;
    for (int count = 2; !taken.insert(key).second; ++count)
        key = zell::format("%s %d", stem, count);
    return key;
}

/// The frame rate that the show's time code has.
FrameRate RateOf(const Show& show) {
    const std::u8string path = TimeCodeControl::SettingsPathFor(show.GetFile()).u8string();
    const FrameRate stored = MidiTimeCodeController(std::string(path.begin(), path.end())).GetFrameRate();
    return stored > FrameRate::k30 ? FrameRate::k30 : stored;
}

/// Every song with its length and where it begins on the show's time axis; what has moved
/// since the show was verified before is said.
void ListSongs(const Show& show) {
    const FrameRate rate = RateOf(show);
    const SongStarts starts = StartsOf(show);
    for (const ShowSong& song : show.GetSongs())
        std::printf("%3d  %8s  starts at %s  %s\n", song.number, LengthOf(*song.song).c_str(),
                    LabelOf(starts.at(song.key), rate).c_str(), song.title.c_str());
    for (const std::string& moved : DescribeMovedSongs(show, rate))
        Complain("warning: " + moved);
    try {
        WriteSongStarts(show.GetFile(), starts);
    } catch (const std::exception& error) {
        Complain(std::string("warning: ") + error.what());
    }
}

}  // namespace

int NewShow(const fs::path& path, const std::vector<std::string>& files, bool overwrite) {
    try {
        if (!overwrite && fs::exists(fs::symlink_status(path))) {
            Complain(DisplayText(path.string()) + ": is there already, and only --overwrite replaces it");
            return kRefused;
        }
        if (!AreReadable(files))
            return kRefused;
        ShowDocument show;
        show.title = DisplayText(Utf8(path.stem().u8string()));
        const fs::path folder = fs::canonical(fs::absolute(path).parent_path());
        std::set<std::string> keys;
        for (const std::string& file : files) {
            ShowDocument::Song& song = show.songs.emplace_back();
            song.key = UniqueKey(file, keys);
            song.file = RelativeName(folder, file);
            show.setList.push_back({song.key, AfterSong::kWait});
        }
        WriteShowFile(show, path);
        const auto written = LoadShow(show, path, false);
        for (const ShowSong& song : written->GetSongs())
            if (!song.song)
                Complain("warning: " + song.fault + "; it is taken with --allow-outside alone");
        return kDone;
    } catch (const ShowFileError& error) {
        for (const std::string& fault : error.GetFaults())
            Complain(DisplayText(path.string()) + ": " + fault);
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return kRefused;
}

int VerifyShow(const fs::path& path, bool allowOutside) {
    const std::string name = DisplayText(path.string());
    try {
        const auto show = LoadShow(ReadShowFile(path), path, allowOutside);
        bool isGood = true;
        for (const ShowSong& song : show->GetSongs())
            for (const std::string& fault : song.faults) {
                ComplainOf(name, fault);
                isGood = false;
            }
        if (!isGood)
            return kRefused;
        ListSongs(*show);
        return kDone;
    } catch (const ShowFileError& error) {
        for (const std::string& fault : error.GetFaults())
            ComplainOf(name, fault);
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return kRefused;
}

}  // namespace player
