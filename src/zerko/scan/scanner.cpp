#include "zerko/scan/scanner.hpp"

#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::scan {

Scanner::Scanner(std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
                 std::shared_ptr<hierarchy::Hierarchy> hierarchy, std::shared_ptr<Buffer> buffer,
                 foundation::CallBacks& callbacks)
    : op_(std::move(op)), virtual_(std::move(virtual_scene)), hierarchy_(std::move(hierarchy)),
      buffer_(std::move(buffer)), callbacks_(callbacks) {}

bool Scanner::upload_buffer(bool append) {
    const scene::Paths selection = op_->get_selection();
    std::unordered_set<std::string> loaded_set;
    scene::Paths loaded;
    for (const auto& group : buffer_->get_path_groups()) {
        for (const auto& path : group) {
            loaded.push_back(path);
            loaded_set.insert(path);
        }
    }
    if (append) {
        // An object that is loaded cannot be scanned twice.
        for (const auto& path : selection) {
            if (loaded_set.count(path)) {
                callbacks_.used_scan_selection();
                return false;
            }
        }
        // Shows the user what is loaded; the scan itself still needs a selection.
        if (selection.empty()) op_->select(loaded);
    }
    if (selection.empty()) {
        callbacks_.empty_scan_selection();
        return false;
    }
    Buckets result;
    try {
        if (!append) buffer_->erase();
        const scene::Paths scene_roots = op_->get_selection_roots();
        virtual_->upload(scene_roots);
        result = scan(find_scope_roots(scene_roots));
    } catch (...) {
        foundation::Logger::exception(std::current_exception());
        op_->select(selection);
        return false;
    }
    // The scan may have changed the selection; the user's comes back.
    op_->select(selection);
    if (result.empty()) {
        callbacks_.empty_scan_result();
        return false;
    }
    buffer_->add(result);
    buffer_->sort();
    buffer_->update();
    return true;
}

void Scanner::reload_buffer() {
    for (const auto& bucket : buffer_->get()) reload_bucket(bucket);
    buffer_->sort();
    buffer_->update();
}

void Scanner::reload_bucket(const Bucket& bucket) {
    if (!buffer_->ghost_match(*bucket)) {
        buffer_->remove(*bucket);
        return;
    }
    scene::Paths roots;
    for (const auto& path : Buffer::get_roots(*bucket->joint)) {
        if (op_->object_exists(path)) roots.push_back(path);
    }
    // The ghost test took a snapshot from the roots' top ancestors; a bucket
    // without a ghost needs one of its own roots before they are loaded.
    if (!bucket->joint->is_ghost()) virtual_->upload(roots);
    Joints result = load(roots);
    if (result.empty()) {
        buffer_->remove(*bucket);
        return;
    }
    bucket->joint = result.front();
}

scene::Paths Scanner::find_scope_roots(const scene::Paths& scene_roots) {
    const auto ghost = hierarchy_->pattern().get_ghost();
    if (!ghost || !ghost->rule || ghost->rule->types.empty() ||
        ghost->rule->admits_type(constants::scene::type::SceneRoot)) {
        return scene_roots;
    }
    // Many selected objects share their ancestors: each object's answer is
    // kept, and whether an object stands under a ghost object (which depends
    // on its parent alone) is worked out once per parent. Objects of the
    // snapshot are climbed there; anything else takes the host's own walk.
    std::unordered_map<const scene::Location*, const std::string*> known;
    std::unordered_map<const scene::Location*, bool> under_ghost;
    std::deque<std::string> outside;  // answers that are no object of the snapshot
    scene::Paths out;
    std::unordered_set<std::string_view> seen;
    auto add = [&](const std::string* found) {
        if (found && !found->empty() && seen.insert(*found).second) out.push_back(*found);
    };
    const scene::Paths selection = op_->get_selection();
    known.reserve(selection.size());
    std::vector<const scene::Location*> climbed;
    for (const auto& path : selection) {
        const scene::Location* current = virtual_->find(path);
        if (!current) {
            add(&outside.emplace_back(find_scope_root(path, *ghost, scene_roots)));
            continue;
        }
        climbed.clear();
        const std::string* found = nullptr;
        while (true) {
            if (const auto it = known.find(current); it != known.end()) {
                found = it->second;
                break;
            }
            climbed.push_back(current);
            const std::string parent = virtual_->get_parent(current->path);
            if (parent.empty()) break;
            const scene::Location* above = virtual_->find(parent);
            auto [slot, fresh] = under_ghost.try_emplace(above, false);
            if (fresh || !above) slot->second = hierarchy_->is_ghost_root(*ghost, current->path);
            if (slot->second) {
                found = &current->path;
                break;
            }
            if (!above) {
                found = &outside.emplace_back(find_scope_root(parent, *ghost, scene_roots));
                break;
            }
            current = above;
        }
        for (const auto* l : climbed) known.emplace(l, found);
        add(found);
    }
    return out;
}

