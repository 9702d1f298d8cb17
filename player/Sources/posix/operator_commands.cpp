#include "player/operator_commands.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "player/control_client.h"
#include "player/exit_status.h"
#include "player/screen.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr auto kStartPatience = 60s;
constexpr auto kStartStep = 10ms;
constexpr std::chrono::milliseconds kEndPatience = 5s;
constexpr auto kQuitStep = 50ms;
// A command may read a show.
constexpr auto kAnswerPatience = 60s;
constexpr char kNoScreen[] = "the screen is not part of this build: it was made without ncurses";

/// Below /tmp anybody may make folders: this one counts only if nobody else gets in.
std::string PrivateFolder(const std::string& path) {
    struct stat found = {};
    if ((mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) || lstat(path.c_str(), &found) != 0 ||
        !S_ISDIR(found.st_mode) || found.st_uid != geteuid() || (found.st_mode & 077) != 0)
        throw std::runtime_error(path + ": is no folder of yours alone; name another place with --socket");
    return path;
}

std::string SocketPathOr(const std::string& wanted) {
    return wanted.empty() ? DefaultSocketPath() : wanted;
}

/// In the child: becomes the player. Only calls that are allowed after a fork.
[[noreturn]] void BecomePlayer(char* const* arguments, int log) {
    setsid();
    const int nothing = open("/dev/null", O_RDWR);
    if (nothing >= 0) {
        dup2(nothing, STDIN_FILENO);
        dup2(nothing, STDOUT_FILENO);
    }
    dup2(log, STDERR_FILENO);
    execv("/proc/self/exe", arguments);
    _exit(kFailed);
}

/// Its exit status, once it has ended.
std::optional<int> StatusOf(pid_t player) {
    int status = 0;
    if (waitpid(player, &status, WNOHANG) != player)
        return std::nullopt;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

std::optional<int> WaitForEnd(pid_t player) {
    for (const auto start = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - start < kEndPatience;) {
        if (const auto status = StatusOf(player))
            return status;
        std::this_thread::sleep_for(kStartStep);
    }
    return std::nullopt;
}

bool Listens(const std::string& path) {
    try {
        const ControlClient client(path);
        return true;
    } catch (const ControlClient::Unreachable&) {
        return false;
    }
}

void CopyToError(const std::string& logPath) {
    std::ifstream log(logPath);
    if (log.peek() != std::ifstream::traits_type::eof())
        std::cerr << log.rdbuf();
}

/// What an end means for the status, and what is said of it.
int StatusOf(Screen::End end, const std::string& path) {
    switch (end) {
        case Screen::End::kLeft:
            // The terminal may be no more; whoever listens is told.
            std::fprintf(stderr, "The player goes on. Its screen again: vemo_player attach %s\n", path.c_str());
            return kDone;
        case Screen::End::kQuit: return kDone;
        case Screen::End::kLost: return Complain("the player has ended", kFailed);
        case Screen::End::kNoTerminal:
            return Complain(Screen::IsAvailable() ? "this terminal is unknown; see: echo $TERM" : kNoScreen, kRefused);
    }
    return kFailed;
}

}  // namespace

bool CanServe() {
    return true;
}

std::string DefaultSocketPath() {
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    struct stat found = {};
    if (runtime != nullptr && stat(runtime, &found) == 0 && S_ISDIR(found.st_mode))
        return std::string(runtime) + "/vemo_player.sock";
    return PrivateFolder("/tmp/vemo-" + std::to_string(geteuid())) + "/vemo_player.sock";
}

bool HasTerminal() {
    return Screen::IsAvailable() && isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

void OutliveTerminal() {
    signal(SIGHUP, SIG_IGN);
}

int PlayOnScreen(const std::vector<std::string>& arguments, const std::string& socketPath) {
    const std::string path = SocketPathOr(socketPath);
    if (Listens(path))
        return Complain("a player listens at " + path + " already: see vemo_player attach, or name another place " +
                            "with --socket",
                        kRefused);
    const std::string logPath = path + ".log";
    const int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (log < 0)
        return Complain(logPath + ": cannot be written: " + std::strerror(errno), kRefused);
    std::vector<std::string> all = arguments;
    all.insert(all.end(), {"--serve", path});
    std::vector<char*> pointers;
    for (std::string& argument : all)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    const pid_t player = fork();
    if (player == 0)
        BecomePlayer(pointers.data(), log);
    close(log);
    if (player < 0)
        return Complain(std::string("no process is to be had: ") + std::strerror(errno), kFailed);

    const auto start = std::chrono::steady_clock::now();
    while (!Listens(path)) {
        if (const auto status = StatusOf(player)) {
            CopyToError(logPath);
            return *status == kDone ? kFailed : *status;
        }
        if (std::chrono::steady_clock::now() - start > kStartPatience) {
            kill(player, SIGTERM);
            return Complain("the player does not start; what it says is in " + logPath, kFailed);
        }
        std::this_thread::sleep_for(kStartStep);
    }
    const Screen::End end = Screen::Run(path);
    const int status = StatusOf(end, path);
    if (end != Screen::End::kQuit && end != Screen::End::kLost)
        return status;
    // Its own status and what it has to say, as if it had played in this terminal.
    const auto ended = WaitForEnd(player);
    CopyToError(logPath);
    return ended.value_or(status);
}

int Attach(const std::string& socketPath) {
    try {
        const std::string path = SocketPathOr(socketPath);
        if (!HasTerminal())
            return Complain(Screen::IsAvailable() ? "attach needs a terminal" : kNoScreen, kRefused);
        // Whether there is a player is said before the terminal is changed.
        static_cast<void>(ControlClient(path));
        const Screen::End end = Screen::Run(path);
        for (auto left = kEndPatience; end == Screen::End::kQuit && left > 0s && Listens(path); left -= kQuitStep)
            std::this_thread::sleep_for(kQuitStep);
        return StatusOf(end, path);
    } catch (const std::runtime_error& error) {
        return Complain(error.what(), kRefused);
    }
}

int SendOneCommand(const std::string& socketPath, const std::string& command) {
    try {
        ControlClient client(SocketPathOr(socketPath));
        if (command.find('\n') != std::string::npos)
            return Complain("a command is one line", kRefused);
        client.Send(command);
        const auto answer = client.Receive(kAnswerPatience);
        if (!answer)
            return Complain("the player does not answer", kFailed);
        std::puts(answer->c_str());
        return answer->starts_with("{\"done\":true") ? kDone : kFailed;
    } catch (const std::runtime_error& error) {
        return Complain(error.what(), kRefused);
    }
}

}  // namespace player
