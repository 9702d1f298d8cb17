#include "midi/how_to_play.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

#include "vemo_core/beat_ticks.h"
#include "vemo_core/keys.h"
#include "zell/cout_buffer.h"

namespace {

/// The element in effect at the tick, by bisection from that element on.
template <class Sequence>
std::size_t IndexAt(const Sequence& sequence, unsigned int tickIndex, std::size_t from = 0) {
    const auto first = sequence.begin() + static_cast<std::ptrdiff_t>(from);
    const auto after = std::upper_bound(first, sequence.end(), tickIndex, [](unsigned int tick, const auto& element) {
        return tick < element.abs_time();
    });
    return after == first ? from : static_cast<std::size_t>(after - sequence.begin()) - 1;
}

template <class Sequence>
const auto& ElementAt(const Sequence& sequence, unsigned int tickIndex) {
    return sequence[IndexAt(sequence, tickIndex)];
}

bool Covers(const CL::PairedEvent& event, unsigned int tickIndex) {
    return event.start() <= tickIndex && tickIndex < event.end();
}

template <class Sequence>
const auto& Existing(const Sequence& sequence, std::size_t index, const char* refusal) {
    if (sequence.empty())
        throw std::out_of_range(refusal);
    return sequence[index];
}

template <class Cursor>
bool Report(Cursor& cursor, bool otherwiseChanged = false) {
    const bool changed =
        cursor.current != cursor.previous || otherwiseChanged || (cursor.current == 0 && !cursor.reported);
    if (changed)
        cursor.reported = true;
    return changed;
}

/// Before its first element an optional sequence has nothing to report.
template <class Sequence, class Cursor>
bool IsReached(const Sequence& sequence, const Cursor& cursor, unsigned int tickIndex) {
    return !sequence.empty() && tickIndex >= sequence[cursor.current].abs_time();
}

std::string Fixed(double value, int decimals) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

}  // namespace

HowToPlay::SongBegin::SongBegin(const std::string& message) : std::range_error(message) {}
HowToPlay::SongBegin::~SongBegin() = default;
HowToPlay::SongEnd::SongEnd(const std::string& message) : std::range_error(message) {}
HowToPlay::SongEnd::~SongEnd() = default;

HowToPlay::HowToPlay(UserControls& userControls) : userControls_(userControls) {}
HowToPlay::HowToPlay(const HowToPlay& other) = default;
HowToPlay::HowToPlay(HowToPlay&& other) noexcept = default;
HowToPlay::~HowToPlay() = default;

void HowToPlay::AdvanceToTickIndex(unsigned int tickIndex) {
    preAdvanceTempoScale_ = GetTempoScaleValue();
    preAdvanceTransposition_ = GetTranspositionValue();
    const unsigned int target = std::min(tickIndex, lastTickIndex_);
    if (target < tickIndex_) {
        Seek(target);
        return;
    }
    if (target > tickIndex_) {
        for (Cursor* cursor :
             {&barBeat_, &tempo_, &meter_, &key_, &pageNum_, &marker_, &click_, &tempoScale_, &transposition_})
            cursor->previous = cursor->current;
    }
    if (hasTranspositions_)
        transpositionActive_ = {IsActiveAt_(GetTranspose(), target), transpositionActive_.now};
    if (hasTempoScales_)
        tempoScaleActive_ = {IsActiveAt_(GetTempoScale(), target), tempoScaleActive_.now};
    if (hasClicks_)
        clickActive_ = {Covers(GetClick(), target), clickActive_.now};
    MoveForward_(target);
    tickIndex_ = target;
}

unsigned int HowToPlay::GetLastTickIndex() {
    return lastTickIndex_;
}

