#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace player {

/// A new file on the disk, as the operating system has it; which source implements
/// it is the build's choice. It decides nothing.
///
/// Owner:   an AtomicFile.
/// Threads: one at a time.
/// Errors:  std::system_error with the system's code.
class DiskFile {
public:
    /// Creates the file and fails when there is one of that name.
    explicit DiskFile(const std::filesystem::path& path);
    /// Closes the file and leaves it where it is.
    ~DiskFile();
    DiskFile(const DiskFile&) = delete;
    DiskFile& operator=(const DiskFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    /// Returns when all of it is on the disk, and closes the file: what a full disk
    /// or a lost network drive has kept back so far is thrown here.
    void Finish();

    /// Puts a finished file in the place of another of the same folder, in one step,
    /// and returns when that is on the disk.
    static void Replace(const std::filesystem::path& from, const std::filesystem::path& to);

private:
    std::intptr_t handle_;
};

}  // namespace player
