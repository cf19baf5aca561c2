#include "zerko/settings/sections.hpp"

namespace zerko::settings {

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
