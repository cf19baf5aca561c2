#pragma once
// Path text and process variables: the small operating-system helpers that
// every layer that stores files or publishes its settings needs.
#include <optional>
#include <string>
#include <string_view>

namespace zerko::foundation {

namespace path {
/// POSIX path normalisation: collapses separators, "." and "..".
std::string normalise(std::string_view path);
/// Joins two path parts with one separator.
std::string join(std::string_view a, std::string_view b);
/// Creates one directory level if missing; throws FileNotFoundError when the parent is missing.
void make_directory(const std::string& path);
}  // namespace path

/// Process variables; a face may route them through its own runtime (the
/// Python face writes os.environ, which a C setenv would not update).
namespace process {
using Setter = void (*)(const std::string& name, const std::string& value);
void set_variable(const std::string& name, const std::string& value);
std::optional<std::string> get_variable(const std::string& name);
void set_setter(Setter setter);
}  // namespace process

}  // namespace zerko::foundation
