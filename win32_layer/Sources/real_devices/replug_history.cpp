#include "replug_history.h"

#include <sys/stat.h>

#include <charconv>
#include <cstddef>
#include <utility>

namespace win32_layer {

namespace {

// The sequencer's numbers: the kernel's own clients, four for each sound card, programs.
constexpr unsigned int kFirstCardClient = 16;
constexpr unsigned int kClientsPerCard = 4;
constexpr unsigned int kFirstProgramClient = 128;

/// Of "client:port 20:0"; none for a program, and for the kernel's loop.
std::optional<unsigned int> CardOf(const std::string& name) {
    const std::size_t space = name.rfind(' ');
    if (space == std::string::npos)
        return {};
    unsigned int client = 0;
    const char* const end = name.data() + name.size();
    const auto [colon, error] = std::from_chars(name.data() + space + 1, end, client);
    if (error != std::errc{} || colon == end || *colon != ':' || client < kFirstCardClient ||
        client >= kFirstProgramClient)
        return {};
    return (client - kFirstCardClient) / kClientsPerCard;
}

}  // namespace

std::vector<std::string> ReplugHistory::TakeReplugged(const std::vector<std::string>& names) {
    std::vector<std::string> replugged;
    std::map<std::string, std::uint64_t> nodes;
    for (const std::string& name : names) {
        const auto card = CardOf(name);
        if (!card)
            continue;
        const auto before = nodes_.find(name);
        const std::optional<std::uint64_t> now = nodeOf_(*card);
        if (before != nodes_.end() && now && *now != before->second)
            replugged.push_back(name);
        if (now)
            nodes.emplace(name, *now);
        else if (before != nodes_.end())  // unplugged since it was listed; by the next look it may be back, as another
            nodes.emplace(name, before->second);
    }
    nodes_ = std::move(nodes);
    return replugged;
}

std::optional<std::uint64_t> ReplugHistory::InodeOfControl(unsigned int card) {
    struct stat status {};
    if (stat(("/dev/snd/controlC" + std::to_string(card)).c_str(), &status) != 0)
        return {};
    return status.st_ino;
}

}  // namespace win32_layer
