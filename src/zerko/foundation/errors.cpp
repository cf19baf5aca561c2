#include "zerko/foundation/errors.hpp"

#include <atomic>
#include <cstring>

#include "zerko/foundation/utf8.hpp"

namespace zerko {
namespace error {

std::string named_sentence(std::string_view sentence, std::string_view name) {
    std::string text(sentence);
    if (!name.empty()) {
        text.append(" - \"").append(name).append("\"");
    }
    return text;
}

}  // namespace error

namespace {
std::string os_error_text(int error_number, const std::string& path) {
    return "[Errno " + std::to_string(error_number) + "] " + std::strerror(error_number) + ": '" + path + "'";
}
}  // namespace

namespace {
// Python's re.error text: the position, and for a pattern of several lines
// its line and column (both from 1), all counted in characters.
std::string regex_error_text(const std::string& message, std::string_view pattern, std::size_t position) {
    if (position == RegexError::npos) return message;
    std::string text = message + " at position " + std::to_string(position);
    if (pattern.find('\n') == std::string_view::npos) return text;
    std::size_t line = 1, column = 1, seen = 0;
    for (std::size_t i = 0; i < pattern.size() && seen < position; ++i) {
        if (foundation::is_utf8_continuation(pattern[i])) continue;
        ++seen;
        if (pattern[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return text + " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
}
}  // namespace

RegexError::RegexError(std::string message, std::string pattern, std::size_t position)
    : ValueError(regex_error_text(message, pattern, position)),
      message_(std::move(message)),
      pattern_(std::move(pattern)),
      has_pattern_(true),
      position_(position) {}

FileNotFoundError::FileNotFoundError(int error_number, std::string path)
    : Exception(os_error_text(error_number, path)),
      errno_(error_number),
      strerror_(std::strerror(error_number)),
      path_(std::move(path)) {}

namespace {
std::atomic<ErrorDescriber> g_describer{nullptr};
}

void set_error_describer(ErrorDescriber describer) { g_describer.store(describer); }

ErrorDescription describe(const std::exception_ptr& error) {
    ErrorDescription out;
    if (auto hook = g_describer.load(); hook && hook(error, out)) {
        return out;
    }
    try {
        std::rethrow_exception(error);
    } catch (const Exception& e) {
        out = {e.class_name(), e.what()};
    } catch (const std::exception& e) {
        out = {"Exception", e.what()};
    } catch (...) {
        out = {"Exception", "unknown error"};
    }
    return out;
}

}  // namespace zerko