std::string Scanner::find_scope_root(const std::string& path, const hierarchy::Scope& ghost,
                                     const scene::Paths& scene_roots) {
    (void)scene_roots;  // the walk does not depend on it
    std::string current = path;
    while (true) {
        const std::string parent = op_->get_parent(current);
        if (parent.empty()) return {};
        if (hierarchy_->is_ghost_root(ghost, current)) return current;
        current = parent;
    }
}

Buckets Scanner::scan(const scene::Paths& roots) {
    Buckets result;
    for (const auto& group : hierarchy_->root_scopes(roots)) {
        // Each valid candidate set cut out of the group becomes buckets.
        for (const auto& [layer, valid] : hierarchy_->cut(group)) {
            if (!valid) continue;
            for (auto& joint : load(layer)) result.push_back(std::make_shared<DataBucket>(std::move(joint)));
        }
    }
    return filter(result);
}

Buckets Scanner::filter(const Buckets& buckets) {
    struct Hash {
        std::size_t operator()(const DataBucket* b) const noexcept { return b->hash(); }
    };
    struct Equal {
        bool operator()(const DataBucket* a, const DataBucket* b) const { return *a == *b; }
    };
    std::unordered_set<const DataBucket*, Hash, Equal> seen;
    Buckets out;
    for (const auto& bucket : buckets) {
        if (seen.insert(bucket.get()).second) out.push_back(bucket);
    }
    return out;
}

Joints Scanner::load(const scene::Paths& roots) {
    hierarchy_->find_anchors();
    auto& pattern = hierarchy_->pattern();
    const auto locations = virtual_->get_locations(roots);
    if (!pattern.has_ghost()) return load(locations, pattern.get());
    Joints data = load(locations, pattern.get());
    Joints out;
    if (data.empty()) return out;
    auto ghost = std::make_shared<DataJoint>();
    ghost->name = choose_name(data);
    ghost->type = DataJoint::ghost_type;
    ghost->icon = "Ghost";
    ghost->children = std::move(data);
    out.push_back(ghost);
    op_->postscript_scan_append(ghost);
    return out;
}

Joints Scanner::load(std::span<const scene::Location* const> roots, const hierarchy::Scopes& pattern) {
    // No objects, or no scopes, give no assignment at all.
    if (roots.empty() || pattern.empty()) return {};
    return load_layer(hierarchy_->search().layer(roots, pattern));
}

Joints Scanner::load_layer(const hierarchy::Result& result) {
    Joints out;
    out.reserve(result.size());
    for (const auto& response : result) {
        const scene::Location& location = *response.location;
        auto joint = std::make_shared<DataJoint>();
        joint->children = load(location.child_locations, response.scope->children);
        joint->name = location.name;
        joint->path = location.path;
        joint->type = location.type;
        if (const auto& rule = response.scope->rule) {
            joint->stamp = rule->stamp;
            joint->icon = rule->icon;
            joint->color = rule->color;
        }
        out.push_back(joint);
        op_->postscript_scan_append(joint);
    }
    return out;
}

std::string Scanner::choose_name(const Joints& data) { return data.empty() ? std::string() : data.front()->name; }

}  // namespace zerko::scan
