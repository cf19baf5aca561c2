#pragma once
// Compare algorithm of a single hierarchy with the specific pattern: the
// ghost test of the roots, the candidate mask of the top layer, and the
// layer-by-layer validity of a whole hierarchy.
#include <memory>

#include "zerko/hierarchy/pattern.hpp"
#include "zerko/hierarchy/search.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::check {
class Classes;
}

namespace zerko::hierarchy {

class Hierarchy {
public:
    Hierarchy(std::shared_ptr<const scene::Virtual> query_operator,
              std::shared_ptr<check::Classes> check_classes = nullptr);

    Pattern& pattern() noexcept { return pattern_; }
    Search& search() noexcept { return search_; }
    const std::shared_ptr<check::Classes>& check_classes() const noexcept { return check_classes_; }

    /// Groups of roots under one parent that stand where the ghost requires
    /// (one group of all roots without a ghost).
    std::vector<scene::Paths> root_scopes(const scene::Paths& roots) const;
    bool ghost_scope_match(const scene::Paths& roots) const;
    bool is_ghost_root(const Scope& ghost, const std::string& path) const;
    /// The roots that some scope of the top layer claims, in a non-exact run.
    scene::Paths mask(const scene::Paths& roots);
    scene::Paths mask(RootView roots);
    /// Whether `roots` make up a complete and correct hierarchy.
    bool is_valid(const scene::Paths& roots);
    /// Resets the anchor state to every definition of the pattern, each with no capture.
    void find_anchors();
    /// The status of one layer and everything below it.
    bool match(const scene::Paths& roots, const Scopes& pattern);
    bool match(std::span<const scene::Location* const> roots, const Scopes& pattern);

    /// The scanner's cut of one group of roots: mask, take the claimed roots
    /// away, repeat until nothing is claimed. Each element is one candidate
    /// hierarchy with whether it is valid. Same result as calling mask and
    /// is_valid in that loop, without copying the shrinking list every time.
    std::vector<std::pair<scene::Paths, bool>> cut(const scene::Paths& scope);

    static bool is_optional(const Scopes& pattern);
    static bool is_deadlock(const Response& response);

private:
    std::shared_ptr<const scene::Virtual> query_;
    std::shared_ptr<check::Classes> check_classes_;
    Pattern pattern_;
    Search search_;
};

}  // namespace zerko::hierarchy
