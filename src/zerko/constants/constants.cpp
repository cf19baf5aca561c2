#include "zerko/constants/constants.hpp"

namespace zerko::constants {

namespace {
constexpr Leaf text(std::string_view name, std::string_view value) { return {name, value, 0, Leaf::Text}; }
constexpr Leaf integer(std::string_view name, int value) { return {name, {}, value, Leaf::Integer}; }
constexpr Leaf truth(std::string_view name, bool value) { return {name, {}, value ? 1 : 0, Leaf::Truth}; }
}  // namespace

const std::array<Branch, 9>& tree() {
    namespace cat = check::category;
    namespace res = check::result;
    namespace st = scene::type;
    namespace tg = plugin::target;
    namespace nf = name::filter;
    static const std::array<Branch, 9> branches{{
        {"Check.Mode", "Enum to switch check logic.",
         {integer("Selection", check::Selection), integer("Project", check::Project)}, 2},
        {"Check.Category", "",
         {text("Scene", cat::Scene), text("Object", cat::Object), text("Mesh", cat::Mesh),
          text("MeshNonManifold", cat::MeshNonManifold), text("Mapping", cat::Mapping),
          text("Material", cat::Material), text("Lod", cat::Lod), text("Project", cat::Project)},
         8},
        {"Check.Result", "",
         {text("Pass", res::Pass), text("Info", res::Info), text("Fail", res::Fail), text("Error", res::Error)}, 4},
        {"Export.Format", "", {text("FBX", export_::format::FBX)}, 1},
        {"Export.Mode", "Enum to switch export logic.",
         {integer("Choose", export_::Choose), integer("Project", export_::Project),
          integer("Local", export_::Local)},
         3},
        {"Scene.Type", "",
         {text("Ghost", st::Ghost), text("SceneRoot", st::SceneRoot), text("Transform", st::Transform),
          text("Mesh", st::Mesh), text("Locator", st::Locator), text("LodGroup", st::LodGroup)},
         6},
        {"Plugin.Status", "Aliases of bool values.",
         {truth("Success", plugin::status::Success), truth("Failure", plugin::status::Failure)}, 2},
        {"Plugin.Target", "",
         {text("DCC_Maya", tg::DCC_Maya), text("DCC_3dsMax", tg::DCC_3dsMax),
          text("DCC_Blender", tg::DCC_Blender), text("Standalone", tg::Standalone)},
         4},
        {"Name.Filter", "",
         {text("LATIN", nf::LATIN), text("EN_RU", nf::EN_RU), text("EMPTY", nf::EMPTY),
          text("SPACE", nf::SPACE), text("GHOST", nf::GHOST)},
         5},
    }};
    return branches;
}

}  // namespace zerko::constants
