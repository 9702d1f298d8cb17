#include "player/time_code_recording.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "json_text.h"
#include "player/display_text.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::string_view kSeconds = "seconds";
constexpr std::string_view kBytes = "bytes";

std::string LineOf(double seconds, const std::uint8_t* bytes, std::size_t count) {
    std::string line = zell::format("{\"%s\":%.6f,\"%s\":\"", kSeconds, seconds, kBytes);
    for (std::size_t i = 0; i < count; ++i)
        line += zell::format(i == 0 ? "%02X" : " %02X", bytes[i]);
    return line + "\"}\n";
}

int DigitOf(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    throw std::invalid_argument("\"bytes\" are no pairs of digits from 0 to F with blanks between them");
}

std::vector<std::uint8_t> BytesOf(const std::string& text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        const bool isWhole = at + 1 < text.size() && (at + 2 == text.size() || text[at + 2] == ' ');
        const int high = DigitOf(isWhole ? text[at] : ' ');
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | DigitOf(text[at + 1])));
    }
    if (bytes.empty())
        throw std::invalid_argument("\"bytes\" are empty");
    return bytes;
}

TimeCodeMessage MessageOf(const std::string& line) {
    const JsonText text = ReadJson(line);
    if (!text.faults.empty())
        throw std::invalid_argument(text.faults.front());
    const Json& root = text.root;
    if (!root.is_object() || root.size() != 2 || !root.contains(kSeconds) || !root[kSeconds].is_number() ||
        !root.contains(kBytes) || !root[kBytes].is_string())
        throw std::invalid_argument("is no object of \"seconds\", a number, and \"bytes\", a text");
    return {root[kSeconds].get<double>(), BytesOf(root[kBytes].get<std::string>())};
}

}  // namespace

std::vector<TimeCodeMessage> ReadTimeCodeRecording(const std::filesystem::path& path) {
    const std::string name = DisplayText(path.string());
    std::ifstream input(path);
    if (!input)
        throw std::invalid_argument(name + ": cannot be read");
    std::vector<TimeCodeMessage> messages;
    int number = 0;
    for (std::string line; std::getline(input, line);) {
        ++number;
        try {
            messages.push_back(MessageOf(line));
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(zell::format("%s: line %d: %s", name, number, error.what()));
        }
    }
    if (input.bad())
        throw std::invalid_argument(zell::format("%s: cannot be read behind line %d", name, number));
    return messages;
}

TimeCodeRecording::TimeCodeRecording(const std::filesystem::path& target) : file_(target) {}
TimeCodeRecording::~TimeCodeRecording() = default;

void TimeCodeRecording::Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
    Message message{time, {}, static_cast<std::uint8_t>(std::min(count, kMostBytes))};
    std::copy_n(bytes, message.count, message.bytes.begin());
    const std::lock_guard lock(mutex_);
    messages_.push_back(message);
}

void TimeCodeRecording::Commit(std::optional<std::chrono::nanoseconds> firstClock) {
    const std::lock_guard lock(mutex_);
    const auto start = firstClock ? *firstClock : messages_.empty() ? std::chrono::nanoseconds(0) : messages_[0].time;
    std::string text;
    for (const Message& message : messages_)
        text +=
            LineOf(std::chrono::duration<double>(message.time - start).count(), message.bytes.data(), message.count);
    file_.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    file_.Commit();
}

}  // namespace player
