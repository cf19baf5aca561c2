#pragma once
// Where the settings, projects and statistics of the tool live for a host,
// and the user-path codecs that keep stored paths portable between users.
// The stores below the facade read their files from it; the host, or the
// facade's local fallback, implements it.
#include <optional>
#include <string>
#include <string_view>

namespace zerko::foundation {

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

}  // namespace zerko::foundation