void HowToPlay::Seek(unsigned int tickIndex) {
    preSeekTempoScale_ = GetTempoScaleValue();
    preSeekPitchShift_ = GetTranspositionValue();
    for (Cursor* cursor :
         {&barBeat_, &tempo_, &meter_, &key_, &pageNum_, &marker_, &click_, &tempoScale_, &transposition_})
        *cursor = Cursor();
    const unsigned int target = std::min(tickIndex, lastTickIndex_);
    tickIndex_ = target;
    MoveForward_(target);
    if (hasTranspositions_)
        transpositionActive_ = {IsActiveAt_(GetTranspose(), target), transpositionActive_.now};
    if (hasTempoScales_)
        tempoScaleActive_ = {IsActiveAt_(GetTempoScale(), target), tempoScaleActive_.now};
    if (hasClicks_)
        clickActive_ = {Covers(GetClick(), target), clickActive_.now};
    if (tempos_.empty() || meters_.empty())
        return;  // no song yet
    lastSeekClocksPerClick_ = GetClocksPerClick();
    lastSeekClockTime_ = GetClockTime();
}

void HowToPlay::SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int resolution) {
    lastTickIndex_ = timeline.GetLastTickIndex();
    barsBeats_ = timeline.GetBarsBeats();
    tempos_ = timeline.GetTempos();
    meters_ = timeline.GetMeters();
    keys_ = timeline.GetKeys();
    pageNums_ = timeline.GetPageNums();
    markers_ = songLog.GetMarkers();
    clicks_ = songLog.GetClicks();
    tempoScales_ = songLog.GetTempoScales();
    transpositions_ = songLog.GetTranspositions();
    hasPageNums_ = !pageNums_.empty();
    hasMarkers_ = !markers_.empty();
    hasClicks_ = !clicks_.empty();
    hasTempoScales_ = !tempoScales_.empty();
    hasTranspositions_ = !transpositions_.empty();
    resolution_ = static_cast<unsigned short>(resolution);
    measureTickIndices_.clear();
    for (const TL::BarsBeats& beat : barsBeats_)
        if (beat.beat() == 1)
            measureTickIndices_.push_back(beat.abs_time());
    CreateDspTickIndices();
    CreateBeatTickIndices(songLog, timeline, resolution);
    clickActive_.now = false;
    tempoScaleActive_.now = false;
    transpositionActive_.now = false;
    for (Cursor* cursor :
         {&barBeat_, &tempo_, &meter_, &key_, &pageNum_, &marker_, &click_, &tempoScale_, &transposition_})
        cursor->current = 0;
    songTitle_ = songLog.GetSongNumber() + " " + songLog.GetSongName();
    Seek(0);
    lastReportedTransposition_ = GetTranspositionValue();
    sendMarkerAndSongTitle_ = true;
}

void HowToPlay::SetHighSpeed() {
    highSpeed_ = true;
}

bool HowToPlay::GetSendMarkerAndSongTitle() {
    return std::exchange(sendMarkerAndSongTitle_, false);
}

const CL::Click& HowToPlay::GetClick() const {
    return Existing(clicks_, click_.current, "no Click");
}

const CL::TempoScale& HowToPlay::GetTempoScale() const {
    return Existing(tempoScales_, tempoScale_.current, "no TempoScale");
}

const CL::Transpose& HowToPlay::GetTranspose() const {
    return Existing(transpositions_, transposition_.current, "no Transposition");
}

const CL::Marker& HowToPlay::GetMarker() const {
    return Existing(markers_, marker_.current, "no markers");
}

const TL::PageNum& HowToPlay::GetPageNumber() const {
    return Existing(pageNums_, pageNum_.current, "There are no PageNums");
}

unsigned int HowToPlay::GetMarkerTickIndex() const {
    return Existing(markers_, marker_.current, "there are no markers").abs_time();
}

unsigned int HowToPlay::GetPageNumberValue() const {
    return hasPageNums_ ? GetPageNumber().value() : 1;
}

double HowToPlay::GetTempoScaleValue() {
    const double user = userControls_.GetTempoScale();
    return hasTempoScales_ && tempoScaleActive_.now
               ? LimitTempoScaleToAllowedRange(user * GetTempoScale().float_value())
               : user;
}

