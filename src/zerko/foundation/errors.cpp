#include "zerko/foundation/errors.hpp"

#include <atomic>

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
