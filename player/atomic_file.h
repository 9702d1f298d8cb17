#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

namespace player {

class DiskFile;

/// Replaces a file as a whole or not at all: what is written goes to a temporary
/// file in the same folder, which takes the target's place only when all of it is
/// on the disk. A run cut short leaves the old file as it was.
///
/// A link is followed, so that the file it leads to is replaced and the link stays;
/// permissions of an old file are kept. What is no plain file (a folder, a device)
/// is refused and never replaced.
///
/// Owner:   whoever writes the file. Destroyed without Commit(), or after a
///          failure, it removes the temporary file.
/// Threads: one at a time.
/// Lock:    none.
/// Errors:  zell::IoError "cannot write NAME: reason", from the constructor
///          already where the folder is missing or not writable, so that a
///          program can refuse before its work begins.
class AtomicFile {
public:
    explicit AtomicFile(const std::filesystem::path& target);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    /// Nothing may be written afterwards.
    void Commit();

private:
    [[noreturn]] void Fail_(const std::string& reason) const;

    std::filesystem::path shownName_;
    std::filesystem::path target_;
    std::filesystem::path temporary_;
    std::unique_ptr<DiskFile> file_;
};

}  // namespace player
