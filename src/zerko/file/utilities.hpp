#pragma once
// Small file operations that the stores share, and the quarantine of
// corrupted files: a file that cannot be parsed is kept for later study in a
// ".corrupted" directory beside it, and the program goes on as if it did not
// exist.
#include <string>
#include <string_view>
#include <utility>

namespace zerko::file {

struct Text {
    /// The whole file in text mode: the bytes as they are (the platform's
    /// encoding), with "\r\n" and "\r" read as "\n". Errors reach the caller.
    static std::string read(const std::string& path);
};

/// Stem and extension of a file name; the extension keeps its dot and may be
/// empty, and leading dots of the last segment do not start one.
std::pair<std::string, std::string> split_extension(std::string_view filename);

/// "<stem>-<seconds since the epoch, rounded><extension>", e.g. project-1700000000.json.
std::string timed_filename(std::string_view filename);

/// Moves `path` into the ".corrupted" directory beside it under a timed name,
/// creating that directory (one level) when missing. Never raises: a failure
/// is logged as "{class name}: {error}" and the caller goes on.
void move_corrupted(const std::string& path);

/// Raises ValueError ("embedded null character in path ...") when `path`
/// holds a NUL. The system calls read a path only up to its first NUL, so
/// such a path would silently name another file: "a.json\0.bak" is "a.json".
void assert_path(std::string_view path);
/// Whether `path` passes assert_path.
inline bool is_plain_path(std::string_view path) { return path.find('\0') == std::string_view::npos; }

/// Whether `name` is one plain file name: not empty, not "." or "..", with
/// no separator ("/" or "\\"), no drive or root, and no NUL. Only such a
/// name can be joined to a directory without leaving it.
bool is_plain_filename(std::string_view name);
/// Raises ValueError naming `name` when it is no plain file name.
void assert_plain_filename(std::string_view name);

/// The name of the quarantine directory.
inline constexpr std::string_view corrupted_directory = ".corrupted";

}  // namespace zerko::file
