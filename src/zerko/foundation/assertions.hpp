#pragma once
// Structural assertions: whether an object that comes from the host may be
// used at all (tested quietly: false and one log line, never a raise), and
// whether a parameter's attribute name is legal (raises).
#include <exception>
#include <optional>
#include <string_view>
#include <type_traits>

#include "zerko/foundation/json_document.hpp"

#include "zerko/foundation/logger.hpp"

namespace zerko::foundation {

class Environment;

/// Calls `function`; any error is logged as "{class name}: {error}" and the
/// result is nothing. Foreign objects may raise anything even on a plain
/// attribute read, so every access to them goes through here.
template <typename F>
auto quiet_call(F&& function) -> std::optional<std::invoke_result_t<F>> {
    try {
        return std::forward<F>(function)();
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
        return std::nullopt;
    }
}

struct Assert {
    struct Environment {
        /// Each path getter must answer a string, and both codecs must
        /// answer a string for "~".
        static bool is_valid(const foundation::Environment& instance);
    };
    struct Parameters {
        struct Input {
            /// Raises ValueError for an empty name, WrongAttributeName for an
            /// illegal one, PrivateAttributeName for a private one.
            static void attribute(std::string_view name);
        };
    };
    struct Json {
        /// Makes a value ready for the JSON writer. Text in C++ is already
        /// decoded UTF-8, so the value comes back as it is.
        static JsonDocument& clean(JsonDocument& data) { return data; }
    };
};

}  // namespace zerko::foundation
