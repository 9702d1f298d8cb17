#include "player/song_starts.h"

#include <cstdint>
#include <fstream>
#include <sstream>

#include "json_text.h"
#include "player/atomic_file.h"

namespace player {

namespace {

std::filesystem::path PathFor(const std::filesystem::path& showFile) {
    std::filesystem::path path = showFile;
    path += ".starts";
    return path;
}

}  // namespace

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
