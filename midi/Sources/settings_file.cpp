#include "midi/Sources/settings_file.h"

#include <array>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "zell/errors.h"

namespace fs = std::filesystem;

namespace {

/// Over what a file begins with, or into a new one. True when the system has taken
/// all of it.
bool Write(const fs::path& path, std::ios_base::openmode mode, const std::string& bytes) {
    std::ofstream file(path, mode | std::ios_base::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return file.good();
}

/// Nothing where it cannot be read to its end.
std::optional<std::string> BytesOf(const fs::path& path) {
    std::ifstream file(path, std::ios_base::binary);
    if (!file)
        return std::nullopt;
    std::string bytes;
    std::array<char, 4096> chunk;
    do {
        file.read(chunk.data(), chunk.size());
        bytes.append(chunk.data(), static_cast<std::size_t>(file.gcount()));
    } while (file);
    if (file.bad())
        return std::nullopt;
    return bytes;
}

}  // namespace

SettingsFile::SettingsFile(const std::string& path) : shownPath_(path) {
    try {
        path_ = std::u8string(path.begin(), path.end());
    } catch (const std::exception&) {  // no UTF-8, where paths are not bytes: opening it fails
        path_.clear();
    }
}

SettingsFile::~SettingsFile() = default;

void SettingsFile::Open() {
    try {
        reading_.exceptions(std::ios_base::failbit | std::ios_base::badbit);
        reading_.open(path_, std::ios_base::binary);
    } catch (const std::ios_base::failure& failure) {
        throw zell::IoError(failure.what());
    }
}

std::uint8_t SettingsFile::ReadByte() {
    char byte = 0;
    reading_.read(&byte, 1);
    return static_cast<std::uint8_t>(byte);
}

std::uint16_t SettingsFile::ReadUint16() {
    const std::uint8_t low = ReadByte();
    return static_cast<std::uint16_t>(low | ReadByte() << 8);
}

std::uint32_t SettingsFile::ReadUint32() {
    const std::uint32_t low = ReadUint16();
    return low | std::uint32_t{ReadUint16()} << 16;
}

std::string SettingsFile::ReadString() {
    std::string text(ReadByte(), '\0');
    reading_.read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

void SettingsFile::WriteByte(std::uint8_t value) {
    written_ += static_cast<char>(value);
}

void SettingsFile::WriteUint16(std::uint16_t value) {
    WriteByte(static_cast<std::uint8_t>(value));
    WriteByte(static_cast<std::uint8_t>(value >> 8));
}

void SettingsFile::WriteUint32(std::uint32_t value) {
    WriteUint16(static_cast<std::uint16_t>(value));
    WriteUint16(static_cast<std::uint16_t>(value >> 16));
}

void SettingsFile::WriteString(const std::string& text) {
    if (text.size() > 255)
        throw std::length_error("String length is limited to 256 characters");
    WriteByte(static_cast<std::uint8_t>(text.size()));
    written_ += text;
}

void SettingsFile::Save() const {
    std::error_code ignored;
    const bool isNew = !fs::exists(path_, ignored);
    // Emptying the file here would lose it where the disk is full.
    if (!std::ofstream(path_, std::ios_base::binary | std::ios_base::app))
        throw zell::IoError(shownPath_ + " is not writable.");
    std::error_code error;
    fs::path target = fs::canonical(path_, error);
    if (error)
        target = path_;
    if (!isNew && Holds(target))
        return;
    if (!SaveTo(target) && isNew)
        fs::remove(target, ignored);
}

bool SettingsFile::Holds(const fs::path& target) const {
    std::error_code ignored;
    if (!fs::is_regular_file(target, ignored))
        return false;
    return BytesOf(target) == written_;
}

bool SettingsFile::SaveTo(const fs::path& target) const {
    std::error_code ignored;
    // A device is written to and never replaced.
    if (!fs::is_regular_file(target, ignored))
        return Write(target, std::ios_base::in, written_);
    const Outcome outcome = ReplaceWhole(target);
    return outcome == Outcome::kCannotBeReplaced ? WriteInPlace(target) : outcome == Outcome::kDone;
}

SettingsFile::Outcome SettingsFile::ReplaceWhole(const fs::path& target) const {
    fs::path temporary = target;
    temporary += ".saving";
    std::error_code error;
    // Left by a run that was cut short, or somebody else's.
    const fs::file_status old = fs::symlink_status(temporary, error);
    if (fs::exists(old) && !fs::is_regular_file(old))
        return Outcome::kCannotBeReplaced;
    if (!std::ofstream(temporary, std::ios_base::binary | std::ios_base::trunc))
        return Outcome::kCannotBeReplaced;
    Outcome outcome = Outcome::kFailed;
    if (Write(temporary, std::ios_base::trunc, written_)) {
        fs::permissions(temporary, fs::status(target, error).permissions(), error);
        fs::rename(temporary, target, error);
        outcome = error ? Outcome::kCannotBeReplaced : Outcome::kDone;
    }
    if (outcome != Outcome::kDone)
        fs::remove(temporary, error);
    return outcome;
}

// Over the old bytes, which are written back where the new ones find no room: what
// the file occupies already is never given up.
bool SettingsFile::WriteInPlace(const fs::path& target) const {
    const std::optional<std::string> old = BytesOf(target);
    if (!old)
        return false;
    const bool isWritten = Write(target, std::ios_base::in, written_);
    if (!isWritten)
        Write(target, std::ios_base::in, *old);
    std::error_code ignored;
    fs::resize_file(target, isWritten ? written_.size() : old->size(), ignored);
    return isWritten;
}
