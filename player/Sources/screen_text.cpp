#include "player/screen_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "zell/format.h"

namespace player {

namespace {

constexpr int kUsualColumns = 80;
constexpr int kUsualRows = 24;
constexpr int kDigitRows = 5;
constexpr int kLampColumns = 9;
constexpr int kMostTrackRows = 16;
constexpr int kMostTrackColumns = 70;
constexpr int kWideColumns = 120;

/// Columns that a character takes: none where it joins the one before.
int WidthOf(char32_t character) {
    const auto within = [character](char32_t first, char32_t last) { return character >= first && character <= last; };
    if (within(0x300, 0x36F) || within(0x200B, 0x200F) || within(0xFE00, 0xFE0F) || within(0x20D0, 0x20FF))
        return 0;
    const bool isWide = within(0x1100, 0x115F) || within(0x2E80, 0x303E) || within(0x3041, 0xA4CF) ||
                        within(0xAC00, 0xD7A3) || within(0xF900, 0xFAFF) || within(0xFE30, 0xFE6F) ||
                        within(0xFF00, 0xFF60) || within(0xFFE0, 0xFFE6) || within(0x1F300, 0x1F64F) ||
                        within(0x1F900, 0x1F9FF) || within(0x20000, 0x3FFFD);
    return isWide ? 2 : 1;
}

/// One character of valid UTF-8.
struct Character {
    std::string bytes;
    int width = 1;
};

std::vector<Character> CharactersOf(std::string_view text) {
    std::vector<Character> characters;
    for (std::size_t at = 0; at < text.size();) {
        const auto first = static_cast<unsigned char>(text[at]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        char32_t code = length == 1 ? first : first & (0x7Fu >> length);
        for (std::size_t i = 1; i < length && at + i < text.size(); ++i)
            code = code << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3Fu);
        characters.push_back({std::string(text.substr(at, length)), WidthOf(code)});
        at += length;
    }
    return characters;
}

int ColumnsOf(std::string_view text) {
    int columns = 0;
    for (const Character& character : CharactersOf(text))
        columns += character.width;
    return columns;
}

enum class Align { kLeft, kRight };

/// A terminal's cells.
class Canvas {
public:
    Canvas(int columns, int rows, bool hasUtf8)
        : columns_(columns),
          rows_(rows),
          hasUtf8_(hasUtf8),
          cells_(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

    int GetColumns() const { return columns_; }
    int GetRows() const { return rows_; }
    /// What stands for a character in a terminal that knows ASCII alone.
    const char* Either(const char* utf8, const char* ascii) const { return hasUtf8_ ? utf8 : ascii; }

    /// Within width columns; what does not fit is cut off, and that is marked.
    void Put(int row, int column, int width, std::string_view text, unsigned style = ScreenText::kPlain,
             Align align = Align::kLeft) {
        width = std::min(width, columns_ - column);
        if (row < 0 || row >= rows_ || column < 0 || width <= 0)
            return;
        const int needed = ColumnsOf(text);
        const bool isCut = needed > width;
        int at = column + (align == Align::kRight && !isCut ? width - needed : 0);
        const int end = column + width - (isCut ? 1 : 0);
        for (Character& character : CharactersOf(text)) {
            if (!hasUtf8_ && (character.bytes.size() > 1 || character.width != 1)) {
                if (character.width == 0)
                    continue;
                character = {std::string(static_cast<std::size_t>(character.width), '?'), character.width};
            }
            if (at + character.width > end)
                break;
            if (character.width == 0) {
                if (at > column)
                    CellAt(row, at - 1).text += character.bytes;
                continue;
            }
            CellAt(row, at) = {character.bytes, style};
            for (int next = 1; next < character.width; ++next)
                CellAt(row, at + next) = {"", style};
            at += character.width;
        }
        if (isCut)
            CellAt(row, end) = {Either("…", "~"), style};
    }

    void Fill(int row, int column, int width, const char* glyph, unsigned style = ScreenText::kPlain) {
        for (int at = column; at < std::min(column + width, columns_); ++at)
            if (row >= 0 && row < rows_ && at >= 0)
                CellAt(row, at) = {glyph, style};
    }

    std::vector<ScreenText::Row> Take() {
        std::vector<ScreenText::Row> rows;
        for (int row = 0; row < rows_; ++row) {
            ScreenText::Row spans;
            for (int column = 0; column < columns_; ++column) {
                const Cell& cell = CellAt(row, column);
                if (spans.empty() || spans.back().style != cell.style)
                    spans.push_back({"", cell.style});
                spans.back().text += cell.text;
            }
            rows.push_back(std::move(spans));
        }
        return rows;
    }

private:
    struct Cell {
        std::string text = " ";
        unsigned style = ScreenText::kPlain;
    };
    Cell& CellAt(int row, int column) {
        return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
                      static_cast<std::size_t>(column)];
    }

