#include "player/show_state.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "player/Sources/json_text.h"
#include "player/bar_beat.h"
#include "vemo_core/song_builder.h"
#include "zell/format.h"

namespace player {

namespace {

// Raised when a state is written that older players would misunderstand.
constexpr int kVersion = 1;

constexpr std::array<std::pair<std::string_view, AfterSong>, 3> kAfterSong{
    {{"stop", AfterSong::kStop}, {"wait", AfterSong::kWait}, {"go", AfterSong::kGo}}};

/// A value and where it stands.
struct Node {
    const Json& value;
    std::string pointer;
};

[[noreturn]] void Refuse(const Node& node, const std::string& allowed) {
    throw std::invalid_argument((node.pointer.empty() ? "the state" : node.pointer) + ": " + ShownJson(node.value) +
                                " is refused: allowed " + allowed);
}

/// The members of an object, each asked for by its name; what nobody has asked for
/// at the end is refused.
class Members {
public:
    explicit Members(Node node) : node_(std::move(node)) {
        if (!node_.value.is_object())
            Refuse(node_, "is an object: {...}");
    }

    Node operator[](const char* name) {
        const auto found = node_.value.find(name);
        const std::string pointer = node_.pointer + "/" + name;
        if (found == node_.value.end())
            throw std::invalid_argument(pointer + ": nothing stands here: it is needed");
        ++asked_;
        return {*found, pointer};
    }
    bool Has(const char* name) const { return node_.value.contains(name); }
    /// names: all that there are.
    void RefuseOthers(std::initializer_list<std::string_view> names) const {
        if (asked_ == node_.value.size())
            return;
        for (const auto& [name, value] : node_.value.items())
            if (std::ranges::find(names, name) == names.end())
                throw std::invalid_argument(node_.pointer + "/" + PointerStep(name) + ": " + ShownJson(value) +
                                            " stands under an unknown name");
    }

private:
    const Node node_;
    std::size_t asked_ = 0;
};

double Number(const Node& node, double least, double most) {
    const double number = node.value.is_number() ? node.value.get<double>() : std::nan("");
    if (!(number >= least && number <= most))
        Refuse(node, zell::format("are numbers from %g to %g", least, most));
    return number;
}

std::uint32_t WholeNumber(const Node& node, std::uint32_t least, std::uint32_t most) {
    const double number = node.value.is_number() ? node.value.get<double>() : std::nan("");
    if (!(number >= least && number <= most) || number != std::floor(number))
        Refuse(node, zell::format("are whole numbers from %u to %u", least, most));
    return static_cast<std::uint32_t>(number);
}

int Semitones(const Node& node) {
    const double number = node.value.is_number() ? node.value.get<double>() : std::nan("");
    if (!(number >= -12 && number <= 12) || number != std::floor(number))
        Refuse(node, "are whole numbers from -12 to 12");
    return static_cast<int>(number);
}

bool Flag(const Node& node) {
    if (!node.value.is_boolean())
        Refuse(node, "are true and false");
    return node.value.get<bool>();
}

std::string Key(const Node& node) {
    if (!node.value.is_string() || node.value.get_ref<const std::string&>().empty())
        Refuse(node, "is a song's key");
    return node.value.get<std::string>();
}

std::string Bar(const Node& node) {
    try {
        if (node.value.is_string()) {
            std::string bar = node.value.get<std::string>();
            ParseBarBeat(bar);
            return bar;
        }
    } catch (const std::invalid_argument&) {  // refused below, with all that is allowed
    }
    Refuse(node, "are \"BAR\" and \"BAR:BEAT\", from 1");
}

template <class Read>
void ForEach(const Node& node, Read read) {
    if (!node.value.is_array())
        Refuse(node, "is a list: [...]");
    std::size_t index = 0;
    for (const Json& element : node.value)
        read(Node{element, node.pointer + "/" + std::to_string(index++)});
}

/// read: void(const Node&, const std::string& name).
template <class Read>
void ForEachMember(const Node& node, Read read) {
    if (!node.value.is_object())
        Refuse(node, "is an object: {...}");
    for (const auto& [name, value] : node.value.items())
        read(Node{value, node.pointer + "/" + PointerStep(name)}, name);
}

std::map<int, int> ByChannel(const Node& node, std::uint32_t least, std::uint32_t most) {
    std::map<int, int> values;
    ForEachMember(node, [&](const Node& at, const std::string& name) {
        int channel = 16;
        while (channel > 0 && name != std::to_string(channel))
            --channel;
        if (channel == 0)
            throw std::invalid_argument(at.pointer + ": no channel: allowed are \"1\" to \"16\"");
        values[channel] = static_cast<int>(WholeNumber(at, least, most));
    });
    return values;
}

ShowDocument::SetListEntry Entry(const Node& node) {
    Members members(node);
    ShowDocument::SetListEntry entry;
    entry.song = Key(members["song"]);
    const Node then = members["then"];
    members.RefuseOthers({"song", "then"});
    for (const auto& [name, after] : kAfterSong)
        if (then.value == Json(std::string(name))) {
            entry.then = after;
            return entry;
        }
    Refuse(then, R"(are "stop", "wait", "go")");
}

Json ToJson(const std::map<int, int>& values) {
    Json object = Json::object();
    for (const auto& [channel, value] : values)
        object[std::to_string(channel)] = value;
    return object;
}

}  // namespace

std::filesystem::path ShowState::PathFor(const std::filesystem::path& showFile) {
    std::filesystem::path path = showFile;
    return path += ".state";
}

std::string ShowState::AsJson() const {
    Json root = {{"version", kVersion}};
    if (!song.empty())
        root["song"] = song;
    if (!bar.empty())
        root["bar"] = bar;
    root["tick"] = tick;
    // As the commands count them.
    if (entry)
        root["entry"] = *entry + 1;
    root["tempoScale"] = tempoScale;
    root["transposition"] = transposition;
    root["holds"] = holds;
    root["mutes"] = mutes;
    root["trims"] = ToJson(trims);
    root["programs"] = Json::object();
    for (const auto& [key, byChannel] : programs)
        root["programs"][key] = ToJson(byChannel);
    root["setList"] = Json::array();
    for (const ShowDocument::SetListEntry& one : setList)
        for (const auto& [name, then] : kAfterSong)
            if (one.then == then)
                root["setList"].push_back({{"song", one.song}, {"then", std::string(name)}});
    return LayOutJson(root);
}

ShowState ShowState::Parse(const std::string& json) {
    const JsonText text = ReadJson(json);
    if (!text.faults.empty())
        throw std::invalid_argument(text.faults.front());
    Members members({text.root, ""});
    // Before all else: a later player may call everything otherwise.
    const Node version = members["version"];
    if (version.value != Json(kVersion))
        Refuse(version, zell::format("is %d: another player has written it", kVersion));
    ShowState state;
    if (members.Has("song"))
        state.song = Key(members["song"]);
    if (members.Has("bar"))
        state.bar = Bar(members["bar"]);
    state.tick = WholeNumber(members["tick"], 0, SongBuilder::kLastEnd);
    ForEach(members["setList"], [&](const Node& at) { state.setList.push_back(Entry(at)); });
    if (members.Has("entry")) {
        const Node entry = members["entry"];
        if (state.setList.empty())
            Refuse(entry, "is nothing: the set list is empty");
        state.entry = WholeNumber(entry, 1, static_cast<std::uint32_t>(state.setList.size())) - 1;
    }
    state.tempoScale = Number(members["tempoScale"], 0.5, 2);
    state.transposition = Semitones(members["transposition"]);
    state.holds = Flag(members["holds"]);
    ForEach(members["mutes"], [&](const Node& at) {
        if (!state.mutes.insert(static_cast<int>(WholeNumber(at, 1, 16))).second)
            Refuse(at, "is each channel once");
    });
    state.trims = ByChannel(members["trims"], 0, 127);
    ForEachMember(members["programs"], [&](const Node& at, const std::string& key) {
        if (key.empty())
            Refuse(at, "is nothing under an empty key");
        state.programs[key] = ByChannel(at, 1, 128);
    });
    members.RefuseOthers({"version", "song", "bar", "tick", "entry", "tempoScale", "transposition", "holds", "mutes",
                          "trims", "programs", "setList"});
    return state;
}

}  // namespace player