double HowToPlay::GetTempoScaleValueAtTickIndex(unsigned int tickIndex) {
    const double user = userControls_.GetTempoScale();
    if (!hasTempoScales_)
        return user;
    const CL::TempoScale& event = ElementAt(tempoScales_, tickIndex);
    return Covers(event, tickIndex) ? LimitTempoScaleToAllowedRange(user * event.float_value()) : user;
}

int HowToPlay::GetTranspositionValue() const {
    return Transposed_(hasTranspositions_ && transpositionActive_.now ? GetTranspose().int_value() : 0);
}

int HowToPlay::GetTranspositionValueAtTickIndex(unsigned int tickIndex) const {
    if (!hasTranspositions_)
        return Transposed_(0);
    const CL::Transpose& event = ElementAt(transpositions_, tickIndex);
    return Transposed_(Covers(event, tickIndex) ? event.int_value() : 0);
}

std::pair<int, int> HowToPlay::GetTranspositionPair() {
    const int value = GetTranspositionValue();
    return {value, std::exchange(lastReportedTransposition_, value)};
}

double HowToPlay::GetClockTime() {
    return ClockTime_(GetTempo(), hasTempoScales_ && tempoScaleActive_.now ? GetTempoScale().float_value() : 1.0);
}

int HowToPlay::GetClocksPerClick() const {
    return ClocksPerClick_(GetMeter(), hasClicks_ ? &GetClick() : nullptr, tickIndex_);
}

int HowToPlay::GetClocksPerClickAtTickIndex(unsigned int tickIndex) const {
    return ClocksPerClick_(ElementAt(meters_, tickIndex), hasClicks_ ? &ElementAt(clicks_, tickIndex) : nullptr,
                           tickIndex);
}

int HowToPlay::GetNotated32PerClick() const {
    return hasClicks_ && Covers(GetClick(), tickIndex_) ? GetClick().int_value() : GetMeter().notated_32_per_click();
}

int HowToPlay::GetClockNumber() const {
    std::size_t bar = barBeat_.current;
    while (bar > 0 && barsBeats_[bar].beat() != 1)
        --bar;
    return ClockNumber_(tickIndex_, barsBeats_[bar].abs_time(), GetClocksPerClick());
}

int HowToPlay::GetClockNumberAtTickIndex(unsigned int tickIndex) const {
    std::size_t reference = IndexAt(barsBeats_, tickIndex);
    if (hasClicks_) {
        const unsigned int clickStart = ElementAt(clicks_, tickIndex).start();
        while (reference > 0 && barsBeats_[reference].beat() != 1 && barsBeats_[reference].abs_time() != clickStart)
            --reference;
    }
    return ClockNumber_(tickIndex, barsBeats_[reference].abs_time(), GetClocksPerClickAtTickIndex(tickIndex));
}

std::pair<bool, unsigned int> HowToPlay::GetNextClockTickIndex(unsigned int tickIndex) const {
    const unsigned int ticksPerClock = TicksPerClock_();
    if (ticksPerClock == 0 || tickIndex % ticksPerClock == 0)
        return {true, tickIndex};
    const double next = std::ceil(static_cast<double>(tickIndex) / ticksPerClock) * ticksPerClock;
    // The last clock of the range of ticks may lie beyond what 32 bits hold.
    return {false, static_cast<unsigned int>(static_cast<unsigned long long>(next))};
}

unsigned int HowToPlay::RoundDownToNearestClock(unsigned int tickIndex) const {
    const unsigned int ticksPerClock = TicksPerClock_();
    return ticksPerClock == 0 ? tickIndex : tickIndex - tickIndex % ticksPerClock;
}

double HowToPlay::GetTempoDouble() {
    const int clocksPerClick = GetMeter().clocks_per_click();
    return clocksPerClick == 0 ? 0 : GetTempo().bpm(clocksPerClick) * GetTempoScaleValue();
}

int HowToPlay::GetTempoInteger() {
    return static_cast<int>(std::lround(GetTempoDouble()));
}

std::string HowToPlay::GetBarString() const {
    return GetBarBeat().as_string();
}

