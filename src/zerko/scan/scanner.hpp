#pragma once
// A search & load interface for hierarchies that match the hierarchy pattern
// of the loaded project: from the selection to buckets in the buffer.
#include <memory>
#include <span>
#include <string>

#include "zerko/foundation/callbacks.hpp"
#include "zerko/hierarchy/hierarchy.hpp"
#include "zerko/scan/buffer.hpp"

namespace zerko::scan {

class Scanner {
public:
    /// `callbacks` must outlive the scanner.
    Scanner(std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
            std::shared_ptr<hierarchy::Hierarchy> hierarchy, std::shared_ptr<Buffer> buffer,
            foundation::CallBacks& callbacks);

    /// Scans the selection into the buffer; with `append` the stored buckets
    /// stay. Success or Failure; errors of the scan are logged, never raised.
    bool upload_buffer(bool append = false);
    /// Brings every stored bucket up to date with the scene.
    void reload_buffer();

    /// The roots the scan starts from: the objects right under a ghost
    /// object, found from the selection; the scene roots without a ghost.
    scene::Paths find_scope_roots(const scene::Paths& scene_roots);
    /// The first object, from `path` upwards, that stands under an object fitting the ghost; empty for none.
    std::string find_scope_root(const std::string& path, const hierarchy::Scope& ghost,
                                const scene::Paths& scene_roots);
    /// Cuts each group of roots into hierarchies and loads the valid ones.
    Buckets scan(const scene::Paths& roots);
    /// The buckets without repeats, the first of equal ones staying.
    static Buckets filter(const Buckets& buckets);
    /// The joint trees of a valid hierarchy: one ghost joint over the roots
    /// when the pattern has a ghost, else one joint per root.
    Joints load(const scene::Paths& roots);
    /// The joints of one layer and everything below it.
    Joints load(std::span<const scene::Location* const> roots, const hierarchy::Scopes& pattern);
    static std::string choose_name(const Joints& data);
    void reload_bucket(const Bucket& bucket);

private:
    Joints load_layer(const hierarchy::Result& result);

    std::shared_ptr<scene::Operator> op_;
    std::shared_ptr<scene::Virtual> virtual_;
    std::shared_ptr<hierarchy::Hierarchy> hierarchy_;
    std::shared_ptr<Buffer> buffer_;
    foundation::CallBacks& callbacks_;
};

}  // namespace zerko::scan
