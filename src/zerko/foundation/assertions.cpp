#include "zerko/foundation/assertions.hpp"

#include "zerko/api/environment.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::foundation {

bool Assert::Environment::is_valid(const api::Environment& env) {
    const auto getters = {&api::Environment::get_settings_file, &api::Environment::get_settings_directory,
                          &api::Environment::get_projects_directory, &api::Environment::get_statistics_file};
    for (auto getter : getters) {
        if (!quiet_call([&] { return (env.*getter)(); })) return false;
    }
    if (!quiet_call([&] { return env.decode_user("~"); })) return false;
    if (!quiet_call([&] { return env.encode_user("~"); })) return false;
    return true;
}

void Assert::Parameters::Input::attribute(std::string_view name) {
    if (name.empty()) throw ValueError("Empty Attribute Name");
    if (!Naming::is_attribute(name)) throw error::WrongAttributeName(name);
    if (Naming::is_private(name)) throw error::PrivateAttributeName(name);
}

}  // namespace zerko::foundation
