#pragma once

#include <cstdint>
#include <ios>
#include <ostream>
#include <string>

#include "vemo_core/codes.h"
#include "vemo_core/sequence_template.h"

namespace CL {

/// A sequence of paired events of one kind.
template <class T>
class ChangeLogSequence : public cmn::SequenceTemplate<T> {
public:
    using cmn::SequenceTemplate<T>::SequenceTemplate;

    std::uint16_t event_code() const { return T::kCode; }

    /// One line for the sequence, indented by so many tabs, and one for each
    /// event, indented by one more; each line ends with a line feed.
    void WriteString(std::ostream& out, int indent) const {
        const std::string tabs(static_cast<std::size_t>(indent), '\t');
        out << tabs << codes::editNameByVemoEventCode(event_code()) << "Sequence("
            << "code=0x" << std::hex << event_code() << std::dec << ", "
            << "event count = " << this->size() << ")\n";
        for (const T& event : *this) {
            out << tabs << '\t';
            event.WriteString(out);
            out << '\n';
        }
    }
};

}  // namespace CL
