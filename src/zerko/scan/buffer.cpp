#include "zerko/scan/buffer.hpp"

#include <algorithm>
#include <functional>
#include <unordered_set>

#include "zerko/foundation/logger.hpp"

namespace zerko::scan {

namespace {

/// Python's str.replace: every occurrence, left to right; an empty `source`
/// inserts `target` between all characters and at both ends.
std::string replace_all(const std::string& text, const std::string& source, const std::string& target) {
    std::string out;
    if (source.empty()) {
        // Between code points, not bytes: skip UTF-8 continuation bytes.
        out += target;
        for (std::size_t i = 0; i < text.size(); ++i) {
            out += text[i];
            const bool next_continues = i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xC0) == 0x80;
            if (!next_continues) out += target;
        }
        return out;
    }
    std::size_t from = 0;
    while (true) {
        const auto at = text.find(source, from);
        if (at == std::string::npos) break;
        out.append(text, from, at - from);
        out += target;
        from = at + source.size();
    }
    out.append(text, from);
    return out;
}

/// Views of the buckets in the form the operator stores.
std::vector<scene::StoredBucket> stored(const Buckets& data) {
    std::vector<scene::StoredBucket> out;
    out.reserve(data.size());
    for (const auto& b : data) out.push_back({b->joint.get(), &b->name(), b->checked, b->opened});
    return out;
}

void walk(const std::shared_ptr<DataJoint>& joint, const std::function<void(DataJoint&)>& visit) {
    std::vector<DataJoint*> stack{joint.get()};
    while (!stack.empty()) {
        DataJoint* j = stack.back();
        stack.pop_back();
        visit(*j);
        for (auto it = j->children.rbegin(); it != j->children.rend(); ++it) stack.push_back(it->get());
    }
}

/// Reads stored data and counts what it had to drop, for one log line.
class Decoder {
public:
    Buckets buckets(const JsonDocument& data) {
        Buckets out;
        if (data.is_null()) return out;
        if (!data.is_array()) {
            problem("the stored data is not a list");
            return out;
        }
        out.reserve(data.size());
        for (const auto& item : data) {
            if (auto bucket = this->bucket(item)) out.push_back(std::move(bucket));
        }
        return out;
    }

    std::shared_ptr<DataJoint> joint(const JsonDocument& item) {
        if (!item.is_object()) {
            problem("a joint is not a map");
            return nullptr;
        }
        auto joint = std::make_shared<DataJoint>();
        for (const auto& [key, value] : item.items()) {
            if (key == "children") {
                if (!value.is_array()) {
                    if (!value.is_null()) problem("the children of a joint are not a list");
                    continue;
                }
                joint->children.reserve(value.size());
                for (const auto& child : value) {
                    if (auto c = this->joint(child)) joint->children.push_back(std::move(c));
                }
                continue;
            }
            std::string* field = key == "stamp" ? &joint->stamp
                               : key == "name"  ? &joint->name
                               : key == "path"  ? &joint->path
                               : key == "type"  ? &joint->type
                               : key == "icon"  ? &joint->icon
                               : key == "color" ? &joint->color
                                                : nullptr;
            if (!field) {
                problem("a joint has the unknown key \"" + key + "\"");
            } else if (value.is_string()) {
                *field = value.get_ref<const std::string&>();
            } else if (!value.is_null()) {
                problem("the " + key + " of a joint is not text");
            }
        }
        return joint;
    }

    void report() const {
        if (count_ == 0) return;
        foundation::Logger::warning("Scene data: " + std::to_string(count_) + " malformed part(s) dropped (first: " +
                                    first_ + ")");
    }

private:
    Bucket bucket(const JsonDocument& item) {
        if (!item.is_object()) {
            problem("a bucket is not a map");
            return nullptr;
        }
        const auto joint_it = item.find("joint");
        if (joint_it == item.end()) {
            problem("a bucket has no joint");
            return nullptr;
        }
        auto joint = this->joint(*joint_it);
        if (!joint) return nullptr;
        std::optional<std::string> name;
        bool checked = true, opened = true;
        for (const auto& [key, value] : item.items()) {
            if (key == "joint") continue;
            if (key == "name") {
                if (value.is_string()) name = value.get_ref<const std::string&>();
                else if (!value.is_null()) problem("the name of a bucket is not text");
            } else if (key == "checked" || key == "opened") {
                if (value.is_boolean()) (key == "checked" ? checked : opened) = value.get<bool>();
                else problem("the " + key + " flag of a bucket is not a boolean");
            } else {
                problem("a bucket has the unknown key \"" + key + "\"");
            }
        }
        return std::make_shared<DataBucket>(std::move(joint), std::move(name), checked, opened);
    }

