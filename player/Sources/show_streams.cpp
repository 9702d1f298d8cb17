#include "player/show_streams.h"

#include <atomic>
#include <cstdint>
#include <utility>

#include "midi/ambrel_midi_stream_collection.h"
#include "midi/quorvel_midi_stream_collection.h"

namespace player {

class ShowStreams::Progress {
public:
    std::atomic<std::size_t> built{0};
};

class ShowStreams::ProgramStreams final : public QuorvelMidiStreamCollection {
public:
    ProgramStreams(const vemo_midi::ShowData& show, Progress& progress)
        : QuorvelMidiStreamCollection(show, LeftToDerivedForm()), progress_(progress) {
        StartLoadStreamsThread();
    }
    ~ProgramStreams() override { StopLoading(); }

protected:
    MidiStream* CreateMidiStream(const vemo_midi::SongData& song) override {
        MidiStream* const stream = QuorvelMidiStreamCollection::CreateMidiStream(song);
        ++progress_.built;
        return stream;
    }

private:
    Progress& progress_;
};

class ShowStreams::RangeStreams final : public AmbrelMidiStreamCollection {
public:
    RangeStreams(const ambrel::AmbrelShowData& show, Progress& progress)
        : AmbrelMidiStreamCollection(show, LeftToDerivedForm()), progress_(progress) {
        StartLoadStreamsThread();
    }
    ~RangeStreams() override { StopLoading(); }

protected:
    MidiStream* CreateMidiStream(const vemo_midi::SongData& song) override {
        MidiStream* const stream = AmbrelMidiStreamCollection::CreateMidiStream(song);
        ++progress_.built;
        return stream;
    }

private:
    Progress& progress_;
};

ShowStreams::ShowStreams(std::shared_ptr<const Show> show)
    : show_(std::move(show)), progress_(std::make_unique<Progress>()) {
    if (show_->GetDocument().kind == ShowKind::kRanges) {
        ranges_ = std::make_unique<RangeStreams>(show_->GetData(), *progress_);
        collection_ = ranges_.get();
    } else {
        programs_ = std::make_unique<ProgramStreams>(show_->GetData(), *progress_);
        collection_ = programs_.get();
    }
}

ShowStreams::~ShowStreams() = default;

MidiStream& ShowStreams::Select(const std::string& key, const std::set<unsigned short>& muted) {
    MidiStream& stream = collection_->GetStream(key);
    // The collection of a show of ranges remembers mutes by their commands alone.
    if (ranges_) {
        ranges_->UnmuteAll();
        for (const unsigned short id : muted)
            ranges_->MuteTrack(id);
    }
    stream.SetMutedTracks(muted);
    return stream;
}

bool ShowStreams::IsLoaded(const std::string& key) const {
    return collection_->GetStreamIsLoaded(key);
}

std::size_t ShowStreams::GetLoaded() const {
    return progress_->built;
}

std::size_t ShowStreams::GetCount() const {
    return show_->GetData().size();
}

void ShowStreams::Mute(unsigned short id) {
    collection_->MuteTrack(id);
}

void ShowStreams::Unmute(unsigned short id) {
    collection_->UnmuteTrack(id);
}

void ShowStreams::SetTrim(unsigned short id, unsigned char trim) {
    if (!ranges_)
        return;
    trims_[id] = trim;
    ranges_->SetTrackTrim(id, trim);
}

unsigned char ShowStreams::GetTrim(unsigned short id) const {
    const auto found = trims_.find(id);
    return found == trims_.end() ? std::uint8_t{100} : found->second;
}

}  // namespace player
