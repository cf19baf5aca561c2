#include "zerko/foundation/assertions.hpp"

#include "zerko/foundation/environment.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::foundation {

bool Assert::Environment::is_valid(const foundation::Environment& env) {
    using Env = foundation::Environment;
    const auto getters = {&Env::get_settings_file, &Env::get_settings_directory, &Env::get_projects_directory,
                          &Env::get_statistics_file};
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
