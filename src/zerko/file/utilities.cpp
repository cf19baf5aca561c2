#include "zerko/file/utilities.hpp"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>

#include <unistd.h>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::file {

std::string Text::read(const std::string& path) {
    assert_path(path);
    errno = 0;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw FileNotFoundError(errno ? errno : ENOENT, path);
    std::string raw;
    char buffer[1 << 14];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) raw.append(buffer, n);
    const bool failed = std::ferror(f) != 0;
    const int error_number = errno;
    std::fclose(f);
    if (failed) throw FileNotFoundError(error_number ? error_number : EIO, path);
    // Universal newlines, as a text-mode read gives them.
    std::string text;
    text.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '\r') {
            text.push_back('\n');
            if (i + 1 < raw.size() && raw[i + 1] == '\n') ++i;
        } else {
            text.push_back(raw[i]);
        }
    }
    return text;
}

std::pair<std::string, std::string> split_extension(std::string_view filename) {
    const auto slash = filename.rfind('/');
    const std::size_t base = slash == std::string_view::npos ? 0 : slash + 1;
    const auto dot = filename.rfind('.');
    if (dot == std::string_view::npos || dot < base) return {std::string(filename), ""};
    // A dot that only follows other dots at the start of the name is no extension (".bashrc").
    const auto first_other = filename.find_first_not_of('.', base);
    if (first_other == std::string_view::npos || first_other > dot) return {std::string(filename), ""};
    return {std::string(filename.substr(0, dot)), std::string(filename.substr(dot))};
}

std::string timed_filename(std::string_view filename) {
    const auto [stem, extension] = split_extension(filename);
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.0f", now.count());
    return stem + "-" + seconds + extension;
}

namespace {

// The text of a path for a message, with control characters escaped as
// Python's repr shows them.
std::string shown(std::string_view path) {
    std::string out = "'";
    for (const char c : path) {
        if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
            out += escaped;
        } else {
            out.push_back(c);
        }
    }
    return out + "'";
}

}  // namespace

void assert_path(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) throw ValueError("embedded null character in path " + shown(path));
}

bool is_plain_filename(std::string_view name) {
    if (name.empty() || name == "." || name == "..") return false;
    if (name.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos) return false;
    // "C:name" names a drive's current directory on some platforms.
    const bool drive = name.size() >= 2 && name[1] == ':' && std::isalpha(static_cast<unsigned char>(name[0]));
    return !drive;
}

void assert_plain_filename(std::string_view name) {
    if (!is_plain_filename(name)) {
        throw ValueError("not a plain file name: " + shown(name) +
                         " (no separator, no \"..\", no null character, not empty)");
    }
}

void move_corrupted(const std::string& path) {
    try {
        assert_path(path);
        const auto slash = path.rfind('/');
        std::string directory = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
        const std::string filename = slash == std::string::npos ? path : path.substr(slash + 1);
        if (directory.find_first_not_of('/') != std::string::npos) {
            while (!directory.empty() && directory.back() == '/') directory.pop_back();
        }
        const auto quarantine = foundation::path::join(directory, corrupted_directory);
        foundation::path::make_directory(quarantine);
        if (!std::filesystem::exists(path)) throw FileNotFoundError(ENOENT, path);
        // Two files quarantined within one second share the timed name: the
        // later one takes a counter, and no quarantined file is replaced. A
        // hard link claims a name only if it is free, so two processes that
        // quarantine at once cannot take the same one.
        const auto [stem, extension] = split_extension(timed_filename(filename));
        for (int n = 0;; ++n) {
            const std::string target =
                foundation::path::join(quarantine, n == 0 ? stem + extension : stem + "-" + std::to_string(n) + extension);
            if (::link(path.c_str(), target.c_str()) == 0) {
                if (::unlink(path.c_str()) != 0) throw FileNotFoundError(errno, path);
                break;
            }
            if (errno == EEXIST) continue;
            if (errno == ENOENT) throw FileNotFoundError(ENOENT, path);
            // A file system without hard links: the free name is taken by rename.
            if (std::filesystem::exists(std::filesystem::symlink_status(target))) continue;
            if (std::rename(path.c_str(), target.c_str()) != 0) throw FileNotFoundError(errno, path);
            break;
        }
    } catch (const std::exception&) {
        foundation::Logger::exception(std::current_exception());
    }
}

}  // namespace zerko::file
