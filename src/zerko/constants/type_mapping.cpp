#include "zerko/constants/type_mapping.hpp"

namespace zerko::constants {

TypeMapping::TypeMapping(const Table& table) {
    for (const auto& [host, unified] : table) table_.insert_or_assign(host, unified);
    for (const auto& [host, unified] : table_) types_.insert(unified);
}

std::optional<std::string> TypeMapping::get(std::string_view name) const {
    const auto it = table_.find(name);
    if (it == table_.end()) return std::nullopt;
    return it->second;
}

}  // namespace zerko::constants
