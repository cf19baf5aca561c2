#include "zerko/hierarchy/search.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::hierarchy {

const scene::Location* Search::Locations::at(std::size_t i) {
    while (items_.size() <= i && next_ < roots_.paths.size()) {
        const std::size_t k = next_++;
        if (roots_.removed && roots_.removed[k]) continue;
        if (const auto* l = query_.find(roots_.paths[k])) {
            items_.push_back(l);
            taken_.push_back(0);
        }
    }
    return i < items_.size() ? items_[i] : nullptr;
}

bool Search::Locations::any_left() {
    for (std::size_t i = 0; at(i); ++i) {
        if (!taken(i)) return true;
    }
    return false;
}

const std::vector<const scene::Location*>* Search::guessed(const Rule& rule) const {
    for (const auto& [r, list] : guess_) {
        if (*r == rule) return &list;
    }
    return nullptr;
}

bool Search::scope_match(const scene::Location& location, const Scope& scope) {
    if (!scope.rule) throw ValueError("a scope of the pattern has no rule");
    const Rule& rule = *scope.rule;
    if (!rule.admits_type(location.type)) return false;
    if (!logic.match(rule.regex, location.name, location.path)) return false;
    // A leaf of the pattern admits only a leaf of the scene.
    return !(scope.children.empty() && !location.children.empty());
}

void Search::make_guess(Locations& locations, const Scopes& scopes) {
    auto& state = logic.state();
    // The captures that survive the layer so far: everything up to the last
    // object that a scope counted. Later captures are taken back.
    std::size_t shared = state.mark();
    for (const auto& scope : scopes) {
        if (!scope->rule) throw ValueError("a scope of the pattern has no rule");
        const Rule& rule = *scope->rule;
        std::int64_t count = 0;
        std::vector<std::size_t> matched;
        for (std::size_t i = 0; const auto* location = locations.at(i); ++i) {
            if (locations.taken(i) || !scope_match(*location, *scope)) continue;
            if (count + 1 > rule.range.maximum) break;
            ++count;
            matched.push_back(i);
            shared = state.mark();
        }
        if (count < rule.range.minimum) {
            restore();
            return;
        }
        std::vector<const scene::Location*> list;
        list.reserve(matched.size());
        for (auto i : matched) list.push_back(locations.at(i));
        bool replaced = false;
        for (auto& [r, l] : guess_) {
            if (*r == rule) {
                l = list;  // an equal rule shares the entry: the later list wins
                replaced = true;
            }
        }
        if (!replaced) guess_.emplace_back(&rule, std::move(list));
        // The captures of the scope stand as a fresh copy of them would:
        // the turned-down object's are gone and the hash is current.
        state.rollback(shared);
        state.make_hash();
        for (auto i : matched) locations.take(i);
    }
}

bool Search::wrong_guess(Locations& locations, const Scopes& scopes, bool exact) const {
    for (const auto& scope : scopes) {
        const auto* list = guessed(*scope->rule);
        if (!scope->rule->admits(list ? static_cast<std::int64_t>(list->size()) : 0)) return true;
    }
    return exact && locations.any_left();
}

void Search::restore() {
    // The state equals the one before the layer, hash included, as a copy
    // of it put back would.
    auto& state = logic.state();
    state.rollback(backup_);
    state.make_hash();
}

Result Search::layer(const scene::Paths& roots, const Scopes& scopes, bool exact) {
    return layer(RootView{std::span<const std::string>(roots), nullptr}, scopes, exact);
}

Result Search::layer(RootView roots, const Scopes& scopes, bool exact) {
    Locations locations(*query_, roots);
    return run(locations, scopes, exact);
}

Result Search::layer(std::span<const scene::Location* const> known, const Scopes& scopes, bool exact) {
    Locations locations(*query_, known);
    return run(locations, scopes, exact);
}

Result Search::run(Locations& locations, const Scopes& scopes, bool exact) {
    guess_.clear();
    backup_ = logic.state().mark();
    make_guess(locations, scopes);
    if (wrong_guess(locations, scopes, exact)) {
        restore();
        guess_.clear();
        return Result();
    }
    std::vector<Response> out;
    for (const auto& scope : scopes) {
        if (const auto* list = guessed(*scope->rule)) {
            for (const auto* l : *list) out.push_back(Response{l, scope});
        }
    }
    guess_.clear();
    return Result(std::move(out));
}

}  // namespace zerko::hierarchy
