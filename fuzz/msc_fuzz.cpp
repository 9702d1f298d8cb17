// Any bytes at all, read as a MIDI Show Control message. What is refused is refused
// by std::runtime_error; what is accepted is made of the bytes that came.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "midi/msc_message.h"

namespace {

void Require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

/// Field by field with the zeros that separated them, as it would be sent again.
std::vector<std::uint8_t> Sent(const MscMessage& message, std::size_t fields) {
    std::vector<std::uint8_t> bytes{message.DeviceId(), 0x02, static_cast<std::uint8_t>(message.Format()),
                                    static_cast<std::uint8_t>(message.Command())};
    const MscCueNumber cue = message.EventId();
    const std::string* const values[] = {&cue.number, &cue.list, &cue.path};
    for (std::size_t field = 0; field < fields; ++field) {
        if (field > 0)
            bytes.push_back(0x00);
        bytes.insert(bytes.end(), values[field]->begin(), values[field]->end());
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // On the heap and of that size, so that a byte read too far is seen.
    const std::vector<std::uint8_t> given(data, data + size);
    try {
        const MscMessage message(given.data(), given.size());
        bool isMadeOfInput = false;
        for (std::size_t fields = 1; fields <= 3; ++fields) {
            const std::vector<std::uint8_t> sent = Sent(message, fields);
            isMadeOfInput =
                isMadeOfInput || (sent.size() < size && std::equal(sent.begin(), sent.end(), given.begin()) &&
                                  (given[sent.size()] == 0xF7 || (fields == 3 && given[sent.size()] == 0)));
        }
        Require(isMadeOfInput, "the fields as they came, and an end after them");
    } catch (const std::runtime_error&) {
        return 0;
    }
    return 0;
}
