#include "zerko/scene/joint.hpp"

#include <functional>

namespace zerko::scene {

std::size_t DataJoint::hash() const noexcept {
    std::size_t seed = 0;
    for (const std::string* field : {&stamp, &name, &path, &type}) {
        seed ^= std::hash<std::string>{}(*field) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    }
    return seed;
}

}  // namespace zerko::scene
