#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "midi/midi_stream_collection.h"
#include "player/show.h"

namespace player {

/// The streams of a show of either kind, which load on a thread of their own.
///
/// Owner:   the playback host; keeps the show alive.
/// Threads: GetLoaded() and IsLoaded() on any; the rest serialised by the host.
///          Select() waits until the song is built, so the clock and the queue
///          thread ask IsLoaded() first.
/// Lock:    the collection's, a leaf.
/// Units:   track ids 0..15; trims in percent.
/// Errors:  std::out_of_range from Select() for a song that cannot be played.
class ShowStreams {
public:
    explicit ShowStreams(std::shared_ptr<const Show> show);
    ~ShowStreams();
    ShowStreams(const ShowStreams&) = delete;
    ShowStreams& operator=(const ShowStreams&) = delete;

    /// Makes the song current: its programs are the song's own again, its mutes these.
    MidiStream& Select(const std::string& key, const std::set<unsigned short>& muted);
    bool IsLoaded(const std::string& key) const;
    /// How many songs are built, and how many there are to build.
    std::size_t GetLoaded() const;
    std::size_t GetCount() const;

    /// Of the current song, and in a show of ranges of every song after it.
    void Mute(unsigned short id);
    /// The song's next cycle sends the track's state.
    void Unmute(unsigned short id);
    /// No effect in a show that has no trims.
    void SetTrim(unsigned short id, unsigned char trim);
    /// 100 where none was set.
    unsigned char GetTrim(unsigned short id) const;

private:
    class Progress;
    class ProgramStreams;
    class RangeStreams;

    const std::shared_ptr<const Show> show_;
    const std::unique_ptr<Progress> progress_;
    // One of the two, as the show is.
    std::unique_ptr<ProgramStreams> programs_;
    std::unique_ptr<RangeStreams> ranges_;
    MidiStreamCollection* collection_ = nullptr;
    std::map<unsigned short, unsigned char> trims_;
};

}  // namespace player
