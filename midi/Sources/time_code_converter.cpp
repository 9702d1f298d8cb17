#include "midi/time_code_converter.h"

TimeCodeConverter::TimeCodeConverter(const vemo_midi::ShowData& show) : show_(show) {}

TimeCodeConverter::TimeCodeConverter(const TimeCodeConverter& other)
    : show_(other.show_), resolution_(other.resolution_), songKey_(other.songKey_) {
    if (other.song_)
        song_ = &show_.Get(songKey_);
}

TimeCodeConverter& TimeCodeConverter::operator=(const TimeCodeConverter& other) {
    if (this == &other)
        return *this;
    show_ = other.show_;
    resolution_ = other.resolution_;
    songKey_ = other.songKey_;
    song_ = other.song_ ? &show_.Get(songKey_) : nullptr;
    return *this;
}

TimeCodeConverter::~TimeCodeConverter() = default;

void TimeCodeConverter::UpdateToNewSong(const std::string& songKey, unsigned int resolution) {
    resolution_ = resolution;
    song_ = &show_.Get(songKey);
    songKey_ = songKey;
}

double TimeCodeConverter::ConvertTickIndexToSeconds(unsigned int tickIndex) const {
    return song_ ? song_->GetTimeCodeAtTickIndex(tickIndex).GetSeconds() : 0.0;
}

std::pair<double, double> TimeCodeConverter::GetTimeCodeSecondsPair(unsigned int tickIndex) const {
    return {ConvertTickIndexToSeconds(tickIndex), ConvertTickIndexToSeconds(tickIndex + resolution_ / 24)};
}
