#pragma once
// The user's settings of the whole system, in one JSON file (settings.json)
// that every running copy shares through the access queue. Format version 4;
// a file of any other version is ignored, not migrated, and replaced at the
// next write. Also the two static rules for user-typed names.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

#include "zerko/constants/constants.hpp"
#include "zerko/settings/check.hpp"
#include "zerko/settings/sections.hpp"
#include "zerko/settings/server.hpp"
#include "zerko/settings/urls.hpp"

namespace zerko::foundation {
class Environment;
}

namespace zerko::settings {

class Settings {
public:
    /// The format version of settings.json.
    static constexpr int version = 4;
    /// The filter that name rules use when none is named.
    static constexpr std::string_view default_method = constants::name::filter::LATIN;

    /// Reads environment.get_settings_file() and builds the four sections.
    /// Never raises for the file: whatever cannot be used gives the defaults.
    explicit Settings(const foundation::Environment& environment);
    /// The same for a given file, with the target and scope of the addresses.
    Settings(std::string path, std::string target, std::string scope);
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// The "check" section.
    Check::State& check() noexcept { return *check_; }
    const std::shared_ptr<Check::State>& check_state() const noexcept { return check_; }
    Export& export_() noexcept { return export_section_; }
    Workspace& workspace() noexcept { return workspace_; }
    Server& server() noexcept { return server_; }
    /// The web addresses for this host and platform.
    URLs urls() const { return URLs(target_, scope_); }
    const std::string& path() const noexcept { return path_; }

    /// {"version", "check", "export", "workspace", "server"}.
    Document data() const;
    /// Replaces the file's document by `data` under the access queue. Errors
    /// are logged; the settings stay in memory and nothing is raised.
    void write();
    /// What the file holds when it is a settings object of this version, an
    /// empty object otherwise (logged; a file that cannot be parsed is moved
    /// to ".corrupted").
    Document read() const;

    /// `text` through the filter `method` (Constants.Name.Filter); for any
    /// other method nothing when `none`, else `text` unchanged.
    static std::optional<std::string> approved_name(std::string_view text, bool none = false,
                                                    std::string_view method = default_method);
    /// EMPTY: `text` is not empty; otherwise: the filter would change nothing.
    static bool is_approved(std::string_view text, std::string_view method = default_method);

private:
    std::string path_;
    std::string target_;
    std::string scope_;
    std::shared_ptr<Check::State> check_;
    Export export_section_;
    Workspace workspace_;
    Server server_;
};

}  // namespace zerko::settings
