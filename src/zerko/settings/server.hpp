#pragma once
// The "server" section of settings.json: the endpoint that statistics and
// projects are exchanged with. Host-side code learns it from the process
// variable ZERKO-SERVER ("<host>:<port>"), kept current by every change.
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

namespace zerko::settings {

class Server {
public:
    static constexpr std::string_view variable = "ZERKO-SERVER";

    /// Reads "enabled", "host", "port" and "erase_sent"; an absent key or a
    /// value of the wrong kind takes the default. Publishes ZERKO-SERVER.
    explicit Server(const JsonDocument& data = JsonDocument::object());

    bool enabled = false;
    /// Whether records that the server accepted are deleted locally.
    bool erase_sent = false;

    const std::string& host() const noexcept { return host_; }
    int port() const noexcept { return port_; }
    /// Both store the value and publish ZERKO-SERVER.
    void set_host(std::string host);
    void set_port(int port);

    /// {"enabled", "host", "port", "erase_sent"}.
    JsonDocument data() const;
    /// Sets ZERKO-SERVER to "<host>:<port>".
    void set_environment() const;

private:
    std::string host_ = "localhost";
    int port_ = 8080;
};

}  // namespace zerko::settings
