#include "zerko/foundation/paths.hpp"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "zerko/foundation/errors.hpp"

namespace zerko::foundation {

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

}  // namespace zerko::foundation
