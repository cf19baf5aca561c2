#pragma once
// The "workspace" and "export" sections of settings.json, and the reading of
// one key with its fixed fallback, shared by every section.
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "zerko/constants/constants.hpp"

namespace zerko::settings {

using Document = nlohmann::ordered_json;

// A key that is absent, a section that is no object, or a value of another
// kind all give the fallback: a damaged file must not stop the program.
bool read_bool(const Document& section, const char* key, bool fallback);
int read_int(const Document& section, const char* key, int fallback);
std::string read_text(const Document& section, const char* key, std::string_view fallback);
/// The section `key` of the file, or an empty object.
Document read_section(const Document& data, const char* key);

class Workspace {
public:
    explicit Workspace(const Document& data = Document::object());
    /// The file name of the current project; empty for none.
    std::string project;
    /// Whether the host asks for a newer version at start.
    bool check_updates = false;
    /// {"project", "check_updates"}.
    Document data() const;
};

class Export {
public:
    explicit Export(const Document& data = Document::object());
    /// A Constants.Export.Mode.
    int mode = constants::export_::Choose;
    /// The last export directory, in the stored form ("~" for the home directory).
    std::string directory = "~";
    /// {"mode", "directory"}.
    Document data() const;
};

}  // namespace zerko::settings
