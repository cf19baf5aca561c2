#pragma once
// The hierarchies a scan found, kept in memory and written into the scene
// file through the operator, so that they survive a save and a reopen; and
// the tests that tell whether they still agree with the open scene.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zerko/foundation/json_document.hpp"
#include "zerko/hierarchy/hierarchy.hpp"
#include "zerko/scene/joint.hpp"
#include "zerko/scene/operator.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::scan {

using scene::DataJoint;
using scene::Joints;

/// One stored hierarchy: its top joint and what the user set on it.
class DataBucket {
public:
    /// The name starts as the joint's name unless one is given.
    explicit DataBucket(std::shared_ptr<DataJoint> joint, std::optional<std::string> name = std::nullopt,
                        bool checked = true, bool opened = true);

    std::shared_ptr<DataJoint> joint;
    bool checked = true;
    bool opened = true;

    const std::string& name() const noexcept { return name_; }
    void set_name(std::string name) { name_ = std::move(name); }

    /// Equal when the top joints, the names and both flags are equal.
    bool operator==(const DataBucket& other) const;
    std::size_t hash() const noexcept;
    /// Every joint from the top one down, depth first.
    Joints get_joints() const;
    /// The map stored in the scene file.
    JsonDocument data() const;

private:
    std::string name_;
};

using Bucket = std::shared_ptr<DataBucket>;
using Buckets = std::vector<Bucket>;

class Buffer {
public:
    Buffer(std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
           std::shared_ptr<hierarchy::Hierarchy> hierarchy);

    /// Whether a bucket equal to `bucket` is stored.
    bool contains(const DataBucket& bucket) const;
    /// A copy of the list of buckets.
    Buckets get() const { return data_; }
    /// Replaces the content; the former buckets go as by clear.
    void set(const Buckets& data);
    void add(const Buckets& data);
    /// Removes the first bucket equal to `bucket`; nothing when there is none.
    void remove(const DataBucket& bucket);

    /// Reads the scene file's data. What cannot be read is dropped with one
    /// log line; this never raises, so a scene always opens.
    void load();

    /// Replaces each occurrence of `source` in the buckets' names.
    void rename(const std::string& source, const std::string& target);
    /// Replaces each occurrence of `source` in every joint's path.
    void repath(const std::string& source, const std::string& target);

    /// Without `selected`, erase(); else drops the checked buckets and rewrites the scene data.
    void clear(bool selected = false);
    /// Erases the scene data, the snapshot and every bucket.
    void erase();
    /// Writes the buckets into the scene file.
    void update();
    /// Sorts the children of every joint by name, at all depths; the buckets keep their order.
    void sort();
    static void sort(Joints& joints);

    bool exists() const noexcept { return !data_.empty(); }
    /// Collects the root groups that no longer make a valid hierarchy.
    void validate();
    /// validate(), then the groups it found.
    std::vector<scene::Paths> incompatibles();
    bool is_valid();
    bool ghosts_match();
    bool ghost_match(const DataBucket& bucket);
    /// Whether every stored joint still exists with as many children as it had.
    bool is_match();
    bool is_match(const Joints& joints);

    std::vector<scene::Paths> get_path_groups() const;
    /// The children's paths of a ghost joint; else the joint's own path.
    static scene::Paths get_roots(const DataJoint& joint);
    Buckets get_checked() const;

    static JsonDocument encode(const Buckets& data);
    /// The buckets of a stored list. Malformed parts are dropped (or take
    /// their defaults) and reported in one log line.
    static Buckets decode(const JsonDocument& data);
    static JsonDocument joint_data(const DataJoint& joint);

    const std::vector<scene::Paths>& incompatible_groups() const noexcept { return incompatibles_; }
    const std::shared_ptr<scene::Operator>& op() const noexcept { return operator_; }

private:
    void clear_(const Buckets& array);

    Buckets data_;
    std::shared_ptr<scene::Operator> operator_;
    std::vector<scene::Paths> incompatibles_;
    std::shared_ptr<scene::Virtual> virtual_;
    std::shared_ptr<hierarchy::Hierarchy> hierarchy_;
};

}  // namespace zerko::scan
