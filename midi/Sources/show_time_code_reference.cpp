#include "midi/show_time_code_reference.h"

ShowTimeCodeReference::ShowTimeCodeReference(const vemo_midi::ShowData& show) {
    double start = 0.0;
    for (const auto& [key, song] : show) {
        const SongTimeCodeReference reference(start, song.GetTimeline(), song.GetResolution());
        songs_.insert_or_assign(key, reference);
        start = reference.GetSongEndSeconds();
    }
}

SongTimeCodeReference& ShowTimeCodeReference::Get(const std::string& songKey) {
    return songs_[songKey];
}
