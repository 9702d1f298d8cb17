#include "player/screen_model.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "player/display_text.h"

namespace player {

namespace {

using Json = nlohmann::json;

// What is missing or of another kind leaves the value that was there.
template <class T>
void Get(const Json& json, const char* name, T& value) {
    const auto found = json.find(name);
    if (found == json.end())
        return;
    if constexpr (std::is_same_v<T, std::string>) {
        if (found->is_string())
            value = DisplayText(found->template get_ref<const std::string&>());
    } else if constexpr (std::is_same_v<T, bool>) {
        if (found->is_boolean())
            value = found->template get<bool>();
    } else if constexpr (std::is_integral_v<T>) {
        if (found->is_number_integer())
            value = found->template get<T>();
    } else if (found->is_number()) {
        value = found->template get<T>();
    }
}

const Json& ListOf(const Json& json, const char* name) {
    static const Json empty = Json::array();
    const auto found = json.find(name);
    return found != json.end() && found->is_array() ? *found : empty;
}

const Json& ObjectOf(const Json& json, const char* name) {
    static const Json empty = Json::object();
    const auto found = json.find(name);
    return found != json.end() && found->is_object() ? *found : empty;
}

void TakeState(const Json& json, ScreenModel& model) {
    Get(json, "state", model.state);
    const Json& show = ObjectOf(json, "show");
    model.showTitle.clear();
    Get(show, "title", model.showTitle);
    std::string kind;
    Get(show, "kind", kind);
    model.hasTrims = kind == "ranges";
    model.setList.clear();
    for (const Json& item : ListOf(json, "setList")) {
        ScreenModel::Entry& entry = model.setList.emplace_back();
        Get(item, "song", entry.song);
        Get(item, "number", entry.number);
        Get(item, "title", entry.title);
        Get(item, "then", entry.then);
        Get(item, "seconds", entry.seconds);
        Get(item, "fault", entry.fault);
    }
    Get(json, "place", model.place);
    Get(json, "nextPlace", model.nextPlace);
    Get(json, "song", model.song);
    Get(json, "title", model.title);
    model.number = 0;
    model.bars = 0;
    Get(json, "number", model.number);
    Get(json, "bars", model.bars);
    Get(json, "tempoScale", model.tempoScale);
    Get(json, "transposition", model.transposition);
    Get(json, "holds", model.holds);
    Get(json, "patch", model.patch);
    Get(json, "click", model.click);
    Get(json, "guiDelayMilliseconds", model.guiDelayMilliseconds);
    model.tracks.clear();
    for (const Json& item : ListOf(json, "tracks")) {
        ScreenModel::Track& track = model.tracks.emplace_back();
        Get(item, "channel", track.channel);
        Get(item, "name", track.name);
        Get(item, "program", track.program);
        Get(item, "programIsUsers", track.programIsUsers);
        Get(item, "trim", track.trim);
        Get(item, "muted", track.muted);
    }
    model.messages.clear();
    for (const Json& item : ListOf(json, "messages")) {
        ScreenModel::Message& message = model.messages.emplace_back();
        Get(item, "number", message.number);
        Get(item, "text", message.text);
    }
    Get(json, "songsLoaded", model.songsLoaded);
    Get(json, "songsToLoad", model.songsToLoad);
    Get(ObjectOf(json, "device"), "name", model.deviceName);
    Get(ObjectOf(json, "device"), "state", model.deviceState);
    Get(ObjectOf(json, "timeCode"), "state", model.timeCodeState);
    Get(ObjectOf(json, "timeCode"), "rate", model.timeCodeRate);
    const Json& input = ObjectOf(json, "commandInput");
    Get(input, "name", model.inputName);
    Get(input, "state", model.inputState);
    Get(input, "onlyPresses", model.onlyPresses);
    Get(input, "learning", model.learning);
    model.pedals.clear();
    for (const Json& item : ListOf(input, "commands")) {
        ScreenModel::Pedal& pedal = model.pedals.emplace_back();
        Get(item, "name", pedal.command);
        Get(item, "binding", pedal.binding);
        Get(item, "leastMilliseconds", pedal.leastMilliseconds);
    }
    const Json& showControl = ObjectOf(json, "showControl");
    Get(showControl, "state", model.showControlState);
    Get(showControl, "armed", model.showControlIsArmed);
    const int refusedBefore = std::exchange(model.showControlRefused, 0);
    Get(showControl, "refused", model.showControlRefused);
    if (model.showControlRefused > refusedBefore)
        model.answer.clear();  // which has been read, and covers the newest refusal
    Get(showControl, "newestRefusal", model.showControlRefusal);
}

void TakePosition(const Json& json, ScreenModel& model) {
    Get(json, "bar", model.bar);
    Get(json, "beat", model.beat);
    Get(json, "countIn", model.isCountIn);
    Get(json, "clock", model.clock);
    Get(json, "clocks", model.clocks);
    Get(json, "tempo", model.tempo);
    Get(json, "meter", model.meter);
    Get(json, "key", model.key);
    Get(json, "transposition", model.soundingTransposition);
    Get(json, "marker", model.marker);
    Get(json, "page", model.page);
    Get(json, "hasPages", model.hasPages);
    Get(json, "seconds", model.seconds);
    Get(json, "length", model.length);
    Get(json, "showSeconds", model.showSeconds);
    Get(json, "showLength", model.showLength);
    Get(json, "timeCode", model.timeCode);
    model.activeChannels.clear();
    for (const Json& channel : ListOf(json, "active"))
        if (channel.is_number_integer())
            model.activeChannels.push_back(channel.get<int>());
}

}  // namespace

std::string ScreenModel::GetNewsBehindAnswer() const {
    const bool isNews = !messages.empty() && messages.back().number > answeredBehind && messages.back().text != answer;
    return isNews ? messages.back().text : std::string();
}

bool ScreenModel::Take(std::string_view line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object())
        return false;
    if (json.contains("done")) {
        bool done = true;
        std::string message;
        Get(json, "done", done);
        Get(json, "message", message);
        answerIsRefusal = !done;
        answer = message;
        answeredBehind = messages.empty() ? 0 : messages.back().number;
        return true;
    }
    if (json.contains("state"))
        TakeState(ObjectOf(json, "state"), *this);
    if (json.contains("position"))
        TakePosition(ObjectOf(json, "position"), *this);
    for (Track& track : tracks)
        track.active = std::find(activeChannels.begin(), activeChannels.end(), track.channel) != activeChannels.end();
    return true;
}

}  // namespace player
