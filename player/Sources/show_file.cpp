#include "player/show_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numeric>
#include <ranges>
#include <system_error>
#include <utility>

#include "player/Sources/json_text.h"
#include "player/atomic_file.h"
#include "player/display_text.h"
#include "vemo_core/song_builder.h"
#include "zell/errors.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr std::size_t kLargestFile = std::size_t{4} << 20;
constexpr int kMostNumber = 999'999;

constexpr const char* kAllowedText = "is text without control characters, and without blanks at its ends";

std::size_t EditDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char character : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t at = 0; at < other.size(); ++at) {
            const std::size_t change = diagonal + (character == other[at] ? 0 : 1);
            diagonal = row[at + 1];
            row[at + 1] = std::min({change, row[at] + 1, row[at + 1] + 1});
        }
    }
    return row.back();
}

template <class Names>
std::string Nearest(std::string_view name, const Names& known) {
    return std::string(
        *std::ranges::min_element(known, {}, [&](const auto& candidate) { return EditDistance(candidate, name); }));
}

template <class Names>
std::string Listed(const Names& names) {
    std::string list;
    for (const auto& name : names)
        list += (list.empty() ? "\"" : ", \"") + std::string(name) + "\"";
    return list;
}

/// A value and where it stands.
struct Node {
    const Json& value;
    std::string pointer;
};

/// Where faults are gathered.
class Faults {
public:
    explicit Faults(std::vector<std::string> faults) : lines_(std::move(faults)) {}

    void Add(const std::string& pointer, const std::string& reason) {
        lines_.push_back((pointer.empty() ? "the show" : pointer) + ": " + reason);
    }
    /// allowed: "are numbers from 1 to 16".
    void Refuse(const Node& node, const std::string& allowed) {
        Add(node.pointer, ShownJson(node.value) + " is refused: allowed " + allowed);
    }
    std::size_t Count() const { return lines_.size(); }
    std::vector<std::string>& Lines() { return lines_; }

private:
    std::vector<std::string> lines_;
};

/// The members of an object, each asked for by its name. What nobody asked for is
/// unknown, so that the code that reads is also the list of what there is.
class Members {
public:
    Members(Faults& faults, const Node& node) : faults_(faults), node_(node) {
        if (!node.value.is_object())
            faults.Refuse(node, "is an object: {...}");
    }
    ~Members() {
        if (!node_.value.is_object())
            return;
        for (const auto& [name, value] : node_.value.items())
            if (std::ranges::find(names_, name) == names_.end())
                faults_.Add(node_.pointer + "/" + PointerStep(name),
                            zell::format("%s stands under an unknown name: the nearest known is \"%s\" of %s",
                                         ShownJson(value), Nearest(name, names_), Listed(names_)));
    }
    Members(const Members&) = delete;
    Members& operator=(const Members&) = delete;

    /// read: void(const Node&). False where there is no such member.
    template <class Read>
    bool Optional(const char* name, Read read) {
        names_.emplace_back(name);
        if (!node_.value.is_object())
            return false;
        const auto found = node_.value.find(name);
        if (found == node_.value.end())
            return false;
        read(Node{*found, node_.pointer + "/" + name});
        return true;
    }
    template <class Read>
    void Required(const char* name, Read read) {
        if (!Optional(name, read) && node_.value.is_object())
            faults_.Add(node_.pointer + "/" + name, "nothing stands here: it is needed");
    }

private:
    Faults& faults_;
    const Node node_;
    std::vector<std::string> names_;
};

bool IsBefore(const BarBeat& one, const BarBeat& other) {
    return std::pair(one.bar, one.beat) < std::pair(other.bar, other.beat);
}

/// Whether one stands before the other, as far as the document alone can tell: only
/// the song knows the bar of a tick.
bool IsSurelyBefore(const ShowPlace& one, const ShowPlace& other) {
    if (one.index() != other.index())
        return false;
    if (const BarBeat* place = std::get_if<BarBeat>(&one))
        return IsBefore(*place, std::get<BarBeat>(other));
    return std::get<std::uint32_t>(one) < std::get<std::uint32_t>(other);
}

Json ToJson(const ShowPlace& place) {
    if (const std::uint32_t* tick = std::get_if<std::uint32_t>(&place))
        return *tick;
    const BarBeat& at = std::get<BarBeat>(place);
    return at.beat == 1 ? std::to_string(at.bar) : zell::format("%d:%d", at.bar, at.beat);
}

class ShowReader {
public:
    explicit ShowReader(Faults& faults) : faults_(faults) {}

