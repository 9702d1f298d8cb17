#include "midi/midi_stream_collection.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "vemo_core/exception_log.h"
#include "zell/thread_names.h"

namespace {

constexpr char kSource[] = "midi/Sources/midi_stream_collection";
// Not __LINE__: a failed loading is reported from one place, whichever handler
// caught it and wherever an edit has moved that.
constexpr int kLoadingLine = 152;

}  // namespace

MidiStreamCollection::MidiStreamCollection(const vemo_midi::ShowData& showData) : showData_(&showData) {}

MidiStreamCollection::~MidiStreamCollection() {
    StopLoading();
}

void MidiStreamCollection::StartLoadStreamsThread() {
    if (loadThread_.joinable())
        throw std::logic_error("the streams of the show are being loaded already");
    loadThread_ = std::thread([this] { RunLoadStreams(); });
}

void MidiStreamCollection::StopLoading() {
    {
        const std::lock_guard lock(streamsMutex_);
        stopLoading_ = true;
    }
    if (loadThread_.joinable())
        loadThread_.join();
}

void MidiStreamCollection::RunLoadStreams() {
    zell::threadNames.SetNameOfCurrentThread("run_load_streams");
    try {
        LoadStreams();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, kLoadingLine);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, kLoadingLine);
    }
    // Also after a failure: who waits for a song that was not built would wait for ever.
    Loaded(true);
}

void MidiStreamCollection::LoadStreams() {
    for (const auto& [key, songData] : *showData_) {
        std::shared_ptr<MidiStream> stream(CreateMidiStream(songData));
        const std::lock_guard lock(streamsMutex_);
        streams_.emplace(key, std::move(stream));
        // All: two may wait for different songs, and one of them for this one.
        streamLoaded_.notify_all();
        if (stopLoading_)
            return;
    }
}

bool MidiStreamCollection::Loaded() const {
    const std::lock_guard lock(streamsMutex_);
    return loaded_;
}

void MidiStreamCollection::Loaded(bool loaded) {
    const std::lock_guard lock(streamsMutex_);
    loaded_ = loaded;
    streamLoaded_.notify_all();
}

MidiStream& MidiStreamCollection::Find_(const std::string& key) const {
    const auto found = streams_.find(key);
    if (found == streams_.end())
        throw std::out_of_range("no stream of the song \"" + key + "\"");
    return *found->second;
}

MidiStream& MidiStreamCollection::GetStream(const std::string& key) {
    std::unique_lock lock(streamsMutex_);
    currentSongKey_ = key;
    streamLoaded_.wait(lock, [&] { return loaded_ || streams_.contains(key); });
    MidiStream& stream = Find_(key);
    lock.unlock();
    stream.ResetProgramChanges();
    stream.ResetMuteSettings();
    return stream;
}

MidiStream& MidiStreamCollection::GetCurrentStream() const {
    const std::lock_guard lock(streamsMutex_);
    return Find_(currentSongKey_);
}

bool MidiStreamCollection::GetStreamIsLoaded(const std::string& key) const {
    const std::lock_guard lock(streamsMutex_);
    return streams_.contains(key);
}

void MidiStreamCollection::MuteGroup(unsigned char) {}

void MidiStreamCollection::UnmuteGroup(unsigned char) {}

void MidiStreamCollection::MuteTrack(unsigned short trackId) {
    GetCurrentStream().MuteTrack(trackId);
}

void MidiStreamCollection::UnmuteTrack(unsigned short trackId) {
    GetCurrentStream().UnmuteTrack(trackId);
}

void MidiStreamCollection::UnmuteAll() {
    GetCurrentStream().UnmuteAll();
}

void MidiStreamCollection::SetMutedTracks(const std::map<unsigned short, bool>& muted) {
    GetCurrentStream().SetMutedTracks(muted);
}
