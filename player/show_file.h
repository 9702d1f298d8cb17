#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "player/show_document.h"

namespace player {

/// A show file that cannot be taken for a show. what() is one line, with the first
/// fault and the number of the others.
class ShowFileError : public std::runtime_error {
public:
    /// name stands for the file.
    ShowFileError(const std::string& name, std::vector<std::string> faults);
    ShowFileError(const ShowFileError&) = default;

    /// Every fault in a line of its own, without the file's name: where, by JSON
    /// pointer or line and column, what stands there, and what is allowed.
    const std::vector<std::string>& GetFaults() const { return faults_; }

private:
    std::vector<std::string> faults_;
};

/// Show files: JSON as docs/show.schema.json describes it.
///
/// Beyond the schema are faults: a name that stands twice in its object, a song's
/// key or a group's number that another has, a song of the set list that is not
/// there, a span that ends where it starts or before, and spans of one kind that
/// overlap, as far as both are given in bars or both in ticks.
///
/// Threads: any; a file by one at a time.
/// Errors:  ShowFileError with every fault; zell::IoError "cannot read NAME: reason"
///          or "cannot write NAME: reason" for a file that the system withholds.

/// Reads no more than 4 MiB; a larger file is refused.
ShowDocument ReadShowFile(const std::filesystem::path& path);
/// name stands for the file in messages.
ShowDocument ParseShowFile(std::string_view text, const std::string& name);

/// Replaces the file as a whole or not at all. A document that would not be read
/// again is refused like a file.
void WriteShowFile(const ShowDocument& document, const std::filesystem::path& path);

/// Changes in an existing show file where trims and mutes start, and nothing else
/// of what it says. Refuses a file with faults, trims in a show of programs, and
/// values out of range, and then leaves the file as it was.
void SaveBalance(const std::filesystem::path& path, const std::map<int, int>& trims, const std::set<int>& mutes);
/// The same for whether time code is sent.
void SaveTimeCodeActive(const std::filesystem::path& path, bool active);

}  // namespace player
