#include "player/control_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <deque>
#include <exception>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "player/heard_position.h"
#include "player/show_report.h"
#include "vemo_core/exception_log.h"
#include "zell/thread_names.h"

namespace player {

namespace {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr char kSource[] = "player/Sources/posix/control_server";
// Commands of one client that wait for their answers: beyond them its lines wait.
constexpr std::size_t kMostPending = 256;
// What a client has not read: a watcher gets no positions beyond the first, and nobody
// keeps the second.
constexpr std::size_t kSluggishBytes = 32 * 1024;
constexpr std::size_t kMostUnreadBytes = 4 * 1024 * 1024;
// Of one client, before another one has its turn: a state of a long show takes a while.
constexpr int kAnswersAtOnce = 8;
constexpr auto kReadPatience = 2s;
constexpr auto kClosingTime = 500ms;
constexpr auto kPositionInterval = 50ms;
constexpr auto kActivityTime = 200ms;
constexpr auto kStalledTime = 1s;
constexpr auto kAcceptPause = 200ms;

struct OwnCommand {
    const char* name;
    const char* description;
};
constexpr OwnCommand kOwnCommands[] = {
    {"state", "the whole state of the show"},
    {"watch", "from now on, the state and the position whenever they change"},
    {"commands", "this list"},
    {"quit", "end the player, unless the music plays"},
    {"quit now", "end the player and stop the music"},
};

std::string Dump(const Json& json) {
    // Texts of files, devices and clients may be anything.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// A descriptor that is closed when it goes.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0)
            close(number_);
    }
    int operator*() const { return number_; }

private:
    int number_ = -1;
};

std::string Fault(const std::string& path, const std::string& what, int error) {
    return path + ": " + what + ": " + std::strerror(error);
}

/// The socket in the file system, and a lock beside it: that tells a player that lives
/// from a file that a dead one has left, also while two players start at once.
class SocketFile {
public:
    explicit SocketFile(const std::string& path) : path_(path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (path.empty() || path.size() >= sizeof address.sun_path)
            throw ControlServer::Refused("'" + path + "' is no path for a socket: it has at most " +
                                         std::to_string(sizeof address.sun_path - 1) + " bytes");
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        const auto* const place = reinterpret_cast<const sockaddr*>(&address);

        const std::string lockPath = path + ".lock";
        lock_ = Descriptor(open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (*lock_ < 0)
            throw ControlServer::Refused(Fault(lockPath, "cannot be opened", errno));
        struct stat found = {};
        const bool exists = lstat(path.c_str(), &found) == 0;
        if (exists && !S_ISSOCK(found.st_mode))
            throw ControlServer::Refused(path + ": is there already and is no socket");
        const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (flock(*lock_, LOCK_EX | LOCK_NB) != 0 || (exists && connect(*probe, place, sizeof address) == 0))
            throw ControlServer::Refused(path + ": a player listens there already; see: vemo_player attach");
        if (exists && unlink(path.c_str()) != 0)
            throw ControlServer::Refused(Fault(path, "cannot be replaced", errno));

        listening_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        // Nobody gets in between the two: a socket is deaf before it listens.
        if (*listening_ < 0 || bind(*listening_, place, sizeof address) != 0 || chmod(path.c_str(), 0600) != 0 ||
            listen(*listening_, static_cast<int>(ControlServer::kMostClients)) != 0)
            throw ControlServer::Refused(Fault(path, "cannot be listened at", errno));
        if (lstat(path.c_str(), &own_) != 0)
            throw ControlServer::Refused(Fault(path, "has gone", errno));
    }
    ~SocketFile() {
        // Not what somebody else has put there meanwhile.
        struct stat found = {};
        if (own_.st_ino != 0 && lstat(path_.c_str(), &found) == 0 && found.st_ino == own_.st_ino &&
            found.st_dev == own_.st_dev)
            unlink(path_.c_str());
    }
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

    int operator*() const { return *listening_; }

private:
    const std::string path_;
    Descriptor lock_;
    Descriptor listening_;
    struct stat own_ = {};
};

/// A line that waits for its answer.
struct Pending {
    std::optional<std::uint64_t> number;
    std::future<CommandAnswer> answer;  // of the transport
    // Else one of the server's own commands, carried out when its turn comes: it speaks
    // of what the lines before it have led to.
    std::string own;
    std::string refusal;  // or else what is wrong with the line
};

struct Client {
    Descriptor socket;
    std::string input;
    std::deque<Pending> pending;
    std::string output;
    SteadyTime latestProgress;  // when output last became shorter, or was begun
    bool isWatching = false;
    bool hasFinished = false;  // sends nothing more: leaves once everything is answered
    bool isGone = false;
};

std::string AnswerLine(const CommandAnswer& answer, const std::optional<std::uint64_t>& number) {
    Json line = {{"done", answer.done}, {"message", answer.message}};
    if (number)
        line["number"] = *number;
    return Dump(line);
}

/// "17 play": a client may number its lines.
std::optional<std::uint64_t> TakeNumber(std::string_view& line) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(line.data(), line.data() + line.size(), number);
    const auto length = static_cast<std::size_t>(parsed.ptr - line.data());
    if (parsed.ec != std::errc() || (length < line.size() && line[length] != ' '))
        return std::nullopt;
    line.remove_prefix(std::min(line.size(), length + 1));
    return number;
}

std::string CommandsAsJson() {
    Json commands = Json::array();
    for (const CommandRow& row : CommandTable()) {
        Json states = Json::array();
        for (const TransportState state : row.allowedIn)
            states.push_back(NameOf(state));
        commands.push_back({{"name", row.name},
                            {"usage", row.Usage()},
                            {"description", row.description},
                            {"allowedIn", std::move(states)}});
    }
    for (const OwnCommand& own : kOwnCommands)
        commands.push_back({{"name", own.name}, {"usage", own.name}, {"description", own.description}});
    return Dump(commands);
}

}  // namespace

