#pragma once
// The closed vocabularies of the system. String values are format values:
// they are stored in settings and project files and sent to the server.
#include <array>
#include <string_view>

namespace zerko::constants {

namespace check {
/// Enum to switch check logic.
enum Mode : int { Selection = 0, Project = 1 };
namespace category {
inline constexpr std::string_view Scene = "scene";
inline constexpr std::string_view Object = "object";
inline constexpr std::string_view Mesh = "mesh";
inline constexpr std::string_view MeshNonManifold = "mesh non-manifold";
inline constexpr std::string_view Mapping = "mapping";
inline constexpr std::string_view Material = "material";
inline constexpr std::string_view Lod = "lod";
inline constexpr std::string_view Project = "project";
}  // namespace category
namespace result {
inline constexpr std::string_view Pass = "pass";
inline constexpr std::string_view Info = "info";
inline constexpr std::string_view Fail = "fail";
inline constexpr std::string_view Error = "error";
}  // namespace result
}  // namespace check

namespace export_ {
namespace format {
inline constexpr std::string_view FBX = "fbx";
}
/// Enum to switch export logic.
enum Mode : int { Choose = 0, Project = 1, Local = 2 };
}  // namespace export_

namespace scene::type {
inline constexpr std::string_view Ghost = "ghost";
inline constexpr std::string_view SceneRoot = "sceneRoot";
inline constexpr std::string_view Transform = "transform";
inline constexpr std::string_view Mesh = "mesh";
inline constexpr std::string_view Locator = "locator";
inline constexpr std::string_view LodGroup = "lodGroup";
}  // namespace scene::type

namespace plugin {
/// Aliases of bool values.
namespace status {
inline constexpr bool Success = true;
inline constexpr bool Failure = false;
}  // namespace status
namespace target {
inline constexpr std::string_view DCC_Maya = "maya";
inline constexpr std::string_view DCC_3dsMax = "3dsmax";
inline constexpr std::string_view DCC_Blender = "blender";
inline constexpr std::string_view Standalone = "standalone";
}  // namespace target
}  // namespace plugin

namespace name::filter {
inline constexpr std::string_view LATIN = "LATIN";
inline constexpr std::string_view EN_RU = "EN_RU";
inline constexpr std::string_view EMPTY = "EMPTY";
inline constexpr std::string_view SPACE = "SPACE";
inline constexpr std::string_view GHOST = "GHOST";
}  // namespace name::filter

/// One named leaf of the tree, for faces that publish the tree by reflection.
struct Leaf {
    std::string_view name;
    std::string_view text;  ///< string leaves
    int number;             ///< integer and truth leaves
    enum Kind { Text, Integer, Truth } kind;
};

/// One branch (e.g. "Check.Category") with its leaves in order.
struct Branch {
    std::string_view path;
    std::string_view doc;
    std::array<Leaf, 8> leaves;
    std::size_t size;
};

/// The whole tree, branch by branch, in the order of definition.
const std::array<Branch, 9>& tree();

}  // namespace zerko::constants
