#pragma once
// The four switches that go with every exporter. Their data form is stored in
// project records, so the keys are a file format.
#include "zerko/file/json.hpp"

namespace zerko::export_ {

using Document = file::Document;

class Flags {
public:
    /// Passed to the exporter.
    bool automatic_uv = false;
    /// Passed to the exporter.
    bool triangulate = false;
    /// Passed to the exporter.
    bool reset_xforms = false;
    /// Each export writes a file with a new version number.
    bool version_control = false;

    /// {"automatic_uv", "triangulate", "reset_xforms", "version_control"}, in that order.
    Document data() const;
    /// Sets every field from `data`; a missing key (or a value that is no
    /// boolean) sets false, whatever the field held before.
    void load(const Document& data);
};

}  // namespace zerko::export_
