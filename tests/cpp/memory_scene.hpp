#pragma once
// An in-memory scene for C++ tests and benchmarks: paths "|a|b" as in Maya.
#include <string>
#include <unordered_map>
#include <vector>

#include "zerko/scene/operator.hpp"

namespace zerko::testing {

class MemoryScene : public scene::Operator {
public:
    MemoryScene() : Operator({{"transform", "transform"}, {"mesh", "mesh"}, {"locator", "locator"}}) {}

    /// Adds an object under `parent` ("" for the top); returns its path.
    std::string add(const std::string& parent, const std::string& name, const std::string& type) {
        const std::string path = parent + "|" + name;
        types_[path] = type;
        parents_[path] = parent;
        children_[parent].push_back(path);
        children_[path];
        return path;
    }

    bool object_exists(const std::string& path) const override { return types_.count(path) != 0; }
    std::string get_type(const std::string& path) const override { return types_.at(path); }
    std::string get_parent(const std::string& path) const override {
        const auto it = parents_.find(path);
        return it == parents_.end() ? std::string() : it->second;
    }
    scene::Paths get_children(const std::string& path) const override {
        const auto it = children_.find(path);
        return it == children_.end() ? scene::Paths{} : it->second;
    }
    scene::Paths get_selection() const override { return selection; }
    void select(const scene::Paths& paths) override { selection = paths; }
    const scene::Paths& top() const { return children_.at(""); }

    scene::Paths selection;

private:
    std::unordered_map<std::string, std::string> types_, parents_;
    std::unordered_map<std::string, scene::Paths> children_{{"", {}}};
};

}  // namespace zerko::testing
