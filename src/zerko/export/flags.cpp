#include "zerko/export/flags.hpp"

namespace zerko::export_ {

namespace {

bool flag(const Document& data, const char* key) {
    if (!data.is_object()) return false;
    auto found = data.find(key);
    return found != data.end() && found->is_boolean() && found->get<bool>();
}

}  // namespace

Document Flags::data() const {
    Document result = Document::object();
    result["automatic_uv"] = automatic_uv;
    result["triangulate"] = triangulate;
    result["reset_xforms"] = reset_xforms;
    result["version_control"] = version_control;
    return result;
}

void Flags::load(const Document& data) {
    automatic_uv = flag(data, "automatic_uv");
    triangulate = flag(data, "triangulate");
    reset_xforms = flag(data, "reset_xforms");
    version_control = flag(data, "version_control");
}

}  // namespace zerko::export_
