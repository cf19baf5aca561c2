#include "zerko/settings/settings.hpp"

#include <exception>

#include "zerko/foundation/environment.hpp"
#include "zerko/file/access_queue.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::settings {

using foundation::Logger;

namespace {

// Target and scope only shape the web addresses; an environment that cannot
// say them still has settings.
std::string quietly(std::string (foundation::Environment::*read)() const, const foundation::Environment& environment) {
    return foundation::quiet_call([&] { return (environment.*read)(); }).value_or("");
}

}  // namespace

Settings::Settings(const foundation::Environment& environment)
    : Settings(environment.get_settings_file(), quietly(&foundation::Environment::target, environment),
               quietly(&foundation::Environment::scope, environment)) {}

Settings::Settings(std::string path, std::string target, std::string scope)
    : path_(std::move(path)), target_(std::move(target)), scope_(std::move(scope)) {
    const Document data = read();
    check_ = std::make_shared<Check::State>(read_section(data, "check"));
    export_section_ = Export(read_section(data, "export"));
    workspace_ = Workspace(read_section(data, "workspace"));
    server_ = Server(read_section(data, "server"));
}

Document Settings::read() const {
    const Document data = file::read_shared(path_, "Settings");
    const auto found = data.find("version");
    const Document file_version = found == data.end() ? Document(0) : *found;
    if (!file_version.is_number() || file_version != Document(version)) {
        Logger::warning(foundation::format("Incompatible Settings Version - {} in {}, expected {}",
                                           {file_version.dump(), path_, std::int64_t{version}}));
        return Document::object();
    }
    return data;
}

Document Settings::data() const {
    Document out = Document::object();
    out["version"] = version;
    out["check"] = check_->data();
    out["export"] = export_section_.data();
    out["workspace"] = workspace_.data();
    out["server"] = server_.data();
    return out;
}

void Settings::write() {
    try {
        Document fresh = data();
        // The document on disk is replaced as a whole: unknown keys go.
        file::update_shared(path_, "Settings", [&](Document& document) { document = std::move(fresh); });
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

std::optional<std::string> Settings::approved_name(std::string_view text, bool none, std::string_view method) {
    namespace filter = constants::name::filter;
    using foundation::Naming;
    if (method == filter::LATIN) return Naming::latin_filter(text);
    if (method == filter::EN_RU) return Naming::en_ru_filter(text);
    if (method == filter::SPACE) return Naming::space_filter(text);
    if (method == filter::GHOST) return Naming::ghost_filter(text);
    if (none) return std::nullopt;
    return std::string(text);
}

bool Settings::is_approved(std::string_view text, std::string_view method) {
    if (method == constants::name::filter::EMPTY) return !text.empty();
    const auto approved = approved_name(text, true, method);
    return approved && *approved == text;
}

}  // namespace zerko::settings
