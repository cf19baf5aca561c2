#include "zerko/settings/urls.hpp"

#include "zerko/foundation/naming.hpp"

namespace zerko::settings {

std::string URLs::Path::format_scope(std::string_view scope) {
    // Release pages are per major and minor release: the leading two parts.
    const auto first = scope.find('.');
    if (first == std::string_view::npos) return std::string(scope);
    const auto second = scope.find('.', first + 1);
    return std::string(scope.substr(0, second));
}

std::string URLs::Path::latest() const {
    return foundation::format("/validator/downloads/{}/{}/latest/", {target_, format_scope(scope_)});
}

std::string URLs::home() const { return foundation::format("https://{}", {host_}); }

}  // namespace zerko::settings
