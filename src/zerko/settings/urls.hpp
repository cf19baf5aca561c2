#pragma once
// The web addresses that the system hands to the host: the download page of
// the latest release for this host and platform, the documentation and the
// feedback page.
#include <string>
#include <string_view>

namespace zerko::settings {

class URLs {
public:
    /// The vendor's web host.
    static constexpr std::string_view default_host = "zerko.example";
    static constexpr int default_port = 443;

    /// The paths of the addresses on the web host.
    class Path {
    public:
        Path(std::string target, std::string scope) : target_(std::move(target)), scope_(std::move(scope)) {}
        /// "/validator/downloads/<target>/<formatted scope>/latest/".
        std::string latest() const;
        static std::string documentation() { return "/validator"; }
        static std::string feedback() { return "/feedback"; }
        /// The scope up to its second "." part: "Linux6.1.0-18" gives "Linux6.1",
        /// a scope without "." stays as it is.
        static std::string format_scope(std::string_view scope);

        const std::string& target() const noexcept { return target_; }
        const std::string& scope() const noexcept { return scope_; }

    private:
        std::string target_;
        std::string scope_;
    };

    URLs(std::string target, std::string scope) : target_(std::move(target)), scope_(std::move(scope)) {}

    const std::string& host() const noexcept { return host_; }
    int port() const noexcept { return port_; }
    /// A new Path of this target and scope.
    Path path() const { return Path(target_, scope_); }
    /// "https://<host>".
    std::string home() const;
    std::string latest() const { return home() + path().latest(); }
    std::string documentation() const { return home() + Path::documentation(); }
    std::string feedback() const { return home() + Path::feedback(); }
    /// The project editor's chapter of the documentation.
    std::string documentation_editor() const { return documentation() + "/#project-editor"; }

    const std::string& target() const noexcept { return target_; }
    const std::string& scope() const noexcept { return scope_; }

private:
    std::string target_;
    std::string scope_;
    std::string host_{default_host};
    int port_ = default_port;
};

}  // namespace zerko::settings
