#pragma once
// Host type names to the unified scene types of the system.
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zerko::constants {

class TypeMapping {
public:
    /// Host type name to unified type, in the host's order of declaration.
    using Table = std::vector<std::pair<std::string, std::string>>;

    TypeMapping() = default;
    explicit TypeMapping(const Table& table);

    /// The unified type for the host's type `name`; nothing for an unknown name.
    std::optional<std::string> get(std::string_view name) const;
    /// Whether the unified `type` is among the table's values.
    bool exist(std::string_view type) const { return types_.contains(std::string(type)); }

    const std::map<std::string, std::string, std::less<>>& table() const noexcept { return table_; }
    const std::set<std::string, std::less<>>& types() const noexcept { return types_; }

private:
    std::map<std::string, std::string, std::less<>> table_;
    std::set<std::string, std::less<>> types_;
};

}  // namespace zerko::constants
