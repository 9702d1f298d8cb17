#include "player/position_reporter.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "player/display_text.h"
#include "vemo_core/keys.h"
#include "zell/format.h"

namespace player {

namespace {

// Text is valid UTF-8 without control characters by the time it comes here.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : DisplayText(text)) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string MarkerAt(const ImportedSong& song, std::uint32_t tick) {
    for (const CL::Marker& marker : song.log.GetMarkers())
        if (marker.abs_time() == tick)
            return marker.value();
    return {};
}

}  // namespace

std::string PositionReporter::Event::AsJson() const {
    return "{\"event\":" + Quoted(name) + ",\"song\":" + std::to_string(song) + ",\"title\":" + Quoted(title) +
           zell::format(",\"bar\":%d,\"beat\":%d,\"tick\":%d,\"seconds\":%.6f,\"tempo\":%.3f", bar, beat, tick, seconds,
                        tempo) +
           ",\"meter\":" + Quoted(meter) + ",\"key\":" + Quoted(key) + ",\"marker\":" + Quoted(marker) + "}";
}

std::string PositionReporter::Event::AsText() const {
    return zell::format("%d %s  bar %d:%d  %s  %.1f a minute  %s  %s", song, title, bar, beat, meter, tempo, key,
                        marker);
}

PositionReporter::PositionReporter(const CurrentShow& show, std::function<void(const Event&)> receiver)
    : show_(show), receiver_(std::move(receiver)) {}

void PositionReporter::Report(const char* name) {
    now_.name = name;
    receiver_(now_);
}

void PositionReporter::Take(const PlaybackRecord& record) {
    if (record.kind == PlaybackRecord::Kind::kDownbeat || record.kind == PlaybackRecord::Kind::kCountIn)
        return;
    if (record.kind == PlaybackRecord::Kind::kEnd) {
        // The place of the last clock, which is where the song ended.
        Report("end");
        return;
    }
    const bool isSong = record.kind == PlaybackRecord::Kind::kSong;
    if (isSong) {
        song_ = show_.GetSong(record.song);
        started_ = false;
    }
    if (!song_)
        return;
    const Event before = now_;
    now_.song = record.song;
    now_.title = song_->title;
    now_.bar = record.bar;
    now_.beat = record.beat;
    now_.tick = record.tick;
    now_.seconds = std::chrono::duration<double>(record.sinceStart).count();
    now_.tempo = record.tempo;
    now_.meter = std::to_string(record.meterBeats) + "/" + std::to_string(record.meterUnit);
    now_.key = Keys::getTransposedName(record.keySharps, record.keyMinor, record.transposition);
    now_.marker = record.hasMarker ? MarkerAt(*song_, record.markerTick) : std::string();
    if (isSong) {
        Report("song");
        return;
    }
    const bool isFirst = !std::exchange(started_, true);
    if (isFirst || now_.tempo != before.tempo)
        Report("tempo");
    if (isFirst || now_.meter != before.meter)
        Report("meter");
    if (isFirst || now_.key != before.key)
        Report("key");
    if ((isFirst || now_.marker != before.marker) && !now_.marker.empty())
        Report("marker");
    if (record.clockNumber == 0)
        Report("click");
}

}  // namespace player