/// The server's thread and all that belongs to it.
class ControlServer::Loop {
public:
    Loop(Settings settings, Transport& transport, PlaybackFeed& feed)
        : settings_(std::move(settings)), transport_(transport), file_(settings_.path), records_(feed.Subscribe()) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            throw Refused(std::string("no pipe is to be had: ") + std::strerror(errno));
        wakeReader_ = Descriptor(ends[0]);
        wakeWriter_ = Descriptor(ends[1]);
        thread_ = std::thread([this] { Run(); });
    }
    ~Loop() {
        isClosing_ = true;
        [[maybe_unused]] const ssize_t written = write(*wakeWriter_, "", 1);
        thread_.join();
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

private:
    void Run() {
        zell::threadNames.SetNameOfCurrentThread("control");
        try {
            Serve();
        } catch (const std::exception& error) {
            // The show goes on, without this way to steer it.
            VemoLogException(error.what(), kSource, __LINE__);
        }
    }

    void Serve() {
        std::optional<SteadyTime> closing;
        while (!closing || (SteadyClock() < *closing && SomethingIsUnsent())) {
            Wait();
            if (isClosing_ && !closing)
                closing = SteadyClock() + kClosingTime;
            if (!closing)
                Accept();
            for (Client& client : clients_) {
                Read(client);
                if (!closing)
                    ObeyLines(client);
            }
            TakeAnswers();
            FollowMusic();
            for (Client& client : clients_)
                Write(client);
            std::erase_if(clients_, [](const Client& client) { return client.isGone; });
        }
    }

    bool IsWatched() const {
        return std::any_of(clients_.begin(), clients_.end(), [](const Client& client) { return client.isWatching; });
    }

    static SteadyTime SteadyClock() { return std::chrono::steady_clock::now(); }

    bool SomethingIsUnsent() const {
        return std::any_of(clients_.begin(), clients_.end(),
                           [](const Client& client) { return !client.pending.empty() || !client.output.empty(); });
    }

    // ---- waiting

    void Wait() {
        std::vector<pollfd> waiting = {{*wakeReader_, POLLIN, 0}};
        if (SteadyClock() >= acceptAgain_)
            waiting.push_back({*file_, POLLIN, 0});
        for (const Client& client : clients_) {
            short events = 0;
            if (!client.hasFinished && MayObey(client) && client.input.size() <= kLongestLine)
                events |= POLLIN;
            if (!client.output.empty())
                events |= POLLOUT;
            // One that is waited for in vain would be reported for ever once it hangs up.
            if (events != 0)
                waiting.push_back({*client.socket, events, 0});
        }
        poll(waiting.data(), static_cast<nfds_t>(waiting.size()), GetPatience());
        for (char bytes[64]; read(*wakeReader_, bytes, sizeof bytes) > 0;) {
        }
    }

    /// Milliseconds. Futures and the feed have no descriptor that could be waited for.
    int GetPatience() {
        if (std::any_of(clients_.begin(), clients_.end(), CanAnswer))
            return 0;
        const bool awaits =
            std::any_of(clients_.begin(), clients_.end(), [](const Client& client) { return !client.pending.empty(); });
        if (!awaits)
            awaitsSince_ = SteadyClock();
        else
            return SteadyClock() - awaitsSince_ < 50ms ? 1 : 5;
        if (!IsWatched())
            return 200;
        return transport_.GetSnapshot()->state == TransportState::kPlaying ? 10 : 40;
    }

    // ---- clients

    void Accept() {
        while (SteadyClock() >= acceptAgain_) {
            Descriptor socket(accept4(*file_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (*socket < 0) {
                // Out of descriptors, the client goes on knocking.
                if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
                    acceptAgain_ = SteadyClock() + kAcceptPause;
                return;
            }
            Client client;
            client.socket = std::move(socket);
            client.latestProgress = SteadyClock();
            if (clients_.size() >= kMostClients) {
                const std::string refusal =
                    AnswerLine({false, std::to_string(kMostClients) + " clients are connected, and no more are taken"},
                               std::nullopt) +
                    "\n";
                send(*client.socket, refusal.data(), refusal.size(), MSG_NOSIGNAL);
                continue;
            }
            clients_.push_back(std::move(client));
        }
    }

    void Read(Client& client) {
        // As much as a few lines: what follows has to wait until these are obeyed.
        while (!client.hasFinished && MayObey(client) && client.input.size() <= kLongestLine) {
            char bytes[kLongestLine];
            const ssize_t count = recv(*client.socket, bytes, sizeof bytes, 0);
            if (count > 0) {
                client.input.append(bytes, static_cast<std::size_t>(count));
            } else if (count == 0) {
                client.hasFinished = true;
            } else if (errno != EINTR) {
                client.isGone = errno != EAGAIN && errno != EWOULDBLOCK;
                return;
            }
        }
    }

    static bool MayObey(const Client& client) {
        return client.pending.size() < kMostPending && client.output.size() < kSluggishBytes;
    }

    void ObeyLines(Client& client) {
        while (MayObey(client)) {
            const auto end = client.input.find('\n');
            if (std::min(end, client.input.size()) > kLongestLine) {
                client.pending.push_back({{}, {}, {}, "a line has at most " + std::to_string(kLongestLine) + " bytes"});
                client.input.clear();
                client.hasFinished = true;
                return;
            }
            if (end == std::string::npos)
                return;
            std::string line = client.input.substr(0, end);
            client.input.erase(0, end + 1);
            if (line.ends_with('\r'))
                line.pop_back();
            Obey(client, line);
        }
    }

    void Obey(Client& client, std::string_view line) {
        Pending pending;
        pending.number = TakeNumber(line);
        if (std::any_of(std::begin(kOwnCommands), std::end(kOwnCommands),
                        [&](const OwnCommand& own) { return line == own.name; })) {
            pending.own = line;
        } else {
            try {
                pending.answer = transport_.Post(ParseCommand(line));
            } catch (const std::invalid_argument& error) {
                pending.refusal = error.what();
            }
        }
        client.pending.push_back(std::move(pending));
    }

    void TakeAnswers() {
        for (Client& client : clients_) {
            for (int taken = 0; taken < kAnswersAtOnce && CanAnswer(client); ++taken) {
                Pending first = std::move(client.pending.front());
                client.pending.pop_front();
                if (first.answer.valid())
                    Put(client, AnswerLine(first.answer.get(), first.number));
                else if (first.own.empty())
                    Put(client, AnswerLine({false, first.refusal}, first.number));
                else
                    CarryOut(client, first);
            }
        }
    }

    static bool CanAnswer(const Client& client) {
        if (client.pending.empty())
            return false;
        const auto& answer = client.pending.front().answer;
        return !answer.valid() || answer.wait_for(0s) == std::future_status::ready;
    }

    void CarryOut(Client& client, const Pending& command) {
        if (command.own.starts_with("quit")) {
            Put(client, AnswerLine(Quit(command.own == "quit now"), command.number));
            return;
        }
        std::string line = AnswerLine({true, {}}, command.number);
        // The commands before it have been carried out since the music was last looked at.
        Listen(*transport_.GetSnapshot());
        const std::string state = "\"state\":" + StateAsJson();
        const std::string position = "\"position\":" + PositionAsJson();
        if (command.own == "state")
            line.insert(line.size() - 1, "," + state + "," + position);
        else if (command.own == "commands")
            line.insert(line.size() - 1, ",\"commands\":" + CommandsAsJson());
        Put(client, line);
        if (command.own == "watch") {
            client.isWatching = true;
            Put(client, "{\"event\":\"state\"," + state + "}");
            Put(client, "{\"event\":\"position\"," + position + "}");
        }
    }

    CommandAnswer Quit(bool now) {
        if (!now && transport_.GetSnapshot()->state == TransportState::kPlaying)
            return {false, "the music plays; to stop it and end the player: quit now"};
        if (settings_.quit)
            settings_.quit();
        return {true, "the player ends"};
    }

    void Put(Client& client, const std::string& line) {
        if (client.output.empty())
            client.latestProgress = SteadyClock();
        client.output += line;
        client.output += '\n';
        if (client.output.size() > kMostUnreadBytes)
            client.isGone = true;
    }

    void Write(Client& client) {
        while (!client.output.empty() && !client.isGone) {
            const ssize_t count =
                send(*client.socket, client.output.data(), client.output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0) {
                client.output.erase(0, static_cast<std::size_t>(count));
                client.latestProgress = SteadyClock();
            } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                client.isGone = SteadyClock() - client.latestProgress > kReadPatience;
                return;
            } else if (errno != EINTR) {
                client.isGone = true;
            }
        }
        if (client.hasFinished && client.pending.empty() && client.output.empty())
            client.isGone = true;
    }

    // ---- what there is to tell

    void Listen(const TransportSnapshot& snapshot) {
        while (const auto record = records_->Next(0ms))
            position_.Take(*record);
        if (snapshot.state == TransportState::kPlaying)
            position_.Advance(transport_.GetHost().GetTime());
        else
            // Or the next start would be shown where this one ended.
            position_ = HeardPosition();
    }

    void FollowMusic() {
        const auto snapshot = transport_.GetSnapshot();
        Listen(*snapshot);
        const bool plays = snapshot->state == TransportState::kPlaying;
        // The transport publishes what a command led to; the rest changes by itself.
        ShowReport::Surroundings surroundings = GetSurroundings();
        bool changed = std::exchange(toldNumber_, snapshot->number) != snapshot->number || surroundings != told_;
        told_ = std::move(surroundings);
        if (!IsWatched())
            return;
        const auto& heard = position_.Get();
        const bool isNewBeat = plays && heard &&
                               (!toldBeat_ || toldBeat_->song != heard->song || toldBeat_->bar != heard->bar ||
                                toldBeat_->beat != heard->beat || toldBeat_->kind != heard->kind ||
                                (heard->kind == PlaybackRecord::Kind::kCountIn &&
                                 CountInPlaceOf(*toldBeat_).beat != CountInPlaceOf(*heard).beat));
        if (!changed && !isNewBeat && (!plays || SteadyClock() - latestPosition_ < kPositionInterval))
            return;
        // The song changes them while it plays.
        std::vector<int> programs = report_.ProgramsOf(*snapshot, Heard(*snapshot));
        changed = changed || programs != toldPrograms_;
        toldPrograms_ = std::move(programs);
        if (changed)
            Tell("{\"event\":\"state\",\"state\":" + report_.StateOf(*snapshot, Heard(*snapshot), told_) + "}");
        latestPosition_ = SteadyClock();
        toldBeat_ = plays ? heard : std::nullopt;
        std::string position = PositionAsJson();
        if (position == toldPosition_)
            return;
        Tell("{\"event\":\"position\",\"position\":" + position + "}", kSluggishBytes);
        toldPosition_ = std::move(position);
    }

    /// To every watcher that has no more than so much unread.
    void Tell(const std::string& line, std::size_t atMostUnread = kMostUnreadBytes) {
        for (Client& client : clients_)
            if (client.isWatching && client.output.size() <= atMostUnread)
                Put(client, line);
    }

    std::string StateAsJson() {
        const auto snapshot = transport_.GetSnapshot();
        return report_.StateOf(*snapshot, Heard(*snapshot), GetSurroundings());
    }

    /// Nothing unless music is heard.
    std::optional<PlaybackRecord> Heard(const TransportSnapshot& snapshot) const {
        return snapshot.state == TransportState::kPlaying ? position_.Get() : std::nullopt;
    }

    std::string PositionAsJson() {
        const auto snapshot = transport_.GetSnapshot();
        const auto heard = Heard(*snapshot);
        if (!heard)
            return report_.PositionOf(*snapshot, GetTimeCodeLabel());
        return report_.PositionOf(*snapshot, *heard,
                                  settings_.activity
                                      ? settings_.activity->GetActive(transport_.GetHost().GetTime(), kActivityTime)
                                      : std::vector<int>(),
                                  GetTimeCodeLabel());
    }

    ShowReport::Surroundings GetSurroundings() {
        const CommandInput* const commandInput = transport_.GetCommandInput();
        const ShowControl* const showControl = transport_.GetShowControl();
        return {GetDevice(), GetTimeCode(), commandInput ? commandInput->GetReport() : CommandInput::Report(),
                showControl ? showControl->GetReport() : ShowControl::Report(), transport_.GetHost().GetLoadProgress()};
    }

    ShowReport::TimeCode GetTimeCode() const {
        const TimeCodeSender* const sender = transport_.GetTimeCode();
        if (!sender)
            return {};
        const TimeCodeSender::State state = sender->GetState();
        return {state == TimeCodeSender::State::kOff  ? "off"
                : state == TimeCodeSender::State::kOn ? "on"
                                                      : "lost",
                ConvertFrameRateToString(sender->GetRate())};
    }

    std::string GetTimeCodeLabel() const {
        const TimeCodeSender* const sender = transport_.GetTimeCode();
        return sender && sender->GetState() != TimeCodeSender::State::kOff ? sender->GetLabel() : std::string();
    }

    ShowReport::Device GetDevice() {
        const TransportState state = transport_.GetSnapshot()->state;
        const std::uint64_t clocks = transport_.GetHost().GetPlayedClocks();
        if (clocks != playedClocks_ || state != TransportState::kPlaying)
            latestClock_ = SteadyClock();
        playedClocks_ = clocks;
        const char* const condition = settings_.deviceIsLost && settings_.deviceIsLost() ? "lost"
                                      : state == TransportState::kFault                  ? "fault"
                                      : SteadyClock() - latestClock_ > kStalledTime      ? "stalled"
                                                                                         : "ok";
        return {settings_.deviceName, condition};
    }

    const Settings settings_;
    Transport& transport_;
    const SocketFile file_;
    const std::shared_ptr<PlaybackFeed::Subscription> records_;
    Descriptor wakeReader_;
    Descriptor wakeWriter_;
    std::atomic<bool> isClosing_{false};

    // The thread's own.
    std::vector<Client> clients_;
    SteadyTime acceptAgain_{};
    SteadyTime awaitsSince_{};
    HeardPosition position_;
    ShowReport report_;
    std::uint64_t toldNumber_ = 0;
    ShowReport::Surroundings told_;
    std::vector<int> toldPrograms_;
    std::optional<PlaybackRecord> toldBeat_;
    std::string toldPosition_;
    SteadyTime latestPosition_{};
    std::uint64_t playedClocks_ = 0;
    SteadyTime latestClock_{};
    std::thread thread_;
};

ControlServer::ControlServer(Settings settings, Transport& transport, PlaybackFeed& feed)
    : loop_(std::make_unique<Loop>(std::move(settings), transport, feed)) {}

ControlServer::~ControlServer() = default;

}  // namespace player
