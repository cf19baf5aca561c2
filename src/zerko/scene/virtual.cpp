#include "zerko/scene/virtual.hpp"

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::scene {

void Virtual::refuse(const char* operation) const {
    throw Exception(std::string("Scene snapshot: ") + operation +
                    " was called while an upload runs; the snapshot serves one thread at a time, "
                    "and host calls made by the upload may not change it");
}

void Virtual::offload() {
    if (uploading_.load()) refuse("offload");
    index_.clear();
    entries_.clear();
    used_ = 0;
}

void Virtual::upload(const Paths& roots, bool clear) {
    if (uploading_.exchange(true)) refuse("upload");
    struct Release {
        std::atomic<bool>& flag;
        ~Release() { flag.store(false); }
    } release{uploading_};
    walk(roots, clear);
}

void Virtual::walk(const Paths& roots, bool clear) {
    if (clear) {
        // A new snapshot of a scene is about as large as the last one: the
        // index is sized once instead of growing step by step, and the old
        // entries are forgotten but kept, so their memory serves the new
        // objects instead of being freed and taken again one piece at a time.
        const std::size_t previous = used_;
        index_.clear();
        used_ = 0;
        index_.reserve(previous);
    }
    const auto queries = operator_->begin_queries();
    // While every path is met once, children are linked to their parent as
    // they come; a path met twice (or an upload that adds to an earlier one)
    // resolves all links by path at the end instead.
    bool fresh = clear;
    struct Pending {
        const std::string* path;  // in `roots` or in a stored location's children
        Location* parent;
        std::size_t depth;
    };
    // Depth first, each object before its children, as a recursive walk
    // would do; an explicit stack keeps deep scenes off the call stack.
    // Entries live in a deque, so the children lists that pending paths
    // point into stay where they are while the walk adds entries.
    std::vector<Pending> pending;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) pending.push_back({&*it, nullptr, 0});
    // The ancestors of the next object, marked, so that a child that is one
    // of them is seen at once. Reading it again would walk the cycle forever
    // and replace the children list that pending paths still point into.
    std::vector<Entry*> branch;
    struct Unmark {  // also when a host call fails half-way
        std::vector<Entry*>& branch;
        ~Unmark() {
            for (Entry* entry : branch) entry->on_branch = false;
        }
    } unmark{branch};
    // Children to take out of their parents' lists once the walk is over.
    std::vector<std::pair<Location*, std::string>> cut;
    while (!pending.empty()) {
        const Pending next = pending.back();
        pending.pop_back();
        while (branch.size() > next.depth) {
            branch.back()->on_branch = false;
            branch.pop_back();
        }
        const auto [entry, met] = upload_one(*next.path);
        if (met == Met::Ancestor) {
            cut.emplace_back(next.parent, *next.path);
            continue;
        }
        fresh = fresh && met == Met::New;
        if (!entry->exists) continue;
        auto& location = entry->location;
        if (fresh && next.parent) next.parent->child_locations.push_back(&location);
        location.child_locations.clear();
        location.child_locations.reserve(location.children.size());
        entry->on_branch = true;
        branch.push_back(entry);
        for (auto it = location.children.rbegin(); it != location.children.rend(); ++it) {
            pending.push_back({&*it, &location, next.depth + 1});
        }
    }
    if (!cut.empty()) {
        for (const auto& [parent, child] : cut) std::erase(parent->children, child);
        // One line per upload: a broken scene may repeat the fault many times.
        foundation::Logger::warning("The scene's hierarchy has a cycle: \"" + cut.front().first->path +
                                    "\" lists its own ancestor \"" + cut.front().second + "\" as a child; " +
                                    std::to_string(cut.size()) + " such link(s) are left out of the snapshot");
    }
    if (!fresh) resolve_children();
}