    ShowDocument Read(const Json& root) {
        ShowDocument show;
        Members members(faults_, {root, ""});
        members.Required("title", [&](const Node& node) { ReadText(node, show.title); });
        members.Required("kind", [&](const Node& node) {
            kindIsKnown_ = Choose(node, show.kind, {{"programs", ShowKind::kPrograms}, {"ranges", ShowKind::kRanges}});
        });
        kind_ = show.kind;
        members.Optional("groups", [&](const Node& node) { ReadGroups(node, show.groups); });
        members.Optional("trims", [&](const Node& node) {
            RequireRanges(node);
            ReadByChannel(node, [&](const Node& trim, int channel) { ReadInteger(trim, 0, 127, show.trims[channel]); });
        });
        members.Optional("mutes", [&](const Node& node) { ReadChannels(node, show.mutes); });
        members.Required("songs", [&](const Node& node) { ReadSongs(node, show.songs); });
        const bool hasSetList = members.Optional("setList", [&](const Node& node) { ReadSetList(node, show.setList); });
        if (!hasSetList)
            for (const ShowDocument::Song& song : show.songs)
                show.setList.push_back({song.key, AfterSong::kWait});
        members.Optional("timeCode", [&](const Node& node) {
            Members(faults_, node).Required("active", [&](const Node& active) {
                ReadFlag(active, show.timeCodeActive);
            });
        });
        members.Optional("showControl", [&](const Node& node) {
            ShowDocument::ShowControl control;
            Members controls(faults_, node);
            controls.Required("input", [&](const Node& input) { ReadText(input, control.input); });
            controls.Optional("deviceId", [&](const Node& id) { ReadInteger(id, 0, 111, control.deviceId); });
            controls.Optional("cueList", [&](const Node& list) { ReadText(list, control.cueList); });
            show.showControl = control;
        });
        return show;
    }

private:
    void ReadGroups(const Node& node, std::vector<ShowDocument::Group>& groups) {
        RequireRanges(node);
        std::map<int, std::string> numbers;
        ForEach(node, 0, [&](const Node& at) {
            ShowDocument::Group& group = groups.emplace_back();
            Members members(faults_, at);
            members.Required("number", [&](const Node& number) {
                if (ReadInteger(number, 1, 255, group.number))
                    RequireFirst(number, numbers, group.number, at.pointer);
            });
            members.Required("name", [&](const Node& name) { ReadText(name, group.name); });
            members.Required("channels", [&](const Node& channels) { ReadChannels(channels, group.channels, 1); });
        });
    }

    void ReadSongs(const Node& node, std::vector<ShowDocument::Song>& songs) {
        bool allHaveKeys = true;
        ForEach(node, 1, [&](const Node& at) {
            ShowDocument::Song& song = songs.emplace_back();
            Members members(faults_, at);
            bool hasKey = false;
            members.Required("key", [&](const Node& key) {
                hasKey = ReadText(key, song.key);
                if (hasKey)
                    RequireFirst(key, keys_, song.key, at.pointer);
            });
            allHaveKeys = allHaveKeys && hasKey;
            ReadSong(members, song);
        });
        keysAreKnown_ = allHaveKeys && !keys_.empty();
    }

    void ReadSong(Members& members, ShowDocument::Song& song) {
        members.Required("file", [&](const Node& node) { ReadFileName(node, song.file); });
        members.Optional("number", [&](const Node& node) { ReadInteger(node, 1, kMostNumber, song.number); });
        members.Optional("title", [&](const Node& node) { ReadText(node, song.title.emplace()); });
        members.Optional("start", [&](const Node& node) { ReadPlace(node, song.start.emplace()); });
        members.Optional("countInBars", [&](const Node& node) { ReadInteger(node, 0, 8, song.countInBars); });
        members.Optional("tempoScales", [&](const Node& node) {
            ReadSpans(node, song.tempoScales, "factor", [&](const Node& at, ShowDocument::TempoScale& scale) {
                if (!at.value.is_number() || !(at.value.get<double>() >= 0.5 && at.value.get<double>() <= 2))
                    faults_.Refuse(at, "are numbers from 0.5 to 2");
                else
                    scale.factor = at.value.get<double>();
            });
        });
        members.Optional("transpositions", [&](const Node& node) {
            ReadSpans(node, song.transpositions, "semitones",
                      [&](const Node& at, auto& span) { ReadInteger(at, -12, 12, span.semitones); });
        });
        members.Optional("clicks", [&](const Node& node) {
            ReadSpans(node, song.clicks, "notated32",
                      [&](const Node& at, auto& span) { ReadInteger(at, 1, 255, span.notated32); });
        });
        members.Optional("markers", [&](const Node& node) {
            ReadPlaced(node, song.markers, "text", [&](const Node& at, auto& marker) { ReadText(at, marker.text); });
        });
        members.Optional("pages", [&](const Node& node) {
            ReadPlaced(node, song.pages, "number",
                       [&](const Node& at, auto& page) { ReadInteger(at, 1, kMostNumber, page.number); });
        });
        members.Optional("pauses", [&](const Node& node) {
            ForEach(node, 0, [&](const Node& at) { ReadPlace(at, song.pauses.emplace_back(BarBeat())); });
        });
        members.Optional("tracks", [&](const Node& node) {
            ReadByChannel(node, [&](const Node& at, int channel) { ReadTrack(at, song.tracks[channel]); });
        });
        members.Optional("patches", [&](const Node& node) {
            ForEach(node, 0, [&](const Node& at) { ReadPatch(at, song.patches.emplace_back()); });
        });
        members.Optional("clickTrack", [&](const Node& node) {
            song.clickTrack = ShowDocument::ClickTrack();
            ReadClickTrack(node, *song.clickTrack);
        });
    }

