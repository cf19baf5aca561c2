#include "zerko/api/environment.hpp"

#include <dlfcn.h>
#include <sys/utsname.h>

#include <filesystem>
#include <mutex>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::api {

namespace path = foundation::path;

// ---------------------------------------------------------------- LocalEnv

namespace {
std::mutex g_library_mutex;
std::string g_library_directory;
}  // namespace

void LocalEnv::set_library_directory(std::string directory) {
    std::lock_guard lock(g_library_mutex);
    g_library_directory = std::move(directory);
}

std::string LocalEnv::library_directory() {
    {
        std::lock_guard lock(g_library_mutex);
        if (!g_library_directory.empty()) return g_library_directory;
    }
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&LocalEnv::library_directory), &info) && info.dli_fname) {
        return std::filesystem::absolute(info.dli_fname).parent_path().string();
    }
    return std::filesystem::current_path().string();
}

LocalEnv::LocalEnv() {
    const auto group = path::join(root(), target());
    path::make_directory(group);
    settings_ = group;
    const auto projects = path::join(group, "projects");
    path::make_directory(projects);
    projects_ = projects;
    publish();
}

std::string LocalEnv::root() const {
    auto dir = path::join(library_directory(), name);
    path::make_directory(dir);
    return dir;
}

std::string LocalEnv::target() const { return std::string(constants::plugin::target::Standalone); }

std::string LocalEnv::scope() const {
    struct utsname u {};
    if (::uname(&u) != 0) return {};
    return std::string(u.sysname) + u.release;
}

std::string LocalEnv::get_settings_file() const { return path::join(settings_, "settings.json"); }
std::string LocalEnv::get_statistics_file() const { return path::join(settings_, "statistics.json"); }

// ---------------------------------------------------------------- Software

std::string Software::detect(const std::function<bool(std::string_view)>& try_load) {
    static constexpr std::pair<std::string_view, std::string_view> candidates[] = {
        {"bpy", "Blender"}, {"maya.cmds", "Maya"}, {"MaxPlus", "3dsMax"}, {"pymxs", "3dsMax"}};
    for (const auto& [module, software] : candidates) {
        if (try_load(module)) return std::string(software);
    }
    return "Unknown";
}

}  // namespace zerko::api
