#pragma once

#include <string>
#include <vector>

#include "player/operator_keys.h"
#include "player/screen_model.h"

namespace player {

/// Draws the operator's screen as rows of text: what the terminal's library then only
/// puts where it belongs. No sign depends on a colour alone.
///
/// Threads: any; it holds nothing.
/// Units:   columns and rows of a terminal.
class ScreenText {
public:
    /// What a span may be at once.
    enum Style : unsigned { kPlain = 0, kBold = 1, kReverse = 2, kGood = 4, kWarning = 8, kBad = 16 };
    struct Span {
        std::string text;
        unsigned style = kPlain;
    };
    using Row = std::vector<Span>;

    struct Frame {
        int columns = 80;
        int rows = 24;
        bool hasUtf8 = true;  // else every character is of ASCII
        std::string wallClock;
        OperatorKeys::Time now{};
    };

    /// Exactly as many rows, each as wide, as the frame has.
    static std::vector<Row> Draw(const ScreenModel& model, const OperatorKeys& keys, const Frame& frame);
    /// The texts of a row, one after another.
    static std::string TextOf(const Row& row);
};

}  // namespace player