    void ReadTrack(const Node& node, ShowDocument::Track& track) {
        Members members(faults_, node);
        members.Optional("name", [&](const Node& name) { ReadText(name, track.name.emplace()); });
        members.Optional("program", [&](const Node& program) { ReadInteger(program, 1, 128, track.program); });
        members.Optional("range", [&](const Node& range) {
            RequireRanges(range);
            std::vector<int> notes;
            const std::size_t before = faults_.Count();
            ForEach(range, 0, [&](const Node& note) { ReadInteger(note, 0, 127, notes.emplace_back()); });
            if (faults_.Count() > before)
                return;
            if (notes.size() != 2 || notes[0] > notes[1])
                faults_.Refuse(range, "are the lowest and the highest note: [36, 96]");
            else
                track.range = {notes[0], notes[1]};
        });
    }

    void ReadPatch(const Node& node, ShowDocument::Patch& patch) {
        Members members(faults_, node);
        members.Required("name", [&](const Node& name) { ReadText(name, patch.name); });
        members.Required("programs", [&](const Node& programs) {
            ReadByChannel(programs, [&](const Node& program, int channel) {
                ReadInteger(program, 1, 128, patch.programs[channel]);
            });
            if (programs.value.is_object() && programs.value.empty())
                faults_.Refuse(programs, "is at least one channel with its program");
        });
    }

    void ReadClickTrack(const Node& node, ShowDocument::ClickTrack& track) {
        Members members(faults_, node);
        members.Optional("channel", [&](const Node& channel) { ReadInteger(channel, 1, 16, track.channel); });
        members.Optional("note", [&](const Node& note) { ReadInteger(note, 0, 127, track.note); });
        members.Optional("accent", [&](const Node& accent) { ReadInteger(accent, 0, 127, track.accent); });
        members.Optional("muted", [&](const Node& muted) { ReadFlag(muted, track.muted); });
    }

    void ReadSetList(const Node& node, std::vector<ShowDocument::SetListEntry>& setList) {
        ForEach(node, 1, [&](const Node& at) {
            ShowDocument::SetListEntry& entry = setList.emplace_back();
            entry.then = AfterSong::kWait;
            Members members(faults_, at);
            members.Required("song", [&](const Node& song) {
                if (ReadText(song, entry.song) && keysAreKnown_ && !keys_.contains(entry.song))
                    faults_.Refuse(song, "are the keys of the songs, of which the nearest is \"" +
                                             Nearest(entry.song, std::views::keys(keys_)) + "\"");
            });
            members.Optional("then", [&](const Node& then) {
                Choose(then, entry.then,
                       {{"stop", AfterSong::kStop}, {"wait", AfterSong::kWait}, {"go", AfterSong::kGo}});
            });
        });
    }

    /// Things with a place, "at", and a value.
    template <class Thing, class ReadValue>
    void ReadPlaced(const Node& node, std::vector<Thing>& things, const char* value, ReadValue readValue) {
        ForEach(node, 0, [&](const Node& at) {
            Thing& thing = things.emplace_back();
            Members members(faults_, at);
            members.Required("at", [&](const Node& place) { ReadPlace(place, thing.at); });
            members.Required(value, [&](const Node& member) { readValue(member, thing); });
        });
    }

