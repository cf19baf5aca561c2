#include "zerko/settings/server.hpp"

#include "zerko/foundation/paths.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/settings/sections.hpp"

namespace zerko::settings {

Server::Server(const JsonDocument& data)
    : enabled(read_bool(data, "enabled", false)),
      erase_sent(read_bool(data, "erase_sent", false)),
      host_(read_text(data, "host", "localhost")),
      port_(read_int(data, "port", 8080)) {
    set_environment();
}

void Server::set_host(std::string host) {
    host_ = std::move(host);
    set_environment();
}

void Server::set_port(int port) {
    port_ = port;
    set_environment();
}

JsonDocument Server::data() const {
    JsonDocument out = JsonDocument::object();
    out["enabled"] = enabled;
    out["host"] = host_;
    out["port"] = port_;
    out["erase_sent"] = erase_sent;
    return out;
}

void Server::set_environment() const {
    foundation::process::set_variable(std::string(variable), foundation::format("{}:{}", {host_, std::int64_t{port_}}));
}

}  // namespace zerko::settings
