#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

/// One of the engine's small binary settings files: bytes, little-endian integers
/// and strings of one length byte and that many bytes, read or written in order.
///
/// Owner:   whoever loads or saves; a local, used for one of the two.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   bytes.
/// Errors:  Open: zell::IoError with the stream's text; a read: what the stream
///          throws, std::ios_base::failure where the file is short; WriteString:
///          std::length_error; Save: zell::IoError where the file cannot be
///          opened. Whatever fails after that goes unreported and leaves the file
///          of before, whole.
class SettingsFile {
public:
    /// path: in UTF-8.
    explicit SettingsFile(const std::string& path);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    /// To be called before anything is read.
    void Open();
    std::uint8_t ReadByte();
    std::uint16_t ReadUint16();
    std::uint32_t ReadUint32();
    std::string ReadString();

    /// Collect what Save() writes.
    void WriteByte(std::uint8_t value);
    void WriteUint16(std::uint16_t value);
    void WriteUint32(std::uint32_t value);
    void WriteString(const std::string& text);
    /// A link is followed and stays a link. What the file says already is not written
    /// again.
    void Save() const;

private:
    enum class Outcome { kDone, kFailed, kCannotBeReplaced };

    bool Holds(const std::filesystem::path& target) const;
    bool SaveTo(const std::filesystem::path& target) const;
    Outcome ReplaceWhole(const std::filesystem::path& target) const;
    bool WriteInPlace(const std::filesystem::path& target) const;

    std::string shownPath_;
    std::filesystem::path path_;  // empty where the text is no path
    std::ifstream reading_;
    std::string written_;
};