    template <class Span, class ReadValue>
    void ReadSpans(const Node& node, std::vector<Span>& spans, const char* value, ReadValue readValue) {
        struct Known {
            ShowPlace from, to;
            std::string pointer;
        };
        std::vector<Known> inBars, inTicks;
        ForEach(node, 0, [&](const Node& at) {
            Span& span = spans.emplace_back();
            const std::size_t before = faults_.Count();
            Members members(faults_, at);
            members.Required("from", [&](const Node& place) { ReadPlace(place, span.from); });
            members.Required("to", [&](const Node& place) { ReadPlace(place, span.to); });
            const bool placed = faults_.Count() == before;
            members.Required(value, [&](const Node& member) { readValue(member, span); });
            if (!placed || span.from.index() != span.to.index())
                return;
            if (!IsSurelyBefore(span.from, span.to))
                faults_.Refuse({at.value["to"], at.pointer + "/to"},
                               "is a place behind the start, " + ToJson(span.from).dump());
            else
                (std::holds_alternative<BarBeat>(span.from) ? inBars : inTicks)
                    .push_back({span.from, span.to, at.pointer});
        });
        for (std::vector<Known>* known : {&inBars, &inTicks}) {
            std::ranges::stable_sort(*known, IsSurelyBefore, &Known::from);
            const Known* last = nullptr;  // of those before, the one that ends last
            for (const Known& span : *known) {
                if (last != nullptr && IsSurelyBefore(span.from, last->to))
                    faults_.Add(span.pointer,
                                zell::format("%s to %s is refused: allowed is no overlap with %s, %s to %s",
                                             ToJson(span.from).dump(), ToJson(span.to).dump(), last->pointer,
                                             ToJson(last->from).dump(), ToJson(last->to).dump()));
                if (last == nullptr || IsSurelyBefore(last->to, span.to))
                    last = &span;
            }
        }
    }

    /// read: void(const Node&, int channel).
    template <class Read>
    void ReadByChannel(const Node& node, Read read) {
        if (!node.value.is_object()) {
            faults_.Refuse(node, "is an object with channels for names: {\"1\": ...}");
            return;
        }
        for (const auto& [name, value] : node.value.items()) {
            const Node at{value, node.pointer + "/" + PointerStep(name)};
            int channel = 16;
            while (channel > 0 && name != std::to_string(channel))
                --channel;
            if (channel == 0)
                faults_.Add(at.pointer, "no channel: allowed are \"1\" to \"16\"");
            else
                read(at, channel);
        }
    }

    void ReadChannels(const Node& node, std::set<int>& channels, std::size_t least = 0) {
        ForEach(node, least, [&](const Node& at) {
            int channel = 0;
            if (ReadInteger(at, 1, 16, channel) && !channels.insert(channel).second)
                faults_.Refuse(at, "is each channel once");
        });
    }

    template <class Read>
    void ForEach(const Node& node, std::size_t least, Read read) {
        if (!node.value.is_array() || node.value.size() < least) {
            faults_.Refuse(node, least == 0 ? "is a list: [...]" : "is a list with at least one element: [...]");
            return;
        }
        std::size_t index = 0;
        for (const Json& element : node.value)
            read(Node{element, node.pointer + "/" + std::to_string(index++)});
    }

    template <class Key>
    void RequireFirst(const Node& node, std::map<Key, std::string>& known, const Key& key, const std::string& owner) {
        const auto [place, isFirst] = known.emplace(key, owner);
        if (!isFirst)
            faults_.Refuse(node, "is what no other has, and " + place->second + " has it already");
    }

    void RequireRanges(const Node& node) {
        if (kindIsKnown_ && kind_ != ShowKind::kRanges)
            faults_.Refuse(node, "is nothing in a show of kind \"programs\", only in one of kind \"ranges\"");
    }

    /// value: an integer, or an optional one.
    template <class Integer>
    bool ReadInteger(const Node& node, int least, int most, Integer& value) {
        const double number = node.value.is_number() ? node.value.get<double>() : std::nan("");
        if (number != std::floor(number) || !(number >= least && number <= most)) {
            faults_.Refuse(node, zell::format("are whole numbers from %d to %d", least, most));
            return false;
        }
        value = static_cast<int>(number);
        return true;
    }

    void ReadFlag(const Node& node, bool& flag) {
        if (node.value.is_boolean())
            flag = node.value.get<bool>();
        else
            faults_.Refuse(node, "are true and false");
    }

