#include "zerko/file/utilities.hpp"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>

#include "zerko/api/environment.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::file {

std::string Text::read(const std::string& path) {
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

void move_corrupted(const std::string& path) {
    try {
        const auto slash = path.rfind('/');
        std::string directory = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
        const std::string filename = slash == std::string::npos ? path : path.substr(slash + 1);
        if (directory.find_first_not_of('/') != std::string::npos) {
            while (!directory.empty() && directory.back() == '/') directory.pop_back();
        }
        const auto quarantine = api::path::join(directory, corrupted_directory);
        api::path::make_directory(quarantine);
        const auto target = api::path::join(quarantine, timed_filename(filename));
        if (std::rename(path.c_str(), target.c_str()) != 0) throw FileNotFoundError(errno, path);
    } catch (const std::exception&) {
        foundation::Logger::exception(std::current_exception());
    }
}

}  // namespace zerko::file
