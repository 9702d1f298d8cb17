#include "player/screen.h"

#include <langinfo.h>
#include <ncurses.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>

#include "player/control_client.h"
#include "player/operator_keys.h"
#include "player/screen_model.h"
#include "player/screen_text.h"

// After the headers of C++: the library's names would go through them.
#undef timeout

namespace player {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr int kPatienceMilliseconds = 100;
// A player that has dropped this client, as it does with one that was stopped, takes it
// back at once.
constexpr auto kReconnectTime = 3s;
constexpr auto kQuitTime = 2s;

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t hungUp = 0;
extern "C" void OnScreenInterrupt(int) {
    interrupted = 1;
}
extern "C" void OnScreenHangUp(int) {
    hungUp = 1;
}

enum Colour : short { kNoColour, kGoodColour, kWarningColour, kBadColour };

/// The terminal while it is ours.
class Terminal {
public:
    Terminal() {
        std::setlocale(LC_ALL, "");
        hasUtf8_ = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
        // newterm() where initscr() would end the process.
        screen_ = newterm(nullptr, stdout, stdin);
        if (screen_ == nullptr)
            return;
        cbreak();
        noecho();
        nonl();
        keypad(stdscr, TRUE);
        nodelay(stdscr, TRUE);
        set_escdelay(25);
        curs_set(0);
        if (has_colors()) {
            start_color();
            use_default_colors();
            init_pair(kGoodColour, COLOR_GREEN, -1);
            init_pair(kWarningColour, COLOR_YELLOW, -1);
            init_pair(kBadColour, COLOR_RED, -1);
        }
    }
    ~Terminal() {
        if (screen_ == nullptr)
            return;
        endwin();
        delscreen(screen_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool IsThere() const { return screen_ != nullptr; }
    bool HasUtf8() const { return hasUtf8_; }

    void Show(const std::vector<ScreenText::Row>& rows) {
        erase();
        for (int row = 0; row < static_cast<int>(rows.size()); ++row) {
            move(row, 0);
            for (const ScreenText::Span& span : rows[static_cast<std::size_t>(row)]) {
                attrset(AttributesOf(span.style));
                addstr(span.text.c_str());
            }
        }
        attrset(A_NORMAL);
        refresh();
    }

    /// Nothing when no more keys wait.
    std::optional<int> GetKey() {
        wint_t character = 0;
        switch (get_wch(&character)) {
            case OK: return character == '\r' ? OperatorKeys::kEnter : static_cast<int>(character);
            case KEY_CODE_YES: return KeyOf(static_cast<int>(character));
            default: return std::nullopt;
        }
    }

private:
    static int KeyOf(int code) {
        switch (code) {
            case KEY_UP: return OperatorKeys::kUp;
            case KEY_DOWN: return OperatorKeys::kDown;
            case KEY_LEFT: return OperatorKeys::kLeft;
            case KEY_RIGHT: return OperatorKeys::kRight;
            case KEY_PPAGE: return OperatorKeys::kPageUp;
            case KEY_NPAGE: return OperatorKeys::kPageDown;
            case KEY_BACKSPACE: return OperatorKeys::kBackspace;
            case KEY_ENTER: return OperatorKeys::kEnter;
            case KEY_F(8): return OperatorKeys::kPanic;
            default: return OperatorKeys::kOther;
        }
    }

    static attr_t AttributesOf(unsigned style) {
        attr_t attributes = A_NORMAL;
        if ((style & ScreenText::kBold) != 0)
            attributes |= A_BOLD;
        if ((style & ScreenText::kReverse) != 0)
            attributes |= A_REVERSE;
        if (!has_colors())
            return attributes;
        if ((style & ScreenText::kGood) != 0)
            attributes |= static_cast<attr_t>(COLOR_PAIR(kGoodColour));
        if ((style & ScreenText::kWarning) != 0)
            attributes |= static_cast<attr_t>(COLOR_PAIR(kWarningColour));
        if ((style & ScreenText::kBad) != 0)
            attributes |= static_cast<attr_t>(COLOR_PAIR(kBadColour));
        return attributes;
    }

    SCREEN* screen_ = nullptr;
    bool hasUtf8_ = false;
};

std::string WallClock() {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    localtime_r(&now, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    return text.data();
}

class Session {
public:
    Session(std::string socketPath, Terminal& terminal) : socketPath_(std::move(socketPath)), terminal_(terminal) {}

    Screen::End Run() {
        for (;;) {
            if (hungUp != 0)
                return Screen::End::kLeft;
            if (!Connect())
                return Screen::End::kLost;
            Receive();
            if (TerminalHasGone())
                return Screen::End::kLeft;
            if (const auto end = TakeKeys())
                return *end;
            Draw();
            Wait();
        }
    }

private:
    /// False when there is no player any more.
    bool Connect() {
        if (client_ && client_->IsOpen())
            return true;
        if (client_) {
            client_.reset();
            model_.isConnected = false;
            lostAt_ = SteadyClock::now();
        }
        try {
            client_ = std::make_unique<ControlClient>(socketPath_);
            client_->Send("watch");
            model_.isConnected = true;
        } catch (const ControlClient::Unreachable&) {
            client_.reset();
        }
        return client_ || (lostAt_ && SteadyClock::now() - *lostAt_ < kReconnectTime);
    }

    void Receive() {
        while (client_) {
            const auto line = client_->Receive(0ms);
            if (!line)
                return;
            model_.Take(*line);
        }
    }

    std::optional<Screen::End> TakeKeys() {
        if (interrupted != 0) {
            interrupted = 0;
            if (const auto end = Obey(OperatorKeys::kInterrupt))
                return end;
        }
        while (const auto key = terminal_.GetKey())
            if (const auto end = Obey(*key))
                return end;
        return std::nullopt;
    }

    std::optional<Screen::End> Obey(int key) {
        const OperatorKeys::Action action = keys_.Press(key, SteadyClock::now(), model_);
        model_.answer.clear();
        if (!action.command.empty() && client_)
            client_->Send(action.command);
        if (action.quits)
            return WaitForQuit();
        if (action.leaves)
            return Screen::End::kLeft;
        return std::nullopt;
    }

    /// The player may have begun to play just now, and refuse.
    std::optional<Screen::End> WaitForQuit() {
        const auto deadline = SteadyClock::now() + kQuitTime;
        while (client_ && client_->IsOpen() && SteadyClock::now() < deadline) {
            const auto line = client_->Receive(100ms);
            if (!line)
                continue;
            model_.Take(*line);
            if (line->starts_with("{\"done\":false"))
                return std::nullopt;
            if (line->starts_with("{\"done\":true") && model_.answer == "the player ends")
                break;
        }
        return Screen::End::kQuit;
    }

    void Draw() {
        ScreenText::Frame frame;
        getmaxyx(stdscr, frame.rows, frame.columns);
        frame.hasUtf8 = terminal_.HasUtf8();
        frame.wallClock = WallClock();
        frame.now = SteadyClock::now();
        terminal_.Show(ScreenText::Draw(model_, keys_, frame));
    }

    /// Reading says nothing of it: a terminal that is gone looks like one without keys.
    static bool TerminalHasGone() {
        pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
        return poll(&keyboard, 1, 0) > 0 && (keyboard.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }

    void Wait() {
        pollfd waiting[2] = {{STDIN_FILENO, POLLIN, 0}, {client_ ? client_->GetHandle() : -1, POLLIN, 0}};
        poll(waiting, 2, kPatienceMilliseconds);
    }

    const std::string socketPath_;
    Terminal& terminal_;
    std::unique_ptr<ControlClient> client_;
    std::optional<SteadyClock::time_point> lostAt_;
    ScreenModel model_;
    OperatorKeys keys_;
};

}  // namespace

bool Screen::IsAvailable() {
    return true;
}

Screen::End Screen::Run(const std::string& socketPath) {
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = OnScreenInterrupt;
    sigaction(SIGINT, &action, nullptr);
    action.sa_handler = OnScreenHangUp;
    sigaction(SIGHUP, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    Terminal terminal;
    if (!terminal.IsThere())
        return End::kNoTerminal;
    return Session(socketPath, terminal).Run();
}

}  // namespace player