    bool ReadText(const Node& node, std::string& text) {
        if (node.value.is_string())
            text = node.value.get<std::string>();
        if (node.value.is_string() && !text.empty() && DisplayText(text) == text)
            return true;
        faults_.Refuse(node, kAllowedText);
        return false;
    }

    void ReadFileName(const Node& node, std::string& name) {
        if (node.value.is_string())
            name = node.value.get<std::string>();
        // Between two letters a blank is no end.
        if (!node.value.is_string() || name.empty() || DisplayText("x" + name + "x") != "x" + name + "x")
            faults_.Refuse(node, "is the path of a MIDI file, with / between folders");
    }

    void ReadPlace(const Node& node, ShowPlace& place) {
        if (node.value.is_string()) {
            try {
                place = ParseBarBeat(node.value.get_ref<const std::string&>());
                return;
            } catch (const std::invalid_argument&) {  // refused below, with all that is allowed
            }
        } else if (node.value.is_number()) {
            const double tick = node.value.get<double>();
            if (tick == std::floor(tick) && tick >= 0 && tick <= SongBuilder::kLastEnd) {
                place = static_cast<std::uint32_t>(tick);
                return;
            }
        }
        faults_.Refuse(
            node, zell::format("are \"BAR\" and \"BAR:BEAT\", from 1, and a tick from 0 to %u", SongBuilder::kLastEnd));
    }

    template <class Choice>
    bool Choose(const Node& node, Choice& choice, const std::vector<std::pair<std::string_view, Choice>>& choices) {
        std::vector<std::string_view> names;
        for (const auto& [name, value] : choices) {
            names.push_back(name);
            if (node.value == Json(name)) {
                choice = value;
                return true;
            }
        }
        faults_.Refuse(node, "are " + Listed(names));
        return false;
    }

    Faults& faults_;
    ShowKind kind_ = ShowKind::kPrograms;
    bool kindIsKnown_ = false;
    std::map<std::string, std::string> keys_;  // of songs, and where each stands
    bool keysAreKnown_ = false;                // else nobody can tell whether one is missing
};

ShowDocument Understand(JsonText text, const std::string& name) {
    if (!text.isJson)
        throw ShowFileError(name, std::move(text.faults));
    Faults faults(std::move(text.faults));
    ShowDocument show = ShowReader(faults).Read(text.root);
    if (faults.Count() > 0)
        throw ShowFileError(name, std::move(faults.Lines()));
    return show;
}

template <class Value>
Json ByChannel(const std::map<int, Value>& values) {
    Json object = Json::object();
    for (const auto& [channel, value] : values)
        object[std::to_string(channel)] = value;
    return object;
}

Json ToJson(const ShowDocument::Track& track) {
    Json object = Json::object();
    if (track.name)
        object["name"] = *track.name;
    if (track.program)
        object["program"] = *track.program;
    if (track.range)
        object["range"] = {track.range->first, track.range->second};
    return object;
}

template <class Spans, class Value>
void AddSpans(Json& song, const char* name, const Spans& spans, const char* valueName, Value value) {
    for (const auto& span : spans)
        song[name].push_back({{"from", ToJson(span.from)}, {"to", ToJson(span.to)}, {valueName, span.*value}});
}

Json ToJson(const ShowDocument::Song& song) {
    Json object = {{"key", song.key}, {"file", song.file}};
    if (song.number)
        object["number"] = *song.number;
    if (song.title)
        object["title"] = *song.title;
    if (song.start)
        object["start"] = ToJson(*song.start);
    if (song.countInBars != 0)
        object["countInBars"] = song.countInBars;
    AddSpans(object, "tempoScales", song.tempoScales, "factor", &ShowDocument::TempoScale::factor);
    AddSpans(object, "transpositions", song.transpositions, "semitones", &ShowDocument::Transposition::semitones);
    AddSpans(object, "clicks", song.clicks, "notated32", &ShowDocument::Click::notated32);
    for (const ShowDocument::Marker& marker : song.markers)
        object["markers"].push_back({{"at", ToJson(marker.at)}, {"text", marker.text}});
    for (const ShowDocument::Page& page : song.pages)
        object["pages"].push_back({{"at", ToJson(page.at)}, {"number", page.number}});
    for (const ShowPlace& pause : song.pauses)
        object["pauses"].push_back(ToJson(pause));
    for (const auto& [channel, track] : song.tracks)
        object["tracks"][std::to_string(channel)] = ToJson(track);
    for (const ShowDocument::Patch& patch : song.patches)
        object["patches"].push_back({{"name", patch.name}, {"programs", ByChannel(patch.programs)}});
    if (const auto& click = song.clickTrack)
        object["clickTrack"] = {
            {"channel", click->channel}, {"note", click->note}, {"accent", click->accent}, {"muted", click->muted}};
    return object;
}

