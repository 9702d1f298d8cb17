#include "player/time_code_command.h"

#include <cstdio>
#include <exception>
#include <string>

#include "midi/frame_rate.h"
#include "player/time_code_reader.h"
#include "player/time_code_recording.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr int kDone = 0;
constexpr int kNothingFound = 1;
constexpr int kRefused = 2;
// "01:02:03", of a label.
constexpr std::size_t kSecondOfLabel = 8;

class Printer {
public:
    void Print(const TimeCodeReader::Event& event) {
        using Kind = TimeCodeReader::Event::Kind;
        const std::string label = event.time.GetAsString();
        const bool isNewSecond = label.compare(0, kSecondOfLabel, shown_, 0, kSecondOfLabel) != 0;
        if (event.kind == Kind::kRuns && !isNewSecond)
            return;
        shown_ = label;
        std::printf("%12.6f  %s  %s%s\n", event.seconds, label.c_str(),
                    ConvertFrameRateToString(event.time.GetFrameRate()).c_str(), NoteOf(event).c_str());
    }

private:
    static std::string NoteOf(const TimeCodeReader::Event& event) {
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

    std::string shown_;
};

void PrintSummary(const TimeCodeReader& reader) {
    std::printf(
        "%llu pieces, %llu full frames, %llu missing, %llu jumps\n",
        static_cast<unsigned long long>(reader.GetPieces()), static_cast<unsigned long long>(reader.GetFullFrames()),
        static_cast<unsigned long long>(reader.GetMissing()), static_cast<unsigned long long>(reader.GetJumps()));
    if (const auto regularity = reader.GetRegularity())
        std::printf(
            "pieces %.2f ms apart, %.2f ms by their rate; off it by %.2f ms at the 99th percentile, %.2f ms at "
            "worst\n",
            regularity->median * 1e3, regularity->nominal * 1e3, regularity->ninetyNinth * 1e3,
            regularity->worst * 1e3);
}

}  // namespace

int FollowTimeCode(const std::string& source) {
    try {
        Printer printer;
        TimeCodeReader reader([&printer](const TimeCodeReader::Event& event) { printer.Print(event); });
        for (const TimeCodeMessage& message : ReadTimeCodeRecording(source))
            reader.Read(message.bytes.data(), message.bytes.size(), message.seconds);
        PrintSummary(reader);
        return reader.GetPieces() + reader.GetFullFrames() > 0 ? kDone : kNothingFound;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vemo_player: %s\n", error.what());
        return kRefused;
    }
}

}  // namespace player
