#include "zerko/export/flags.hpp"

namespace zerko::export_ {

Document Flags::data() const {
    Document result = Document::object();
    result["automatic_uv"] = automatic_uv;
    result["triangulate"] = triangulate;
    result["reset_xforms"] = reset_xforms;
    result["version_control"] = version_control;
    return result;
}

void Flags::load(const Document& data) {
    automatic_uv = file::read_bool(data, "automatic_uv", false);
    triangulate = file::read_bool(data, "triangulate", false);
    reset_xforms = file::read_bool(data, "reset_xforms", false);
    version_control = file::read_bool(data, "version_control", false);
}

}  // namespace zerko::export_