    void problem(std::string what) {
        if (count_++ == 0) first_ = std::move(what);
    }

    std::size_t count_ = 0;
    std::string first_;
};

}  // namespace

DataBucket::DataBucket(std::shared_ptr<DataJoint> joint_, std::optional<std::string> name, bool checked_,
                       bool opened_)
    : joint(joint_ ? std::move(joint_) : std::make_shared<DataJoint>()), checked(checked_), opened(opened_),
      name_(name ? std::move(*name) : joint->name) {}

bool DataBucket::operator==(const DataBucket& other) const {
    return *joint == *other.joint && name_ == other.name_ && checked == other.checked && opened == other.opened;
}

std::size_t DataBucket::hash() const noexcept {
    const std::size_t h = std::hash<std::string>{}(name_) ^ (std::hash<std::string>{}(joint->stamp) << 1);
    return h ^ (static_cast<std::size_t>(checked) << 2) ^ (static_cast<std::size_t>(opened) << 3);
}

Joints DataBucket::get_joints() const {
    Joints out;
    std::vector<std::shared_ptr<DataJoint>> stack{joint};
    while (!stack.empty()) {
        auto j = std::move(stack.back());
        stack.pop_back();
        for (auto it = j->children.rbegin(); it != j->children.rend(); ++it) stack.push_back(*it);
        out.push_back(std::move(j));
    }
    return out;
}

JsonDocument DataBucket::data() const {
    const scene::StoredBucket view{joint.get(), &name_, checked, opened};
    return scene::Operator::buckets_data({&view, 1}).front();
}

Buffer::Buffer(std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
               std::shared_ptr<hierarchy::Hierarchy> hierarchy)
    : operator_(std::move(op)), virtual_(std::move(virtual_scene)), hierarchy_(std::move(hierarchy)) {}

bool Buffer::contains(const DataBucket& bucket) const {
    return std::any_of(data_.begin(), data_.end(), [&](const Bucket& b) { return *b == bucket; });
}

void Buffer::set(const Buckets& data) {
    clear_(Buckets(data_));
    data_.insert(data_.end(), data.begin(), data.end());
}

void Buffer::add(const Buckets& data) { data_.insert(data_.end(), data.begin(), data.end()); }

void Buffer::remove(const DataBucket& bucket) {
    const auto it = std::find_if(data_.begin(), data_.end(), [&](const Bucket& b) { return *b == bucket; });
    if (it != data_.end()) data_.erase(it);
}

void Buffer::load() {
    JsonDocument raw;
    try {
        raw = operator_->query_filedata();
    } catch (const std::exception& e) {
        // A host that cannot give its data opens with an empty buffer.
        foundation::Logger::warning(std::string("Scene data could not be read: ") + e.what());
        raw = JsonDocument::array();
    }
    set(decode(raw));
}

void Buffer::rename(const std::string& source, const std::string& target) {
    for (const auto& bucket : data_) {
        if (bucket->name().find(source) != std::string::npos) bucket->set_name(replace_all(bucket->name(), source, target));
    }
}

void Buffer::repath(const std::string& source, const std::string& target) {
    for (const auto& bucket : data_) {
        walk(bucket->joint, [&](DataJoint& j) {
            if (j.path.find(source) != std::string::npos) j.path = replace_all(j.path, source, target);
        });
    }
}

void Buffer::clear(bool selected) {
    if (!selected) {
        erase();
        return;
    }
    clear_(get_checked());
    update();
}

void Buffer::clear_(const Buckets& array) {
    for (const auto& bucket : array) {
        remove(*bucket);
        for (const auto& joint : bucket->get_joints()) operator_->postscript_scan_remove(joint);
    }
}

