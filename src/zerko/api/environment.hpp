#pragma once
// Where the settings, projects and statistics of the tool live for a host,
// the user-path codecs that keep stored paths portable between users, and the
// probe for the running host.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zerko::api {

class Environment {
public:
    virtual ~Environment() = default;

    /// The user's home directory, read once from the process environment
    /// ("USERPROFILE"; on POSIX systems, where that does not exist, "HOME").
    static const std::optional<std::string>& user_home();
    /// The name of the tool's directory.
    static constexpr std::string_view name = ".zerko";

    /// One of the Plugin.Target texts.
    virtual std::string target() const;
    /// What the software around the tool is.
    virtual std::string scope() const;
    /// The tool's directory: user_home joined with `name`, created if missing.
    virtual std::string root() const;
    virtual std::string get_settings_file() const;
    virtual std::string get_settings_directory() const;
    virtual std::string get_projects_directory() const;
    virtual std::string get_statistics_file() const;
    /// Instance forms of the codecs, so that a host may replace them.
    virtual std::string decode_user(const std::string& path) const { return decode_user_path(path); }
    virtual std::string encode_user(const std::string& path) const { return encode_user_path(path); }

    /// Stored path to real path: every "~" becomes the home directory.
    static std::string decode_user_path(std::string_view path);
    /// Real path to stored path: the home directory becomes "~".
    static std::string encode_user_path(std::string_view path);

    /// Publishes ZERKO-SETTINGS, ZERKO-TARGET and ZERKO-SCOPE, in that order.
    /// Constructors of derived classes call it once their directories are ready.
    void publish() const;
};

/// The environment the system falls back on: everything beside the library.
class LocalEnv : public Environment {
public:
    /// Creates the settings and projects directories (one level each) and publishes.
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

namespace path {
/// POSIX path normalisation: collapses separators, "." and "..".
std::string normalise(std::string_view path);
/// Joins two path parts with one separator.
std::string join(std::string_view a, std::string_view b);
/// Creates one directory level if missing; throws FileNotFoundError when the parent is missing.
void make_directory(const std::string& path);
}  // namespace path

/// Process variables; a face may route them through its own runtime (the
/// Python face writes os.environ, which a C setenv would not update).
namespace process {
using Setter = void (*)(const std::string& name, const std::string& value);
void set_variable(const std::string& name, const std::string& value);
std::optional<std::string> get_variable(const std::string& name);
void set_setter(Setter setter);
}  // namespace process

}  // namespace zerko::api
