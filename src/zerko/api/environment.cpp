#include "zerko/api/environment.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
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

std::string LocalEnv::writable_root() {
    const std::string beside = path::join(library_directory(), name);
    // The folder beside the library serves when its layout can be made and a
    // file written in it; a system or read-only install fails the test.
    try {
        path::make_directory(beside);
        const auto group = path::join(beside, constants::plugin::target::Standalone);
        path::make_directory(group);
        const auto probe = path::join(group, ".write-test-" + std::to_string(::getpid()));
        const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (fd >= 0) {
            ::close(fd);
            ::unlink(probe.c_str());
            return beside;
        }
    } catch (const FileNotFoundError&) {
    }
    const auto& home = user_home();
    if (!home) return beside;  // nowhere else to go: creating the layout reports the failure
    const std::string fallback = path::join(*home, name);
    foundation::Logger::info("The folder beside the library (" + beside + ") cannot be written; settings, projects and "
                             "statistics are kept in " + fallback);
    return fallback;
}

LocalEnv::LocalEnv() : root_(writable_root()) {
    const auto group = path::join(root(), target());
    path::make_directory(group);
    settings_ = group;
    const auto projects = path::join(group, "projects");
    path::make_directory(projects);
    projects_ = projects;
    publish();
}

std::string LocalEnv::root() const {
    path::make_directory(root_);
    return root_;
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
