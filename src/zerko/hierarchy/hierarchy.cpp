#include "zerko/hierarchy/hierarchy.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/regex.hpp"

namespace zerko::hierarchy {

Hierarchy::Hierarchy(std::shared_ptr<const scene::Virtual> query_operator, std::shared_ptr<check::Classes> check_classes)
    : query_(query_operator), check_classes_(check_classes), pattern_(std::move(check_classes)),
      search_(std::move(query_operator)) {}

bool Hierarchy::is_optional(const Scopes& pattern) {
    return std::all_of(pattern.begin(), pattern.end(), [](const auto& s) { return !s->rule || s->rule->is_optional(); });
}

bool Hierarchy::is_deadlock(const Response& response) {
    return response.location->children.empty() && response.scope->children.empty();
}

bool Hierarchy::is_ghost_root(const Scope& ghost, const std::string& path) const {
    const std::string parent = query_->get_parent(path);
    const Rule& rule = *ghost.rule;
    if (rule.types.empty()) return parent.empty();
    if (parent.empty()) return rule.admits_type(constants::scene::type::SceneRoot);
    // The ghost's expression is a plain regular expression, without anchors.
    if (!regex::Regex::compile(rule.regex)->matches(scene::Operator::name_from_path(parent))) return false;
    return rule.admits_type(query_->get_type(parent));
}

std::vector<scene::Paths> Hierarchy::root_scopes(const scene::Paths& roots) const {
    const auto ghost = pattern_.get_ghost();
    if (!ghost) return {roots};
    std::vector<scene::Paths> groups;
    std::unordered_map<std::string, std::size_t> by_parent;
    for (const auto& path : roots) {
        if (!is_ghost_root(*ghost, path)) continue;
        const auto parent = query_->get_parent(path);
        auto [it, fresh] = by_parent.emplace(parent, groups.size());
        if (fresh) groups.emplace_back();
        groups[it->second].push_back(path);
    }
    return groups;
}

bool Hierarchy::ghost_scope_match(const scene::Paths& roots) const {
    const auto ghost = pattern_.get_ghost();
    if (!ghost) return true;
    return std::all_of(roots.begin(), roots.end(), [&](const auto& p) { return is_ghost_root(*ghost, p); });
}

void Hierarchy::find_anchors() {
    Expressions expressions;
    std::unordered_set<std::string> seen;
    auto run = [&](auto&& self, const Scopes& layer) -> void {
        for (const auto& scope : layer) {
            if (scope->rule) {
                for (const auto& definition : scope->rule->definitions()) {
                    if (seen.insert(definition).second) expressions.emplace_back(definition, std::vector<Capture>{});
                }
            }
            self(self, scope->children);
        }
    };
    run(run, pattern_.get());
    search_.logic.state().set_expressions(expressions);
}

bool Hierarchy::match(const scene::Paths& roots, const Scopes& pattern) {
    return match(query_->get_locations(roots), pattern);
}

bool Hierarchy::match(std::span<const scene::Location* const> roots, const Scopes& pattern) {
    const Result result = search_.layer(roots, pattern);
    if (result.is_empty()) return is_optional(pattern);
    for (const auto& response : result) {
        if (is_deadlock(response)) continue;
        if (!match(response.location->child_locations, response.scope->children)) return false;
    }
    return true;
}

bool Hierarchy::is_valid(const scene::Paths& roots) {
    find_anchors();
    return match(roots, pattern_.get());
}

scene::Paths Hierarchy::mask(RootView roots) {
    find_anchors();
    const Result result = search_.layer(roots, pattern_.get(), false);
    scene::Paths out;
    out.reserve(result.size());
    for (const auto& r : result) out.push_back(r.location->path);
    return out;
}

scene::Paths Hierarchy::mask(const scene::Paths& roots) {
    return mask(RootView{std::span<const std::string>(roots), nullptr});
}

std::vector<std::pair<scene::Paths, bool>> Hierarchy::cut(const scene::Paths& scope) {
    std::vector<std::pair<scene::Paths, bool>> out;
    std::vector<char> removed(scope.size(), 0);
    std::unordered_map<std::string_view, std::vector<std::size_t>> positions;
    for (std::size_t i = 0; i < scope.size(); ++i) positions[scope[i]].push_back(i);
    std::size_t head = 0;  // everything before it is removed
    while (true) {
        while (head < scope.size() && removed[head]) ++head;
        const std::span<const std::string> rest(scope.data() + head, scope.size() - head);
        scene::Paths layer = mask(RootView{rest, removed.data() + head});
        if (layer.empty()) break;
        // A list removal takes the first equal element out, once per item.
        for (const auto& path : layer) {
            for (auto i : positions[path]) {
                if (!removed[i]) {
                    removed[i] = 1;
                    break;
                }
            }
        }
        const bool valid = is_valid(layer);
        out.emplace_back(std::move(layer), valid);
    }
    return out;
}

}  // namespace zerko::hierarchy
