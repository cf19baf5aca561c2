#include "zerko/constants/mask.hpp"

#include <algorithm>

#include "zerko/constants/constants.hpp"

namespace zerko::constants {

namespace {
Mask::ItemPtr item(std::vector<std::string_view> constants, std::string name, std::string attr, bool mapped) {
    return std::make_shared<Mask::Item>(std::vector<std::string>(constants.begin(), constants.end()),
                                        std::move(name), std::move(attr), mapped);
}
namespace st = scene::type;
}  // namespace

Mask::Set::Set(std::vector<ItemPtr> items) : items_(std::move(items)) {
    for (const auto& i : items_) {
        if (!i->attr().empty()) fields_.insert_or_assign(i->attr(), i);
    }
}

Mask::ItemPtr Mask::Set::field(std::string_view attr) const {
    const auto it = fields_.find(attr);
    return it == fields_.end() ? nullptr : it->second;
}

void Mask::Set::remove(const std::vector<ItemPtr>& unexpected) {
    for (const auto& u : unexpected) {
        const auto it = std::find(items_.begin(), items_.end(), u);
        if (it != items_.end()) items_.erase(it);
    }
}

Mask::Ghost::Ghost()
    : Set({item({st::SceneRoot}, "scene root", "SceneRoot", true), item({st::Transform}, "group", "Transform", true),
           item({st::Locator}, "locator", "Locator", true),
           item({st::Locator, st::Transform}, "group or locator", "TransformLocator", true)}) {}

Mask::Type::Type()
    : Set({item({st::Locator, st::Transform}, "Loc. or Group", "TransformLocator", true),
           item({st::Locator}, "Locator", "Locator", true), item({st::Transform}, "Group", "Transform", true),
           item({st::LodGroup}, "LOD Group", "LodGroup", true), item({st::Mesh}, "Mesh", "Mesh", true),
           item({}, "Any", "Any", false)}) {}

Mask::Result::Result()
    : Set({item({check::result::Fail}, "Fail", "Fail", false),
           item({check::result::Fail, check::result::Info}, "Fail & Info", "FailInfo", false)}) {}

Mask::Mask(TypeMapping mapping) : mapping_(std::move(mapping)) {
    filter(*ghost_);
    filter(*type_);
    filter(*result_);
}

void Mask::filter(Set& set) const {
    // Collected first, removed after the walk.
    std::vector<ItemPtr> unexpected;
    for (const auto& i : set.items()) {
        if (!i->mapped()) continue;
        for (const auto& c : i->constants()) {
            if (!mapping_.exist(c)) {
                unexpected.push_back(i);
                break;
            }
        }
    }
    set.remove(unexpected);
}

}  // namespace zerko::constants
