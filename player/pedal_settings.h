#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace player {

/// What the operator has decided about the pedals of a show, beside what was learned:
/// the input by its name, since its index may mean another one after a re-plug.
struct PedalSettings {
    std::string input;                          // empty: none was chosen
    std::set<std::string> everyValueOf;         // inputs whose controllers fire with every value
    std::map<std::string, int> leastIntervals;  // milliseconds, by command

    bool operator==(const PedalSettings&) const = default;

    /// Nothing where there is no such file. std::invalid_argument with one line that
    /// names the file where it cannot be read or says something else.
    static std::optional<PedalSettings> Read(const std::filesystem::path& file);
    /// zell::IoError where it cannot be written; an older file then stays.
    void Write(const std::filesystem::path& file) const;
};

}  // namespace player
