#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "midi/midi_stream.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/show_data.h"

/// The streams of a show's songs, built in show order on a thread of its own, so
/// that the first song can play while the last ones are still loading; and which
/// of them is the current one, whose tracks the operator mutes.
///
/// Owner:   the host. The show outlives the collection and does not change while
///          it loads; the streams live as long as the collection. Nobody may be in
///          a call while it is destroyed.
/// Threads: GetStreamIsLoaded() and GetLoadingHasEnded() on any. The rest on the
///          host's, which serialises them with each other and with the calls on the
///          streams; only the waiting in GetStream() may overlap, for different
///          songs. GetStream() never on the clock or queue thread, which must not
///          wait. The loading thread, "run_load_streams", touches no stream that was
///          handed out.
/// Lock:    streamsMutex_, a leaf; never held while a stream is built or called.
/// Units:   song keys of the show; track ids.
/// Errors:  std::out_of_range where there is no stream of the song: the show lacks
///          it, or the loading ended before it. What building a stream throws is
///          logged and ends the loading; the streams built until then stay.
///
/// A form of the host's own, which counts the progress or builds other streams,
/// - derives from a concrete form and passes LeftToDerivedForm: otherwise the thread
///   would run before the derived form exists, and build the first songs without it;
/// - calls StartLoadStreamsThread() last in its constructor, after all that may throw;
/// - calls StopLoading() first in its destructor, before its members die;
/// - is final, or hands the same duties on.
class VEMO_MIDI_EXPORT MidiStreamCollection {
public:
    /// Returns after the song that is being built, so as to keep nobody waiting
    /// for the rest of a show that is closed again.
    virtual ~MidiStreamCollection();
    MidiStreamCollection(const MidiStreamCollection&) = delete;
    MidiStreamCollection& operator=(const MidiStreamCollection&) = delete;

    /// Makes the song the current one, also where it then throws, and waits until
    /// it is built or will not be any more. Its programs and mutes are those of the
    /// song again; its position is not touched.
    virtual MidiStream& GetStream(const std::string& key);
    /// Does not wait.
    MidiStream& GetCurrentStream() const;
    /// Whether GetStream() would find the song without waiting. Does not block.
    bool GetStreamIsLoaded(const std::string& key) const;
    /// From then on what is not loaded never will be. Does not block.
    bool GetLoadingHasEnded() const { return Loaded(); }

    /// Nothing here: a show of this kind has no groups.
    virtual void MuteGroup(unsigned char group);
    virtual void UnmuteGroup(unsigned char group);
    /// On the current stream, as MidiStream.
    virtual void MuteTrack(unsigned short trackId);
    virtual void UnmuteTrack(unsigned short trackId);
    virtual void UnmuteAll();
    void SetMutedTracks(const std::map<unsigned short, bool>& muted);

protected:
    struct LeftToDerivedForm {};

    explicit MidiStreamCollection(const vemo_midi::ShowData& showData);

    /// The song's new stream, never null; the collection owns it. Called on the
    /// loading thread, with no lock held. May throw. Must not call the collection,
    /// nor wait for whoever may be destroying it.
    virtual MidiStream* CreateMidiStream(const vemo_midi::SongData& songData) = 0;
    /// Once, when CreateMidiStream() is ready to be called; std::logic_error after that.
    void StartLoadStreamsThread();
    /// For the concrete forms' destructors: returns once the loading thread has
    /// ended; again at once.
    void StopLoading();

private:
    void RunLoadStreams();
    void LoadStreams();
    bool Loaded() const;
    void Loaded(bool loaded);
    /// Under streamsMutex_. What is there stays there.
    MidiStream& Find_(const std::string& key) const;

    mutable std::mutex streamsMutex_;
    const vemo_midi::ShowData* const showData_;
    bool loaded_ = false;       // guarded by streamsMutex_
    bool stopLoading_ = false;  // guarded by streamsMutex_
    // A stream was added, or the loading has ended.
    std::condition_variable streamLoaded_;
    std::thread loadThread_;  // of whoever constructs and destroys
    // Guarded by streamsMutex_.
    std::map<std::string, std::shared_ptr<MidiStream>> streams_;
    std::string currentSongKey_;
};