std::string HowToPlay::GetMeterString() const {
    return GetMeter().as_string();
}

std::string HowToPlay::GetKeyString() const {
    return Keys::getTransposedName(GetKey().sharps(), GetKey().minor(), GetTranspositionValue());
}

std::string HowToPlay::GetMarkerString() const {
    return Existing(markers_, marker_.current, "there are no markers").value();
}

std::string HowToPlay::GetTempoString() {
    return Fixed(GetTempoDouble(), 2);
}

std::string HowToPlay::GetTempoScaleString() {
    return Fixed(GetTempoScaleValue() * 100, 0) + "%\n";
}

bool HowToPlay::UpdateBar() {
    return Report(barBeat_);
}
bool HowToPlay::UpdateKey() {
    return Report(key_);
}
bool HowToPlay::UpdateMeter() {
    return Report(meter_);
}
bool HowToPlay::UpdateTempo() {
    return Report(tempo_);
}

bool HowToPlay::UpdatePageNumber() {
    return IsReached(pageNums_, pageNum_, tickIndex_) && Report(pageNum_);
}

bool HowToPlay::UpdateMarker() {
    return IsReached(markers_, marker_, tickIndex_) && Report(marker_);
}

bool HowToPlay::UpdateClick() {
    return IsReached(clicks_, click_, tickIndex_) && Report(click_, clickActive_.now != clickActive_.before);
}

bool HowToPlay::UpdateTempoScale() {
    return IsReached(tempoScales_, tempoScale_, tickIndex_) &&
           Report(tempoScale_, tempoScaleActive_.now != tempoScaleActive_.before);
}

bool HowToPlay::UpdateTransposition() {
    return IsReached(transpositions_, transposition_, tickIndex_) &&
           Report(transposition_, transpositionActive_.now != transpositionActive_.before);
}

bool HowToPlay::UpdateClockTime() {
    // Both, so that neither stays unreported.
    const bool tempoChanged = UpdateTempo();
    const bool tempoScaleChanged = UpdateTempoScale();
    return tempoChanged || tempoScaleChanged;
}

bool HowToPlay::UpdateClocksPerClick() {
    const bool meterChanged = UpdateMeter();
    const bool clickChanged = UpdateClick();
    return meterChanged || clickChanged;
}

unsigned int HowToPlay::GetNextMeasureTickIndex(unsigned int tickIndex) const {
    const auto next = std::upper_bound(measureTickIndices_.begin(), measureTickIndices_.end(), tickIndex);
    if (next == measureTickIndices_.end())
        throw SongEnd("");
    return *next;
}

unsigned int HowToPlay::GetPreviousMeasureTickIndex(unsigned int tickIndex) const {
    const auto next = std::lower_bound(measureTickIndices_.begin(), measureTickIndices_.end(), tickIndex);
    if (next == measureTickIndices_.begin())
        throw SongBegin("");
    return *(next - 1);
}

unsigned int HowToPlay::GetClicksToSongEnd() const {
    if (beatTickIndices_.empty())
        return 0;
    const auto next = beatTickIndices_.upper_bound(tickIndex_);
    return next == beatTickIndices_.begin() ? next->second : std::prev(next)->second;
}

unsigned int HowToPlay::GetTickIndexOfNextDspEvent() {
    const auto next = std::find_if(dspTickIndices_.begin(), dspTickIndices_.end(),
                                   [this](unsigned int tickIndex) { return tickIndex > tickIndex_; });
    return next == dspTickIndices_.end() ? GetLastTickIndex() : *next;
}

void HowToPlay::WriteDspEvents() const {
    zell::CoutBuffer out;
    out << "HowToPlay dsp events:" << zell::endl << "Transpositions:" << zell::endl;
    transpositions_.WriteString(out.Stream(), 1);
    out << "Tempo Scales:" << zell::endl;
    tempoScales_.WriteString(out.Stream(), 1);
}

double HowToPlay::LimitTempoScaleToAllowedRange(double tempoScale) {
    if (!(tempoScale >= 0.5))
        return 0.5;
    return std::min(tempoScale, 2.0);
}

