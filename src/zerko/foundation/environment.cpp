#include "zerko/foundation/environment.hpp"

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::foundation {

namespace {

const std::string& required_home() {
    const auto& home = Environment::user_home();
    if (!home) throw TypeError("the user's home directory is not known (no USERPROFILE or HOME)");
    return *home;
}

}  // namespace

const std::optional<std::string>& Environment::user_home() {
    static const std::optional<std::string> home = [] {
        if (auto v = process::get_variable("USERPROFILE")) return v;
        return process::get_variable("HOME");
    }();
    return home;
}

std::string Environment::target() const { throw NotImplementedError("target"); }
std::string Environment::scope() const { throw NotImplementedError("scope"); }
std::string Environment::get_settings_file() const { throw NotImplementedError("get_settings_file"); }
std::string Environment::get_settings_directory() const { throw NotImplementedError("get_settings_directory"); }
std::string Environment::get_projects_directory() const { throw NotImplementedError("get_projects_directory"); }
std::string Environment::get_statistics_file() const { throw NotImplementedError("get_statistics_file"); }

std::string Environment::root() const {
    auto dir = path::join(required_home(), name);
    path::make_directory(dir);
    return dir;
}

std::string Environment::encode_user_path(std::string_view p) {
    const auto user = path::normalise(required_home());
    return replace_all(replace_all(path::normalise(p), user, "~"), "\\", "/");
}

std::string Environment::decode_user_path(std::string_view p) {
    // Every "~" is the home directory, wherever it stands in the path.
    const auto user = path::normalise(required_home());
    return replace_all(replace_all(path::normalise(p), "~", user), "\\", "/");
}

void Environment::publish() const {
    process::set_variable("ZERKO-SETTINGS", get_settings_directory());
    process::set_variable("ZERKO-TARGET", target());
    process::set_variable("ZERKO-SCOPE", scope());
}

}  // namespace zerko::foundation
