#include "player/song_starts.h"

#include <cmath>
#include <cstdint>
#include <fstream>
#include <sstream>

#include "json_text.h"
#include "midi/midi_time_code.h"
#include "midi/time_code_converter.h"
#include "player/atomic_file.h"
#include "player/time_code_sender.h"

namespace player {

namespace {

constexpr double kSecondsPerDay = 86'400;
// Less than anybody sees: half a quarter frame.
constexpr double kMovedSeconds = 0.004;

std::filesystem::path PathFor(const std::filesystem::path& showFile) {
    std::filesystem::path path = showFile;
    path += ".starts";
    return path;
}

}  // namespace

SongStarts StartsOf(const Show& show) {
    TimeCodeConverter axis(show.GetData());
    SongStarts starts;
    for (const ShowSong& song : show.GetSongs())
        if (song.song) {
            axis.UpdateToNewSong(song.key, song.song->song.GetResolution());
            starts[song.key] = axis.ConvertTickIndexToSeconds(0);
        }
    return starts;
}

std::string LabelOf(double seconds, FrameRate rate) {
    return MidiTimeCode(std::fmod(seconds + TimeCodeSender::kBorderSeconds, kSecondsPerDay), rate).GetAsString();
}

std::vector<std::string> DescribeMovedSongs(const Show& show, FrameRate rate) {
    std::vector<std::string> lines;
    const auto before = ReadSongStarts(show.GetFile());
    if (!before)
        return lines;
    const SongStarts now = StartsOf(show);
    for (const ShowSong& song : show.GetSongs()) {
        const auto was = before->find(song.key);
        const auto is = now.find(song.key);
        if (was != before->end() && is != now.end() && std::abs(is->second - was->second) > kMovedSeconds)
            lines.push_back("'" + song.title + "' starts at " + LabelOf(is->second, rate) +
                            " of the show's time code; when the show was verified before it was " +
                            LabelOf(was->second, rate));
    }
    return lines;
}

std::optional<SongStarts> ReadSongStarts(const std::filesystem::path& showFile) {
    std::ifstream input(PathFor(showFile));
    std::ostringstream text;
    text << input.rdbuf();
    const JsonText json = ReadJson(text.str());
    if (!input || !json.faults.empty() || !json.root.is_object())
        return std::nullopt;
    SongStarts starts;
    for (const auto& [key, seconds] : json.root.items())
        if (seconds.is_number())
            starts[key] = seconds.get<double>();
    return starts;
}

void WriteSongStarts(const std::filesystem::path& showFile, const SongStarts& starts) {
    const std::string text = LayOutJson(Json(starts));
    AtomicFile file(PathFor(showFile));
    file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    file.Commit();
}

}  // namespace player
