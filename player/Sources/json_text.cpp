#include "player/Sources/json_text.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include "player/display_text.h"
#include "zell/format.h"

namespace player {

namespace {

// Far more than a show needs: what works on values may call itself.
constexpr std::size_t kDeepest = 32;
constexpr std::size_t kLongestShown = 60;
constexpr std::size_t kLongestReason = 160;
constexpr std::size_t kLineWidth = 100;
constexpr std::size_t kIndent = 2;

std::string Shortened(std::string text, std::size_t most) {
    if (text.size() <= most)
        return text;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end) + "...";
}

/// Builds the value while the library reads, since its own builder keeps the last
/// of two members of one name and says nothing.
class Builder {
public:
    Builder(std::string_view text, JsonText& result) : text_(text), result_(result) {}

    bool null() { return Add_(nullptr) != nullptr; }
    bool boolean(bool value) { return Add_(value) != nullptr; }
    bool number_integer(Json::number_integer_t value) { return Add_(value) != nullptr; }
    bool number_unsigned(Json::number_unsigned_t value) { return Add_(value) != nullptr; }
    bool number_float(Json::number_float_t value, const std::string&) { return Add_(value) != nullptr; }
    bool string(std::string& value) { return Add_(std::move(value)) != nullptr; }
    bool binary(Json::binary_t&) { return false; }  // not in texts
    bool start_object(std::size_t) { return Open_(Json::object()); }
    bool end_object() { return Close_(); }
    bool start_array(std::size_t) { return Open_(Json::array()); }
    bool end_array() { return Close_(); }
    bool key(std::string& name) {
        Level& level = levels_.back();
        level.name = std::move(name);
        if (!level.names.insert(level.name).second)
            result_.faults.push_back(Pointer_() + ": the name stands twice in its object: allowed is once");
        return true;
    }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) {
        const std::string_view read = text_.substr(0, std::max<std::size_t>(position, 1) - 1);
        const auto line = std::count(read.begin(), read.end(), '\n') + 1;
        const std::size_t column = read.size() - (read.rfind('\n') + 1) + 1;  // npos + 1 is 0
        // "[json.exception...] parse error at line 1, column 5: reason", or without a place.
        std::string reason = error.what();
        for (const std::string_view end : {"] ", "column "})
            if (const auto found = reason.find(end); found != std::string::npos)
                reason.erase(0, end == "] " ? found + end.size() : reason.find(": ", found) + 2);
        result_.faults = {
            zell::format("line %d, column %u: %s", line, column, Shortened(DisplayText(reason), kLongestReason))};
        return false;
    }

private:
    struct Level {
        Json* container;
        std::string name;  // of the member that is being read
        std::set<std::string> names;
    };

    Json* Add_(Json value) {
        if (levels_.empty()) {
            result_.root = std::move(value);
            return &result_.root;
        }
        Level& level = levels_.back();
        if (level.container->is_array())
            return &level.container->emplace_back(std::move(value));
        // As a list: by its own insertion the object looks through all its members each time.
        auto& members = static_cast<Json::object_t::Container&>(level.container->get_ref<Json::object_t&>());
        return &members.emplace_back(level.name, std::move(value)).second;
    }

    bool Open_(Json container) {
        if (levels_.size() == kDeepest) {
            result_.faults = {Pointer_() + zell::format(": nested too deep: allowed are %u levels", kDeepest)};
            return false;
        }
        Json* const opened = Add_(std::move(container));
        levels_.push_back({opened, {}, {}});
        return true;
    }

    bool Close_() {
        levels_.pop_back();
        return true;
    }

    /// Of the member that has been named, or the element that comes next.
    std::string Pointer_() const {
        std::string pointer;
        for (const Level& level : levels_) {
            const std::size_t started = level.container->size() - (&level == &levels_.back() ? 0 : 1);
            pointer += "/" + (level.container->is_array() ? std::to_string(started) : PointerStep(level.name));
        }
        return pointer;
    }

    const std::string_view text_;
    JsonText& result_;
    std::vector<Level> levels_;
};

std::string NameOf(const Json& container, const std::string& name) {
    return container.is_object() ? Json(name).dump() + ": " : "";
}

std::string OneLine(const Json& value) {
    if (!value.is_structured())
        return value.dump();
    std::string line;
    for (const auto& [name, element] : value.items())
        line += (line.empty() ? "" : ", ") + NameOf(value, name) + OneLine(element);
    return value.is_object() ? "{" + line + "}" : "[" + line + "]";
}

/// column: where the value starts.
std::string LayOut(const Json& value, std::size_t indent, std::size_t column) {
    std::string line = OneLine(value);
    if (!value.is_structured() || value.empty() || (indent > 0 && column + line.size() <= kLineWidth))
        return line;
    std::string lines;
    for (const auto& [name, element] : value.items()) {
        const std::string start = std::string(indent + kIndent, ' ') + NameOf(value, name);
        lines += (lines.empty() ? "\n" : ",\n") + start + LayOut(element, indent + kIndent, start.size());
    }
    lines += "\n" + std::string(indent, ' ');
    return value.is_object() ? "{" + lines + "}" : "[" + lines + "]";
}

}  // namespace

JsonText ReadJson(std::string_view text) {
    JsonText result;
    Builder builder(text, result);
    result.isJson = Json::sax_parse(text, &builder);
    if (!result.isJson)
        result.root = nullptr;
    return result;
}

std::string LayOutJson(const Json& root) {
    return LayOut(root, 0, 0) + "\n";
}

std::string ShownJson(const Json& value) {
    return Shortened(DisplayText(value.dump(-1, ' ', false, Json::error_handler_t::replace)), kLongestShown);
}

std::string PointerStep(std::string_view name) {
    std::string step;
    for (const char character : name)
        step += character == '~' ? "~0" : character == '/' ? "~1" : std::string(1, character);
    return DisplayText(step);
}

}  // namespace player
