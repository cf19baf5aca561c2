#include "zerko/scene/virtual.hpp"

namespace zerko::scene {

void Virtual::offload() {
    index_.clear();
    entries_.clear();
}

void Virtual::upload(const Paths& roots, bool clear) {
    if (clear) offload();
    // Depth first, each object before its children, as a recursive walk
    // would do; an explicit stack keeps deep scenes off the call stack.
    std::vector<std::string> pending(roots.rbegin(), roots.rend());
    while (!pending.empty()) {
        const std::string path = std::move(pending.back());
        pending.pop_back();
        const Entry* entry = upload_one(path);
        if (!entry->exists) continue;
        const auto& children = entry->location.children;
        pending.insert(pending.end(), children.rbegin(), children.rend());
    }
    resolve_children();
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

const Virtual::Entry* Virtual::upload_one(const std::string& path) {
    Entry* entry;
    if (auto it = index_.find(path); it != index_.end()) {
        entry = it->second;
        *entry = Entry{};
    } else {
        entry = &entries_.emplace_back();
        index_.emplace(path, entry);
    }
    entry->exists = operator_->object_exists(path);
    if (!entry->exists) return entry;
    entry->location.path = path;
    entry->location.name = Operator::name_from_path(path);
    entry->location.type = operator_->get_type(path);
    entry->parent = operator_->get_parent(path);
    entry->location.children = operator_->get_children(path);
    return entry;
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