void HowToPlay::CreateBeatTickIndices(const CL::SongLog& songLog, const TL::Timeline& timeline,
                                      unsigned int resolution) {
    const std::list<unsigned int> beats = CL::CreateBeatTicks(
        timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(), timeline.GetLastTickIndex(), resolution);
    beatTickIndices_.clear();
    auto clicksToEnd = static_cast<unsigned int>(beats.size());
    for (const unsigned int beat : beats)
        beatTickIndices_[beat] = --clicksToEnd;
}

void HowToPlay::CreateDspTickIndices() {
    dspTickIndices_.clear();
    const auto append = [this](const auto& sequence) {
        for (const CL::PairedEvent& event : sequence) {
            dspTickIndices_.push_back(event.start());
            dspTickIndices_.push_back(event.end());
        }
    };
    append(transpositions_);
    append(tempoScales_);
    dspTickIndices_.sort();
    dspTickIndices_.unique();
}

std::optional<unsigned int> HowToPlay::FindFirstBeatFrom_(unsigned int tickIndex) const {
    const auto beat =
        std::lower_bound(barsBeats_.begin(), barsBeats_.end(), tickIndex,
                         [](const TL::BarsBeats& element, unsigned int tick) { return element.abs_time() < tick; });
    if (beat == barsBeats_.end())
        return std::nullopt;
    return beat->abs_time();
}

double HowToPlay::GetClockTimeAtTickIndex_(unsigned int tickIndex) {
    double factor = 1.0;
    if (hasTempoScales_) {
        const CL::TempoScale& event = ElementAt(tempoScales_, tickIndex);
        if (Covers(event, tickIndex))
            factor = event.float_value();
    }
    return ClockTime_(ElementAt(tempos_, tickIndex), factor);
}

bool HowToPlay::IsActiveAt_(const CL::PairedEvent& event, unsigned int tickIndex) const {
    // The song's last tick belongs to the event that ends with the song.
    if (tickIndex == lastTickIndex_)
        return event.start() <= tickIndex && tickIndex <= event.end();
    return Covers(event, tickIndex);
}

int HowToPlay::ClocksPerClick_(const TL::Meter& meter, const CL::Click* click, unsigned int tickIndex) const {
    // A meter that notates no thirty-seconds gives a click nothing to be counted in.
    return click && Covers(*click, tickIndex) && meter.notated_32_per_click() != 0
               ? click->ClocksPerClick(meter.notated_32_per_click())
               : meter.clocks_per_click();
}

int HowToPlay::ClockNumber_(unsigned int tickIndex, unsigned int reference, int clocksPerClick) const {
    const unsigned int ticksPerClock = TicksPerClock_();
    if (ticksPerClock == 0 || clocksPerClick <= 0 || tickIndex < reference)
        return 0;
    return static_cast<int>((tickIndex - reference) / ticksPerClock % static_cast<unsigned int>(clocksPerClick));
}

double HowToPlay::ClockTime_(const TL::Tempo& tempo, double factor) {
    return tempo.seconds_per_clock() / LimitTempoScaleToAllowedRange(userControls_.GetTempoScale() * factor);
}

int HowToPlay::Transposed_(int semitones) const {
    // The user's value has no limit of its own, and a sum beyond int is no sound anyway.
    const long long sum = static_cast<long long>(userControls_.GetTransposition()) + semitones;
    return static_cast<int>(
        std::clamp<long long>(sum, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

void HowToPlay::MoveForward_(unsigned int tickIndex) {
    const auto move = [tickIndex](const auto& sequence, Cursor& cursor) {
        cursor.current = IndexAt(sequence, tickIndex, cursor.current);
    };
    move(tempos_, tempo_);
    move(barsBeats_, barBeat_);
    move(meters_, meter_);
    move(keys_, key_);
    move(pageNums_, pageNum_);
    move(markers_, marker_);
    move(transpositions_, transposition_);
    move(tempoScales_, tempoScale_);
    move(clicks_, click_);
}
