#pragma once
// One item of a stored hierarchy: what the scan found at one place of the
// scene, with the rule it fitted. Plain data, so that the operator can hand
// it to the host and the buffer can write it into the scene file.
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zerko::scene {

struct DataJoint;
using Joints = std::vector<std::shared_ptr<DataJoint>>;

struct DataJoint {
    /// The stamp of the rule the object fitted: the key of its checklist.
    std::string stamp;
    std::string name;
    std::string path = "|";
    std::string type;
    Joints children;
    std::string icon;
    std::string color = "none";

    /// A ghost joint stands for the surroundings of the roots below it.
    bool is_ghost() const noexcept { return type == ghost_type; }
    /// Equal on stamp, name, path and type; children, icon and color are not compared.
    bool operator==(const DataJoint& other) const noexcept {
        return stamp == other.stamp && name == other.name && path == other.path && type == other.type;
    }
    /// A hash over the compared fields.
    std::size_t hash() const noexcept;

    static constexpr std::string_view ghost_type = "ghost";
};

/// One stored hierarchy as the scene file holds it: a view of a bucket.
struct StoredBucket {
    const DataJoint* joint;
    const std::string* name;
    bool checked;
    bool opened;
};
using StoredBuckets = std::span<const StoredBucket>;

}  // namespace zerko::scene
