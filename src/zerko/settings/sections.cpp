#include "zerko/settings/sections.hpp"

#include <limits>

namespace zerko::settings {

namespace {
const Document* find(const Document& section, const char* key) {
    if (!section.is_object()) return nullptr;
    const auto it = section.find(key);
    return it == section.end() ? nullptr : &*it;
}
}  // namespace

bool read_bool(const Document& section, const char* key, bool fallback) {
    const auto* value = find(section, key);
    return value && value->is_boolean() ? value->get<bool>() : fallback;
}

int read_int(const Document& section, const char* key, int fallback) {
    const auto* value = find(section, key);
    if (!value || !value->is_number_integer()) return fallback;
    const auto n = value->get<std::int64_t>();
    if (n < std::numeric_limits<int>::min() || n > std::numeric_limits<int>::max()) return fallback;
    return static_cast<int>(n);
}

std::string read_text(const Document& section, const char* key, std::string_view fallback) {
    const auto* value = find(section, key);
    return value && value->is_string() ? value->get<std::string>() : std::string(fallback);
}

Document read_section(const Document& data, const char* key) {
    const auto* value = find(data, key);
    return value && value->is_object() ? *value : Document::object();
}

Workspace::Workspace(const Document& data)
    : project(read_text(data, "project", "")), check_updates(read_bool(data, "check_updates", false)) {}

Document Workspace::data() const {
    Document out = Document::object();
    out["project"] = project;
    out["check_updates"] = check_updates;
    return out;
}

Export::Export(const Document& data)
    : mode(read_int(data, "mode", constants::export_::Choose)), directory(read_text(data, "directory", "~")) {}

Document Export::data() const {
    Document out = Document::object();
    out["mode"] = mode;
    out["directory"] = directory;
    return out;
}

}  // namespace zerko::settings
