#include "zerko/scene/virtual.hpp"

namespace zerko::scene {

void Virtual::offload() {
    index_.clear();
    entries_.clear();
}

void Virtual::upload(const Paths& roots, bool clear) {
    if (clear) offload();
    const auto queries = operator_->begin_queries();
    // While every path is met once, children are linked to their parent as
    // they come; a path met twice (or an upload that adds to an earlier one)
    // resolves all links by path at the end instead.
    bool fresh = clear;
    struct Pending {
        std::string path;
        Location* parent;
    };
    // Depth first, each object before its children, as a recursive walk
    // would do; an explicit stack keeps deep scenes off the call stack.
    std::vector<Pending> pending;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) pending.push_back({*it, nullptr});
    while (!pending.empty()) {
        Pending next = std::move(pending.back());
        pending.pop_back();
        const auto [entry, again] = upload_one(std::move(next.path));
        fresh = fresh && !again;
        if (!entry->exists) continue;
        auto& location = entry->location;
        if (fresh && next.parent) next.parent->child_locations.push_back(&location);
        location.child_locations.clear();
        location.child_locations.reserve(location.children.size());
        for (auto it = location.children.rbegin(); it != location.children.rend(); ++it) {
            pending.push_back({*it, &location});
        }
    }
    if (!fresh) resolve_children();
}

void Virtual::resolve_children() {
    for (auto& entry : entries_) {
        if (!entry.exists) continue;
        auto& location = entry.location;
        location.child_locations.clear();
        location.child_locations.reserve(location.children.size());
        for (const auto& c : location.children) {
            if (const auto* l = find(c)) location.child_locations.push_back(l);
        }
    }
}

std::pair<Virtual::Entry*, bool> Virtual::upload_one(std::string path) {
    Entry* entry;
    bool again = false;
    if (auto it = index_.find(path); it != index_.end()) {
        // The key views this entry's path, so the path stays; the rest is read anew.
        entry = it->second;
        entry->exists = false;
        entry->parent.clear();
        entry->location.name.clear();
        entry->location.type.clear();
        entry->location.children.clear();
        entry->location.child_locations.clear();
        again = true;
    } else {
        entry = &entries_.emplace_back();
        entry->location.path = std::move(path);
        index_.emplace(std::string_view(entry->location.path), entry);
    }
    const std::string& p = entry->location.path;
    entry->exists = operator_->object_exists(p);
    if (!entry->exists) return {entry, again};
    entry->location.name = Operator::name_from_path(p);
    entry->location.type = operator_->get_type(p);
    entry->parent = operator_->get_parent(p);
    entry->location.children = operator_->get_children(p);
    return {entry, again};
}

const Location* Virtual::find(std::string_view path) const {
    const auto it = index_.find(path);
    if (it == index_.end() || !it->second->exists) return nullptr;
    return &it->second->location;
}

bool Virtual::object_exists(const std::string& path) const {
    const auto it = index_.find(path);
    return it != index_.end() && it->second->exists;
}

std::string Virtual::get_type(const std::string& path) const {
    const auto* l = find(path);
    return l ? l->type : std::string();
}

std::string Virtual::get_parent(const std::string& path) const {
    const auto it = index_.find(path);
    return it == index_.end() ? std::string() : it->second->parent;
}

Paths Virtual::get_children(const std::string& path) const {
    const auto* l = find(path);
    return l ? l->children : Paths{};
}

std::vector<const Location*> Virtual::get_locations(const Paths& roots) const {
    std::vector<const Location*> out;
    out.reserve(roots.size());
    for (const auto& r : roots) {
        if (const auto* l = find(r)) out.push_back(l);
    }
    return out;
}

}  // namespace zerko::scene
