#include "player/commands_file.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "midi/midi_command_tables.h"
#include "midi/midi_message_dispatcher.h"

namespace player {

namespace {

// A text with its length, the mode of the source, four bytes of its index, two of the
// number of records; then these.
constexpr std::string_view kHeader = "\x14MidiCommandsSettings";
constexpr std::size_t kSourceBytes = 5;
constexpr std::size_t kRecords = kHeader.size() + kSourceBytes + 2;
constexpr std::size_t kRecordBytes = 4;
constexpr char kNoSource = 0;
constexpr char kConnectedSource = 1;
constexpr char kUniqueSource = 2;

unsigned char ByteAt(const std::string& text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

}  // namespace

std::string CommandsFileText(const LearnedCommands& learned, std::optional<unsigned char> source) {
    std::string text(kHeader);
    text.append(kSourceBytes, kNoSource);
    text += static_cast<char>(learned.size() & 0xFF);
    text += static_cast<char>(learned.size() >> 8);
    for (const auto& [id, command] : learned)
        for (const unsigned char byte : {command.commandId, command.status, command.channel, command.data1})
            text += static_cast<char>(byte);
    return WithSource(std::move(text), source);
}

bool IsCommandsFileText(const std::string& text) {
    if (!text.starts_with(kHeader) || text.size() < kRecords)
        return false;
    const unsigned char mode = ByteAt(text, kHeader.size());
    if (mode > kUniqueSource)
        return false;
    // A number of four bytes follows: none, an index below 256, or any.
    for (std::size_t at = kHeader.size() + 1 + (mode == kConnectedSource ? 1 : 0); at < kRecords - 2; ++at)
        if (mode != kUniqueSource && ByteAt(text, at) != 0)
            return false;
    const std::size_t count = ByteAt(text, kRecords - 2) + ByteAt(text, kRecords - 1) * 256u;
    if (text.size() != kRecords + kRecordBytes * count)
        return false;
    for (std::size_t at = kRecords; at < text.size(); at += kRecordBytes)
        if (!midi_commands::commandIds.contains(ByteAt(text, at)) || !allowedStatuses.contains(ByteAt(text, at + 1)) ||
            ByteAt(text, at + 2) >= 16 || ByteAt(text, at + 3) >= 128 ||
            (at > kRecords && ByteAt(text, at) <= ByteAt(text, at - kRecordBytes)))
            return false;
    return true;
}

LearnedCommands LearnedIn(const std::string& text) {
    LearnedCommands learned;
    for (std::size_t at = kRecords; at < text.size(); at += kRecordBytes)
        learned[ByteAt(text, at)] = {ByteAt(text, at), ByteAt(text, at + 1), ByteAt(text, at + 2),
                                     ByteAt(text, at + 3)};
    return learned;
}

std::string WithSource(std::string text, std::optional<unsigned char> source) {
    text.replace(kHeader.size(), kSourceBytes, kSourceBytes, kNoSource);
    if (source) {
        text[kHeader.size()] = kConnectedSource;
        text[kHeader.size() + 1] = static_cast<char>(*source);
    }
    return text;
}

std::string WithoutSource(std::string text) {
    return text.size() < kHeader.size() ? text : text.erase(kHeader.size(), kSourceBytes);
}

}  // namespace player
