#pragma once
// The environment the facade falls back on when the host gives none, and the
// probe for the running host.
#include <functional>
#include <string>
#include <string_view>

#include "zerko/foundation/environment.hpp"

namespace zerko::api {

/// The environment interface lives with the foundation, which the stores
/// below the facade share; the facade's names keep pointing at it.
using foundation::Environment;

/// The environment the system falls back on: everything beside the library,
/// or in the user's home where the library's folder cannot be written.
class LocalEnv : public Environment {
public:
    /// Chooses the root, creates the settings and projects directories (one
    /// level each) and publishes.
    LocalEnv();

    std::string target() const override;
    std::string scope() const override;
    std::string root() const override;
    std::string get_settings_file() const override;
    std::string get_settings_directory() const override { return settings_; }
    std::string get_projects_directory() const override { return projects_; }
    std::string get_statistics_file() const override;

    /// Overrides the directory in which the library lies (the Python face
    /// sets it to the package's directory).
    static void set_library_directory(std::string directory);
    static std::string library_directory();

private:
    /// `name` beside the library when a file can be written there, else
    /// `name` in the user's home (with one info line saying so).
    static std::string writable_root();

    std::string root_;
    std::string settings_;
    std::string projects_;
};

/// The probe for the running host.
class Software {
public:
    /// Tries each host module in order through `try_load` (true when it
    /// loads); gives "Blender", "Maya", "3dsMax" or "Unknown".
    static std::string detect(const std::function<bool(std::string_view module)>& try_load);
};

}  // namespace zerko::api