Json ToJson(const ShowDocument& show) {
    Json object = {{"title", show.title}, {"kind", show.kind == ShowKind::kPrograms ? "programs" : "ranges"}};
    for (const ShowDocument::Group& group : show.groups)
        object["groups"].push_back({{"number", group.number}, {"name", group.name}, {"channels", group.channels}});
    if (!show.trims.empty())
        object["trims"] = ByChannel(show.trims);
    if (!show.mutes.empty())
        object["mutes"] = show.mutes;
    for (const ShowDocument::Song& song : show.songs)
        object["songs"].push_back(ToJson(song));
    for (const ShowDocument::SetListEntry& entry : show.setList)
        object["setList"].push_back({{"song", entry.song},
                                     {"then", entry.then == AfterSong::kStop   ? "stop"
                                              : entry.then == AfterSong::kWait ? "wait"
                                                                               : "go"}});
    if (show.timeCodeActive)
        object["timeCode"] = {{"active", true}};
    if (show.showControl) {
        Json& control = object["showControl"] = {{"input", show.showControl->input}};
        if (show.showControl->deviceId != 0)
            control["deviceId"] = show.showControl->deviceId;
        if (!show.showControl->cueList.empty())
            control["cueList"] = show.showControl->cueList;
    }
    return object;
}

[[noreturn]] void FailToRead(const std::string& name, const std::string& reason) {
    throw zell::IoError("cannot read " + name + ": " + reason);
}

std::string ReadFileText(const std::filesystem::path& path) {
    const std::string name = DisplayText(path.string());
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        FailToRead(name, "it is a folder");
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        FailToRead(name, std::generic_category().message(errno));
    std::string text(kLargestFile + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (stream.bad())
        FailToRead(name, std::generic_category().message(errno));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (text.size() > kLargestFile)
        FailToRead(name, "it is larger than 4 MiB");
    return text;
}

/// Writes what can be read again, and nothing else.
void Write(const Json& root, const std::filesystem::path& path) {
    std::string text;
    try {
        text = LayOutJson(root);
    } catch (const Json::exception&) {
        throw ShowFileError(path.string(), {"a text of the show is not UTF-8: allowed is nothing else"});
    }
    ParseShowFile(text, path.string());
    AtomicFile file(path);
    file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    file.Commit();
}

/// As a writer would: what is new goes before the songs, which are long.
void SetMember(Json& root, const char* name, Json value) {
    if (root.contains(name)) {
        root[name] = std::move(value);
        return;
    }
    if (value.empty())
        return;
    Json changed = Json::object();
    for (const auto& [known, member] : root.items()) {
        if (known == "songs")
            changed[name] = value;
        changed[known] = member;
    }
    root = std::move(changed);
}

std::string Summary(const std::string& name, const std::vector<std::string>& faults) {
    const std::size_t others = faults.empty() ? 0 : faults.size() - 1;
    return DisplayText(name) + ": " + (faults.empty() ? "" : faults.front()) +
           (others == 0 ? "" : zell::format(" (and %u more)", others));
}

}  // namespace

ShowFileError::ShowFileError(const std::string& name, std::vector<std::string> faults)
    : std::runtime_error(Summary(name, faults)), faults_(std::move(faults)) {}

ShowDocument ReadShowFile(const std::filesystem::path& path) {
    return ParseShowFile(ReadFileText(path), path.string());
}

ShowDocument ParseShowFile(std::string_view text, const std::string& name) {
    return Understand(ReadJson(text), name);
}

void WriteShowFile(const ShowDocument& document, const std::filesystem::path& path) {
    Write(ToJson(document), path);
}

void SaveBalance(const std::filesystem::path& path, const std::map<int, int>& trims, const std::set<int>& mutes) {
    JsonText text = ReadJson(ReadFileText(path));
    Understand(text, path.string());
    SetMember(text.root, "trims", ByChannel(trims));
    SetMember(text.root, "mutes", mutes);
    Write(text.root, path);
}

void SaveTimeCodeActive(const std::filesystem::path& path, bool active) {
    JsonText text = ReadJson(ReadFileText(path));
    Understand(text, path.string());
    SetMember(text.root, "timeCode", Json{{"active", active}});
    Write(text.root, path);
}

}  // namespace player
