#include "player/time_code_printer.h"

#include <cstdio>

#include "midi/frame_rate.h"
#include "zell/format.h"

namespace player {

namespace {

// "01:02:03", of a label.
constexpr std::size_t kSecondOfLabel = 8;

std::string NoteOf(const TimeCodeReader::Event& event) {
    using Kind = TimeCodeReader::Event::Kind;
    switch (event.kind) {
        case Kind::kLocated: return "  located";
        case Kind::kLocked: return "  locked";
        case Kind::kJumped: return "  jumped";
        case Kind::kMissing: return zell::format("  missing: %d pieces", event.missing);
        case Kind::kRuns: break;
    }
    return {};
}

}  // namespace

TimeCodePrinter::TimeCodePrinter() : reader_([this](const TimeCodeReader::Event& event) { Print(event); }) {}

void TimeCodePrinter::Take(const std::uint8_t* bytes, std::size_t count, double seconds) {
    reader_.Read(bytes, count, seconds);
}

void TimeCodePrinter::Print(const TimeCodeReader::Event& event) {
    const std::string label = event.time.GetAsString();
    const bool isNewSecond = label.compare(0, kSecondOfLabel, shown_, 0, kSecondOfLabel) != 0;
    if (event.kind == TimeCodeReader::Event::Kind::kRuns && !isNewSecond)
        return;
    shown_ = label;
    std::printf("%12.6f  %s  %s%s\n", event.seconds, label.c_str(),
                ConvertFrameRateToString(event.time.GetFrameRate()).c_str(), NoteOf(event).c_str());
}

bool TimeCodePrinter::PrintSummary() const {
    std::printf(
        "%llu pieces, %llu full frames, %llu missing, %llu jumps\n",
        static_cast<unsigned long long>(reader_.GetPieces()), static_cast<unsigned long long>(reader_.GetFullFrames()),
        static_cast<unsigned long long>(reader_.GetMissing()), static_cast<unsigned long long>(reader_.GetJumps()));
    if (const auto regularity = reader_.GetRegularity())
        std::printf(
            "pieces %.2f ms apart, %.2f ms by their rate; off it by %.2f ms at the 99th percentile, %.2f ms at "
            "worst\n",
            regularity->median * 1e3, regularity->nominal * 1e3, regularity->ninetyNinth * 1e3,
            regularity->worst * 1e3);
    return reader_.GetPieces() + reader_.GetFullFrames() > 0;
}

}  // namespace player
