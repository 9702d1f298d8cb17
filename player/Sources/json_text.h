#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace player {

/// Keeps the order in which the members of an object were written.
using Json = nlohmann::ordered_json;

/// A JSON text as it was written, with what its writer should mend in it.
///
/// A text that is no JSON has one fault, "line 3, column 14: ...", and no root. A
/// name that stands twice in its object is a fault for each time but the first,
/// and the root holds both.
struct JsonText {
    Json root;
    std::vector<std::string> faults;
    bool isJson = false;
};

JsonText ReadJson(std::string_view text);

/// The text for a person to read and edit: what fits into one line stands in one.
/// Json::exception for text that is not UTF-8.
std::string LayOutJson(const Json& root);

/// A value in a message: one line, cut short where it is long.
std::string ShownJson(const Json& value);

/// What follows "/" in a JSON pointer (RFC 6901).
std::string PointerStep(std::string_view name);

}  // namespace player
