#include "zerko/api/environment.hpp"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::api {

namespace process {
namespace {
std::atomic<Setter> g_setter{nullptr};
}
void set_setter(Setter setter) { g_setter.store(setter); }
void set_variable(const std::string& name, const std::string& value) {
    if (auto s = g_setter.load()) {
        s(name, value);
    } else {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
}
std::optional<std::string> get_variable(const std::string& name) {
    const char* v = std::getenv(name.c_str());
    return v ? std::optional<std::string>(v) : std::nullopt;
}
}  // namespace process

namespace path {

std::string normalise(std::string_view p) {
    if (p.empty()) return ".";
    // POSIX keeps exactly two leading slashes, and folds three or more to one.
    std::size_t initial = 0;
    if (p[0] == '/') initial = (p.size() > 1 && p[1] == '/' && (p.size() == 2 || p[2] != '/')) ? 2 : 1;
    std::vector<std::string_view> parts;
    std::size_t i = 0;
    while (i <= p.size()) {
        const auto slash = p.find('/', i);
        const auto part = p.substr(i, slash == std::string_view::npos ? std::string_view::npos : slash - i);
        if (part.empty() || part == ".") {
            // skip
        } else if (part != "..") {
            parts.push_back(part);
        } else if ((!initial && parts.empty()) || (!parts.empty() && parts.back() == "..")) {
            parts.push_back(part);
        } else if (!parts.empty()) {
            parts.pop_back();
        }
        if (slash == std::string_view::npos) break;
        i = slash + 1;
    }
    std::string out(initial, '/');
    for (std::size_t k = 0; k < parts.size(); ++k) {
        if (k) out.push_back('/');
        out.append(parts[k]);
    }
    return out.empty() ? "." : out;
}

std::string join(std::string_view a, std::string_view b) {
    if (!b.empty() && b.front() == '/') return std::string(b);
    std::string out(a);
    if (!out.empty() && out.back() != '/') out.push_back('/');
    out.append(b);
    return out;
}

void make_directory(const std::string& dir) {
    if (::mkdir(dir.c_str(), 0777) == 0 || errno == EEXIST) {
        struct stat st {};
        if (::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return;
        throw FileNotFoundError(EEXIST, dir);
    }
    throw FileNotFoundError(errno, dir);
}

}  // namespace path

namespace {

const std::string& required_home() {
    const auto& home = Environment::user_home();
    if (!home) throw TypeError("the user's home directory is not known (no USERPROFILE or HOME)");
    return *home;
}

}  // namespace

const std::optional<std::string>& Environment::user_home() {
    static const std::optional<std::string> home = [] {
        if (auto v = process::get_variable("USERPROFILE")) return v;
        return process::get_variable("HOME");
    }();
    return home;
}

std::string Environment::target() const { throw NotImplementedError("target"); }
std::string Environment::scope() const { throw NotImplementedError("scope"); }
std::string Environment::get_settings_file() const { throw NotImplementedError("get_settings_file"); }
std::string Environment::get_settings_directory() const { throw NotImplementedError("get_settings_directory"); }
std::string Environment::get_projects_directory() const { throw NotImplementedError("get_projects_directory"); }
std::string Environment::get_statistics_file() const { throw NotImplementedError("get_statistics_file"); }

std::string Environment::root() const {
    auto dir = path::join(required_home(), name);
    path::make_directory(dir);
    return dir;
}

std::string Environment::encode_user_path(std::string_view p) {
    const auto user = path::normalise(required_home());
    return foundation::replace_all(foundation::replace_all(path::normalise(p), user, "~"), "\\", "/");
}

std::string Environment::decode_user_path(std::string_view p) {
    // Every "~" is the home directory, wherever it stands in the path.
    const auto user = path::normalise(required_home());
    return foundation::replace_all(foundation::replace_all(path::normalise(p), "~", user), "\\", "/");
}

void Environment::publish() const {
    process::set_variable("ZERKO-SETTINGS", get_settings_directory());
    process::set_variable("ZERKO-TARGET", target());
    process::set_variable("ZERKO-SCOPE", scope());
}

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