    const int columns_;
    const int rows_;
    const bool hasUtf8_;
    std::vector<Cell> cells_;
};

std::string TimeText(double seconds) {
    const auto whole = static_cast<long long>(std::max(0.0, seconds));
    if (whole >= 3600)
        return zell::format("%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
    return zell::format("%d:%02d", whole / 60, whole % 60);
}

std::string UpperCase(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

std::string Signed(int number) {
    return (number > 0 ? "+" : "") + std::to_string(number);
}

unsigned StyleOfState(const std::string& state) {
    if (state == "playing")
        return ScreenText::kGood;
    return state == "fault" ? ScreenText::kBad : state == "stopped" || state == "empty" ? 0u : ScreenText::kWarning;
}

/// A digit's picture of three by five, one bit a point, the top row first.
std::uint16_t PictureOf(char c) {
    static constexpr std::array<std::uint16_t, 10> digits = {
        0b111101101101111, 0b010110010010111, 0b111001111100111, 0b111001111001111, 0b101101111001001,
        0b111100111001111, 0b111100111101111, 0b111001001001001, 0b111101111101111, 0b111101111001111};
    if (c >= '0' && c <= '9')
        return digits[static_cast<std::size_t>(c - '0')];
    return c == '-' ? 0b000000111000000 : 0;
}

class Drawing {
public:
    Drawing(const ScreenModel& model, const OperatorKeys& keys, const ScreenText::Frame& frame)
        : model_(model), keys_(keys), frame_(frame), canvas_(frame.columns, frame.rows, frame.hasUtf8) {}

    std::vector<ScreenText::Row> Draw() {
        if (frame_.columns < kUsualColumns || frame_.rows < kUsualRows)
            DrawSmall();
        else
            DrawWhole();
        return canvas_.Take();
    }

private:
    // ---- the whole screen

    void DrawWhole() {
        // What there is more than the usual goes, in this order, to what is to be seen
        // from afar, then to the tracks, then to the messages.
        int spare = frame_.rows - kUsualRows;
        const auto take = [&spare](int wanted, bool isWanted = true) {
            const bool isTaken = isWanted && spare >= wanted;
            spare -= isTaken ? wanted : 0;
            return isTaken;
        };
        const int band = take(4) ? 3 : 1;
        const int scale = take(kDigitRows, frame_.columns >= kWideColumns) ? 2 : 1;
        const bool isLong = take(kMostTrackRows / 2, frame_.columns >= kWideColumns);
        const int trackRows = isLong ? kMostTrackRows : kMostTrackRows / 2;
        // Beside few tracks there is room for the set list.
        const bool oneColumn = isLong || static_cast<int>(model_.tracks.size()) <= trackRows;
        const int gap = take(4) ? 1 : 0;
        const int messageRows = 2 + spare;

        int row = 0;
        DrawHeader(row++);
        DrawSongBand(row, band);
        row += band + gap;
        const int top = row;
        DrawBeat(row, scale);
        row += kDigitRows * scale + gap;
        DrawProgress(row);
        row += 2 + gap;
        DrawNextBand(row, band);
        row += band + gap;
        DrawTracks(row, trackRows, oneColumn);
        row += 1 + trackRows;
        DrawMessages(row, messageRows);
        row += messageRows;
        if (keys_.ShowsHelp())
            DrawHelp(top, row - top);
        else if (keys_.ShowsPedals())
            DrawPedals(top, row - top);
        DrawPrompt(row++);
        DrawKeys(row);
    }

    void DrawHeader(int row) {
        const int width = frame_.columns;
        std::string left = " " + UpperCase(model_.isConnected ? model_.state : "no player") + " ";
        canvas_.Put(row, 0, width, left, ScreenText::kBold | ScreenText::kReverse | StyleOfState(model_.state));
        int at = ColumnsOf(left) + 1;
        const std::string mode = keys_.IsShowMode() ? "SHOW MODE" : "REHEARSAL";
        canvas_.Put(row, at, width, mode, ScreenText::kBold);
        at += ColumnsOf(mode) + 2;
        if (model_.inputState == "missing")
            at += DrawLamp(row, at, "NO PEDALS", ScreenText::kBad | ScreenText::kBold);
        if (model_.showControlState == "on")
            at += DrawLamp(row, at, canvas_.Either("● SC", "* SC"), ScreenText::kGood);
        else if (model_.showControlState != "none")
            at += DrawLamp(row, at, model_.showControlState == "off" ? "SC OFF" : "SC MISSING",
                           ScreenText::kWarning | ScreenText::kBold);

        const bool isLost = model_.timeCodeState == "lost";
        std::string timeCode = "TC off";
        if (isLost)
            timeCode = std::string(canvas_.Either("✗ ", "! ")) + "TC LOST " + model_.timeCode;
        else if (model_.timeCodeState == "on")
            timeCode = std::string(canvas_.Either("● ", "* ")) + "TC " + model_.timeCode;
        const int lampColumns = ColumnsOf(timeCode) + 2;
        const int clockColumns = ColumnsOf(frame_.wallClock) + 2;
        const int room = width - at - lampColumns - clockColumns;

        const bool isWorking = model_.deviceState == "ok" || model_.deviceState.empty();
        std::string device = isWorking
                                 ? canvas_.Either("● ", "* ") + model_.deviceName
                                 : canvas_.Either("✗ ", "! ") + model_.deviceName + " " + UpperCase(model_.deviceState);
        if (model_.songsLoaded < model_.songsToLoad) {
            // Soon over: the first to give way.
            const std::string loading = zell::format("loading %d/%d  ", model_.songsLoaded, model_.songsToLoad);
            if (ColumnsOf(loading) + ColumnsOf(device) <= room)
                device = loading + device;
        }
        const int deviceColumns = std::min({ColumnsOf(device), width / 2 - clockColumns, std::max(room, 0)});
        canvas_.Put(row, width - clockColumns - deviceColumns, deviceColumns, device,
                    isWorking ? ScreenText::kGood : ScreenText::kBad | ScreenText::kBold);
        canvas_.Put(row, width - clockColumns, clockColumns - 1, frame_.wallClock, ScreenText::kBold, Align::kRight);
        const int lampAt = width - clockColumns - deviceColumns - lampColumns;
        canvas_.Put(row, lampAt, lampColumns - 2, timeCode, isLost ? ScreenText::kBad | ScreenText::kBold : 0u);
        canvas_.Put(row, at, lampAt - at - 1, model_.showTitle);
    }

    int DrawLamp(int row, int at, const std::string& text, unsigned style) {
        canvas_.Put(row, at, ColumnsOf(text), text, style);
        return ColumnsOf(text) + 2;
    }

    void DrawBand(int row, int rows, const std::string& left, const std::string& right, unsigned style) {
        for (int i = 0; i < rows; ++i)
            canvas_.Fill(row + i, 0, frame_.columns, " ", style);
        const int middle = row + rows / 2;
        const int rightColumns = ColumnsOf(right);
        canvas_.Put(middle, 1, frame_.columns - rightColumns - 4, left, style);
        canvas_.Put(middle, frame_.columns - rightColumns - 1, rightColumns, right, style);
    }

    void DrawSongBand(int row, int rows) {
        std::string left = "no song";
        if (model_.song > 0)
            left = std::to_string(model_.number) + "  " + model_.title;
        std::string right;
        if (model_.IsPlaying() && model_.isCountIn)
            right = "COUNT-IN";
        else if (model_.state == "waiting")
            right = "STANDS READY: PRESS SPACE";
        else if (model_.state == "fault")
            right = "FAULT: PRESS N OR P, OR :select song";
        else if (model_.state == "paused")
            right = "PAUSED: PRESS SPACE";
        else if (model_.place > 0)
            right = zell::format("%d of %d", model_.place, model_.setList.size());
        DrawBand(row, rows, left, right, ScreenText::kBold | ScreenText::kReverse);
    }

    void DrawNextBand(int row, int rows) {
        const ScreenModel::Entry* const next = model_.GetNext();
        const ScreenModel::Entry* const current = model_.GetCurrent();
        std::string left = "NEXT  nothing: this is the last song";
        std::string right;
        if (next) {
            left = "NEXT  " + std::to_string(next->number) + "  " + next->title;
            const std::string then = current ? current->then : "stop";
            right = then == "go"     ? "GOES ON AT ONCE"
                    : then == "wait" ? "WAITS FOR SPACE"
                                     : "STOPS: PRESS N, THEN SPACE";
        } else if (model_.setList.empty()) {
            left = "NEXT  nothing";
        }
        DrawBand(row, rows, left, right, ScreenText::kBold | ScreenText::kReverse);
    }

    // ---- bar and beat, and what goes with them

    void DrawBeat(int row, int scale) {
        const bool isLit = model_.IsPlaying() && model_.clock * 4 < model_.clocks;
        const bool isFirst = model_.beat == 1;
        const int lampColumns = 6 * scale;
        for (int i = 0; i < kDigitRows * scale; ++i) {
            const bool isEdge = i < scale || i >= (kDigitRows - 1) * scale;
            // The first beat of a bar fills the whole lamp.
            if (isLit && (isFirst || !isEdge))
                canvas_.Fill(row + i, 1, lampColumns, canvas_.Either("█", "#"),
                             isFirst ? ScreenText::kWarning : ScreenText::kGood);
            else if (i == scale - 1 || i == (kDigitRows - 1) * scale)
                canvas_.Fill(row + i, 1, lampColumns, canvas_.Either("─", "-"));
        }

        int at = kLampColumns * scale;
        const std::string place = model_.song == 0 ? "" : zell::format("%d:%d", model_.bar, model_.beat);
        for (const char c : place) {
            if (c == ':') {
                for (const int dot : {1, 3})
                    for (int i = 0; i < scale; ++i)
                        canvas_.Fill(row + dot * scale + i, at, 2 * scale, canvas_.Either("█", "#"));
                at += 3 * scale + 1;
                continue;
            }
            const std::uint16_t picture = PictureOf(c);
            for (int point = 0; point < 3 * kDigitRows; ++point)
                if ((picture >> (14 - point) & 1) != 0)
                    for (int i = 0; i < scale; ++i)
                        canvas_.Fill(row + point / 3 * scale + i, at + point % 3 * 2 * scale, 2 * scale,
                                     canvas_.Either("█", "#"));
            at += 7 * scale + (scale > 1 ? 1 : 0);
        }
        const int left = frame_.columns * 9 / 16;
        DrawPlace(row + (scale > 1 ? kDigitRows * scale / 4 : 0), std::max(left, at + 1));
    }

    void DrawPlace(int row, int at) {
        const int width = frame_.columns - at - 1;
        const auto put = [&](int line, const char* name, const std::string& text, unsigned style = 0) {
            canvas_.Put(row + line, at, 7, name);
            canvas_.Put(row + line, at + 7, width - 7, text, ScreenText::kBold | style);
        };
        std::string tempo = zell::format("%.1f", model_.tempo);
        tempo += zell::format("   scale %.0f%%", model_.tempoScale * 100);
        if (model_.holds)
            tempo += " HELD";
        put(0, "Tempo", model_.song == 0 ? "" : tempo, model_.tempoScale != 1 ? ScreenText::kWarning : 0u);
        std::string meter = model_.meter;
        if (model_.hasPages)
            meter += zell::format("   page %d", model_.page);
        put(1, "Meter", meter);
        std::string key = model_.key;
        if (model_.soundingTransposition != 0)
            key += "  (" + Signed(model_.soundingTransposition) + ")";
        put(2, "Key", key, model_.soundingTransposition != 0 ? ScreenText::kWarning : 0u);
        put(3, "Marker", model_.marker);
        std::string patch = model_.patch.empty() ? std::string("-") : model_.patch;
        if (model_.click != "none")
            patch += "   click " + model_.click;
        put(4, "Patch", patch);
    }

    void DrawBar(int row, const char* name, double seconds, double length, const std::string& after) {
        canvas_.Put(row, 1, 5, name);
        canvas_.Put(row, 6, 7, TimeText(seconds), ScreenText::kBold, Align::kRight);
        // The two that are shown add up.
        const std::string left = "-" + TimeText(std::floor(length) - std::floor(seconds));
        const int afterColumns = 14;
        const int end = frame_.columns - afterColumns - 10;
        canvas_.Put(row, end + 2, 8, left, ScreenText::kBold, Align::kLeft);
        canvas_.Put(row, frame_.columns - afterColumns - 1, afterColumns, after, 0, Align::kRight);
        const int width = end - 15;
        const double share = length > 0 ? std::clamp(seconds / length, 0.0, 1.0) : 0;
        const int filled = static_cast<int>(std::lround(share * width));
        canvas_.Put(row, 14, 1, "[");
        canvas_.Fill(row, 15, filled, canvas_.Either("█", "#"));
        canvas_.Fill(row, 15 + filled, width - filled, canvas_.Either("░", "."));
        canvas_.Put(row, 15 + width, 1, "]");
    }

    void DrawProgress(int row) {
        DrawBar(row, "Song", model_.seconds, model_.length,
                model_.bars > 0 ? zell::format("of %d bars", model_.bars) : std::string());
        DrawBar(row + 1, "Show", model_.showSeconds, model_.showLength,
                model_.setList.empty() ? std::string() : zell::format("of %d songs", model_.setList.size()));
    }

    // ---- tracks, set list and messages

    void DrawTracks(int row, int rows, bool oneColumn) {
        const int trackColumns = oneColumn ? std::min(kMostTrackColumns, frame_.columns / 2) : frame_.columns / 2;
        const int columns = oneColumn ? 1 : 2;
        for (int column = 0; column < columns; ++column)
            DrawTrackHeader(row, column * trackColumns, trackColumns);
        const int places = rows * columns;
        const auto tracks = static_cast<int>(model_.tracks.size());
        // The selected one is always to be seen.
        const auto selected = static_cast<int>(keys_.GetSelectedTrack());
        const int first = std::max(0, std::min(tracks - places, selected - places / 2));
        for (int i = first; i < std::min(tracks, first + places); ++i) {
            const int at = i - first;
            DrawTrack(row + 1 + at % rows, at / rows * trackColumns, trackColumns,
                      model_.tracks[static_cast<std::size_t>(i)], i == selected);
        }
        if (oneColumn)
            DrawSetList(row, trackColumns + 3, frame_.columns - trackColumns - 4, rows + 1);
    }

    static constexpr int kProgramColumns = 5;
    static constexpr int kTrimColumns = 5;
    static constexpr int kMuteColumns = 6;

    int NameColumns(int width) const { return width - 6 - kProgramColumns - kTrimColumns - kMuteColumns - 3; }

    void DrawTrackHeader(int row, int at, int width) {
        const int name = NameColumns(width);
        canvas_.Put(row, at + 2, 3, "Ch");
        canvas_.Put(row, at + 5, name, "Track");
        int column = at + 5 + name;
        canvas_.Put(row, column, kProgramColumns - 1, "Prog", 0, Align::kRight);
        column += kProgramColumns;
        canvas_.Put(row, column, kTrimColumns, model_.hasTrims ? "Trim" : "", 0, Align::kRight);
        column += kTrimColumns + 1;
        canvas_.Put(row, column, kMuteColumns, "Mute");
    }

    void DrawTrack(int row, int at, int width, const ScreenModel::Track& track, bool isSelected) {
        const int name = NameColumns(width);
        const unsigned style = isSelected ? ScreenText::kBold : ScreenText::kPlain;
        canvas_.Put(row, at, 1, isSelected ? ">" : "", style);
        canvas_.Put(row, at + 2, 2, std::to_string(track.channel), style, Align::kRight);
        canvas_.Put(row, at + 5, name - 1, track.name, style);
        int column = at + 5 + name;
        // The star: chosen by the operator.
        canvas_.Put(row, column, kProgramColumns - 1, std::to_string(track.program), style, Align::kRight);
        canvas_.Put(row, column + kProgramColumns - 1, 1, track.programIsUsers ? "*" : "", style);
        column += kProgramColumns;
        canvas_.Put(row, column, kTrimColumns, model_.hasTrims ? std::to_string(track.trim) + "%" : "", style,
                    Align::kRight);
        column += kTrimColumns + 1;
        canvas_.Put(row, column, kMuteColumns, track.muted ? "MUTED" : "",
                    style | (track.muted ? ScreenText::kWarning : 0u));
        column += kMuteColumns;
        if (track.active)
            canvas_.Put(row, column, 1, canvas_.Either("●", "*"), ScreenText::kGood);
    }

    void DrawSetList(int row, int at, int width, int rows) {
        canvas_.Put(row, at + 3, width, "Set list");
        const int places = rows - 1;
        const auto count = static_cast<int>(model_.setList.size());
        const auto current = static_cast<int>(model_.place) - 1;
        const int first = std::max(0, std::min(count - places, current - places / 3));
        for (int i = first; i < std::min(count, first + places); ++i) {
            const ScreenModel::Entry& entry = model_.setList[static_cast<std::size_t>(i)];
            const bool isCurrent = i == current;
            const unsigned style = isCurrent ? ScreenText::kBold : ScreenText::kPlain;
            const std::string what = !entry.fault.empty()   ? "BROKEN"
                                     : entry.then == "go"   ? canvas_.Either("↓", "v")
                                     : entry.then == "wait" ? "waits"
                                                            : "stops";
            const int line = row + 1 + i - first;
            canvas_.Put(line, at, 1, isCurrent ? ">" : "", style);
            canvas_.Put(line, at + 2, 3, std::to_string(i + 1), style, Align::kRight);
            canvas_.Put(line, at + 6, width - 22, entry.title, style);
            canvas_.Put(line, at + width - 15, 7, TimeText(entry.seconds), style, Align::kRight);
            canvas_.Put(line, at + width - 7, 7, what, style | (entry.fault.empty() ? 0u : ScreenText::kBad));
        }
    }

    void DrawMessages(int row, int rows) {
        const auto count = static_cast<int>(model_.messages.size());
        const int first = std::max(0, count - rows);
        for (int i = first; i < count; ++i) {
            const ScreenModel::Message& message = model_.messages[static_cast<std::size_t>(i)];
            canvas_.Put(row + i - first, 1, frame_.columns - 2, zell::format("#%d %s", message.number, message.text),
                        i + 1 == count ? ScreenText::kWarning : ScreenText::kPlain);
        }
    }

    void DrawHelp(int row, int rows) {
        for (int i = 0; i < rows; ++i)
            canvas_.Fill(row + i, 0, frame_.columns, " ");
        const auto& help = OperatorKeys::GetHelp();
        canvas_.Put(row, 2, frame_.columns, "Keys (any key goes back)");
        ++row;
        const int lines = (static_cast<int>(help.size()) + 1) / 2;
        for (int i = 0; i < static_cast<int>(help.size()); ++i) {
            const int at = 2 + i / lines * frame_.columns / 2;
            const auto& entry = help[static_cast<std::size_t>(i)];
            canvas_.Put(row + i % lines, at, 11, entry.keys, ScreenText::kBold);
            canvas_.Put(row + i % lines, at + 12, frame_.columns / 2 - 16, entry.what);
        }
    }

    void DrawPedals(int row, int rows) {
        for (int i = 0; i < rows; ++i)
            canvas_.Fill(row + i, 0, frame_.columns, " ");
        canvas_.Put(row++, 2, frame_.columns - 2,
                    "Input: " + (model_.inputName.empty() ? "none; see :command input DEVICE" : model_.inputName) +
                        (model_.inputState == "missing" ? " (not there)" : "") +
                        (model_.onlyPresses ? "" : "  every value fires"));
        canvas_.Put(row, 2, frame_.columns - 2, "Enter: learn   Backspace: forget   Esc: back", ScreenText::kBold);
        --rows;
        // Around the chosen one, where not all have room.
        const int count = static_cast<int>(model_.pedals.size());
        const int chosen = std::min(static_cast<int>(keys_.GetSelectedPedal()), count - 1);
        const int first = std::clamp(chosen - (rows - 1) / 2, 0, std::max(0, count - (rows - 1)));
        for (int i = first; i < std::min(count, first + rows - 1); ++i) {
            const ScreenModel::Pedal& pedal = model_.pedals[static_cast<std::size_t>(i)];
            const unsigned style = i == chosen ? ScreenText::kBold | ScreenText::kReverse : 0u;
            const int line = row + 1 + i - first;
            canvas_.Put(line, 2, 18, pedal.command, style);
            canvas_.Put(
                line, 21, frame_.columns - 22,
                (pedal.binding.empty() ? "-" : pedal.binding) +
                    (pedal.leastMilliseconds == 0 ? ""
                                                  : zell::format(", not again within %d ms", pedal.leastMilliseconds)));
        }
    }

    void DrawPrompt(int row) {
        // What is typed or asked comes first: its keys act, whoever has asked for a pedal.
        std::string prompt = keys_.GetPrompt(frame_.now);
        if (prompt.empty() && !model_.learning.empty())
            prompt = "Press the pedal for " + model_.learning + " (no pedal fires meanwhile)" +
                     (keys_.ShowsPedals() ? ".  Any key gives up" : "");
        const std::string news = model_.GetNewsBehindAnswer();
        if (!prompt.empty())
            canvas_.Put(row, 0, frame_.columns, " " + prompt + " ", ScreenText::kBold | ScreenText::kReverse);
        else if (keys_.ShowsPedals() && !news.empty())  // which covers the messages
            canvas_.Put(row, 1, frame_.columns - 2, news, ScreenText::kBold);
        else if (!model_.answer.empty() && news.empty())
            canvas_.Put(row, 1, frame_.columns - 2, model_.answer,
                        ScreenText::kBold | (model_.answerIsRefusal ? ScreenText::kBad : 0u));
        else if (model_.showControlRefused > 0)
            canvas_.Put(row, 1, frame_.columns - 2,
                        zell::format("Show control: %d refused, the newest: %s", model_.showControlRefused,
                                     model_.showControlRefusal));
    }

    void DrawKeys(int row) {
        int at = 1;
        for (const OperatorKeys::Help& entry : OperatorKeys::GetHelp()) {
            if (!entry.isShort)
                continue;
            const int needed = ColumnsOf(entry.keys) + 1 + ColumnsOf(entry.what);
            if (at + needed > frame_.columns) {
                ++row;
                at = 1;
            }
            canvas_.Put(row, at, needed, entry.keys, ScreenText::kBold);
            canvas_.Put(row, at + ColumnsOf(entry.keys) + 1, needed, entry.what);
            at += needed + 2;
        }
    }

    // ---- a terminal that is smaller than it should be

    void DrawSmall() {
        const int width = frame_.columns;
        int row = 0;
        canvas_.Put(row++, 0, width,
                    UpperCase(model_.state) + (keys_.IsShowMode() ? "  SHOW  " : "  REHEARSAL  ") +
                        zell::format("%d:%d", model_.bar, model_.beat),
                    ScreenText::kBold | ScreenText::kReverse);
        canvas_.Put(row++, 0, width, std::to_string(model_.number) + " " + model_.title, ScreenText::kBold);
        if (const ScreenModel::Entry* const next = model_.GetNext())
            canvas_.Put(row, 0, width, "NEXT " + next->title);
        ++row;
        DrawPrompt(std::min(row++, frame_.rows - 1));
        canvas_.Put(row++, 0, width, zell::format("Tempo %.1f  %s  %s", model_.tempo, model_.meter, model_.key));
        canvas_.Put(row, 0, width, "(80 by 24 shows all)");
    }

    const ScreenModel& model_;
    const OperatorKeys& keys_;
    const ScreenText::Frame& frame_;
    Canvas canvas_;
};

}  // namespace

std::vector<ScreenText::Row> ScreenText::Draw(const ScreenModel& model, const OperatorKeys& keys, const Frame& frame) {
    return Drawing(model, keys, frame).Draw();
}

std::string ScreenText::TextOf(const Row& row) {
    std::string text;
    for (const Span& span : row)
        text += span.text;
    return text;
}

}  // namespace player
