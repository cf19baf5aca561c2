#include "zerko/foundation/errors.hpp"

#include <atomic>
#include <cstring>

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
