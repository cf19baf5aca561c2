#pragma once
// The "workspace" and "export" sections of settings.json.
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

#include "zerko/constants/constants.hpp"
#include "zerko/file/json.hpp"

namespace zerko::settings {

using Document = JsonDocument;

// Every section reads its keys with the fixed fallbacks of the JSON layer.
using file::read_bool;
using file::read_int;
using file::read_section;
using file::read_text;

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