void Virtual::resolve_children() {
    for (std::size_t i = 0; i < used_; ++i) {
        Entry& entry = entries_[i];
        if (!entry.exists) continue;
        auto& location = entry.location;
        location.child_locations.clear();
        location.child_locations.reserve(location.children.size());
        for (const auto& c : location.children) {
            if (const auto* l = find(c)) location.child_locations.push_back(l);
        }
    }
}

std::pair<Virtual::Entry*, Virtual::Met> Virtual::upload_one(const std::string& path) {
    // One probe finds the path or the slot where it goes.
    auto [slot, found] = index_.find_slot(path);
    if (found && found->on_branch) return {found, Met::Ancestor};
    Entry* entry;
    Met met = Met::New;
    if (found) {
        // The path stays; the rest is read anew.
        entry = found;
        entry->forget();
        met = Met::Again;
    } else {
        if (used_ < entries_.size()) {
            entry = &entries_[used_];
            entry->forget();
        } else {
            entry = &entries_.emplace_back();
        }
        ++used_;
        entry->location.path.assign(path);
        index_.insert(slot, entry);
    }
    const std::string& p = entry->location.path;
    entry->exists = operator_->object_exists(p);
    if (!entry->exists) return {entry, met};
    entry->location.name = Operator::name_from_path(p);
    entry->location.type = operator_->get_type(p);
    entry->parent = operator_->get_parent(p);
    entry->location.children = operator_->get_children(p);
    return {entry, met};
}

const Location* Virtual::find(std::string_view path) const {
    const Entry* entry = index_.find(path);
    if (!entry || !entry->exists) return nullptr;
    return &entry->location;
}

bool Virtual::object_exists(const std::string& path) const {
    const Entry* entry = index_.find(path);
    return entry && entry->exists;
}

std::string Virtual::get_type(const std::string& path) const {
    const auto* l = find(path);
    return l ? l->type : std::string();
}

std::string Virtual::get_parent(const std::string& path) const {
    const std::string* parent = stored_parent(path);
    return parent ? *parent : std::string();
}

const std::string* Virtual::stored_parent(std::string_view path) const {
    const Entry* entry = index_.find(path);
    return entry && entry->exists ? &entry->parent : nullptr;
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

// ---- Index ------------------------------------------------------------------

Virtual::Entry* Virtual::Index::find(std::string_view path) const {
    if (slots_.empty()) return nullptr;
    const std::size_t hash = std::hash<std::string_view>{}(path);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
        const Slot& slot = slots_[i];
        if (!slot.entry) return nullptr;
        if (slot.hash == hash && slot.entry->location.path == path) return slot.entry;
    }
}

std::pair<Virtual::Index::Place, Virtual::Entry*> Virtual::Index::find_slot(std::string_view path) {
    // At most half full, so probes stay short and an empty slot always exists.
    if ((size_ + 1) * 2 > slots_.size()) grow();
    const std::size_t hash = std::hash<std::string_view>{}(path);
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = hash & mask;
    for (; slots_[i].entry; i = (i + 1) & mask) {
        if (slots_[i].hash == hash && slots_[i].entry->location.path == path) return {{i, hash}, slots_[i].entry};
    }
    return {{i, hash}, nullptr};
}

void Virtual::Index::insert(Place place, Entry* entry) {
    slots_[place.index] = {place.hash, entry};
    ++size_;
}

void Virtual::Index::reserve(std::size_t count) {
    std::size_t capacity = 16;
    while (capacity < count * 2) capacity *= 2;
    if (capacity <= slots_.size()) return;
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(capacity, Slot{});
    const std::size_t mask = capacity - 1;
    for (const Slot& slot : old) {
        if (!slot.entry) continue;
        std::size_t i = slot.hash & mask;
        while (slots_[i].entry) i = (i + 1) & mask;
        slots_[i] = slot;
    }
}

void Virtual::Index::grow() { reserve(slots_.empty() ? 8 : slots_.size()); }

void Virtual::Index::clear() {
    slots_.clear();
    size_ = 0;
}

}  // namespace zerko::scene