void Buffer::erase() {
    operator_->erase_filedata();
    virtual_->offload();
    // Every bucket goes: the list is emptied at once rather than one search
    // and one shift per bucket, then the host hears of each joint.
    const Buckets gone = std::move(data_);
    data_.clear();
    for (const auto& bucket : gone) {
        for (const auto& joint : bucket->get_joints()) operator_->postscript_scan_remove(joint);
    }
    incompatibles_.clear();
}

void Buffer::update() {
    // Views of the buckets: nothing the host does between the two calls can change them.
    const auto raw = stored(data_);
    operator_->erase_filedata();
    operator_->embed_buckets(raw);
}

void Buffer::sort(Joints& joints) {
    for (const auto& joint : joints) sort(joint->children);
    std::stable_sort(joints.begin(), joints.end(), [](const auto& a, const auto& b) { return a->name < b->name; });
}

void Buffer::sort() {
    // The top joints are sorted in a list of their own, so the buckets keep their order.
    Joints top;
    top.reserve(data_.size());
    for (const auto& bucket : data_) top.push_back(bucket->joint);
    sort(top);
}

void Buffer::validate() {
    incompatibles_.clear();
    const auto groups = get_path_groups();
    scene::Paths scene_roots;
    for (const auto& group : groups) scene_roots.insert(scene_roots.end(), group.begin(), group.end());
    virtual_->upload(scene_roots);
    for (const auto& group : groups) {
        if (!hierarchy_->is_valid(group)) incompatibles_.push_back(group);
    }
}

std::vector<scene::Paths> Buffer::incompatibles() {
    validate();
    return incompatibles_;
}

bool Buffer::is_valid() {
    if (!exists() || !ghosts_match() || !is_match()) return false;
    return incompatibles().empty();
}

bool Buffer::ghosts_match() {
    return std::all_of(data_.begin(), data_.end(), [&](const Bucket& b) { return ghost_match(*b); });
}

bool Buffer::ghost_match(const DataBucket& bucket) {
    if (!bucket.joint->is_ghost()) return true;
    const auto roots = get_roots(*bucket.joint);
    // The snapshot must reach the ghost object above the roots: it is taken
    // from the top-most ancestor of each root that still exists.
    scene::Paths tops;
    for (const auto& path : roots) {
        if (!operator_->object_exists(path)) continue;
        std::string top = path;
        for (std::string parent = operator_->get_parent(top); !parent.empty(); parent = operator_->get_parent(top)) {
            top = std::move(parent);
        }
        tops.push_back(std::move(top));
    }
    virtual_->upload(tops);
    return hierarchy_->ghost_scope_match(roots);
}

bool Buffer::is_match() {
    Joints top;
    top.reserve(data_.size());
    for (const auto& bucket : data_) top.push_back(bucket->joint);
    return is_match(top);
}

bool Buffer::is_match(const Joints& joints) {
    for (const auto& joint : joints) {
        // A ghost joint is answered by its children.
        if (joint->is_ghost()) {
            if (!is_match(joint->children)) return false;
            continue;
        }
        if (!operator_->object_exists(joint->path)) return false;
        if (operator_->get_children(joint->path).size() != joint->children.size()) return false;
        if (!is_match(joint->children)) return false;
    }
    return true;
}

std::vector<scene::Paths> Buffer::get_path_groups() const {
    std::vector<scene::Paths> out;
    out.reserve(data_.size());
    for (const auto& bucket : data_) out.push_back(get_roots(*bucket->joint));
    return out;
}

scene::Paths Buffer::get_roots(const DataJoint& joint) {
    if (!joint.is_ghost()) return {joint.path};
    scene::Paths out;
    out.reserve(joint.children.size());
    for (const auto& child : joint.children) out.push_back(child->path);
    return out;
}

Buckets Buffer::get_checked() const {
    Buckets out;
    std::copy_if(data_.begin(), data_.end(), std::back_inserter(out), [](const Bucket& b) { return b->checked; });
    return out;
}

JsonDocument Buffer::joint_data(const DataJoint& joint) { return scene::Operator::joint_data(joint); }

JsonDocument Buffer::encode(const Buckets& data) { return scene::Operator::buckets_data(stored(data)); }

Buckets Buffer::decode(const JsonDocument& data) {
    Decoder decoder;
    auto out = decoder.buckets(data);
    decoder.report();
    return out;
}

}  // namespace zerko::scan
