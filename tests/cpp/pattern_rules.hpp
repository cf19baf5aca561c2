#pragma once
// Pattern rules written in a line, for the tests of the search and the scan.
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zerko/hierarchy/pattern.hpp"

namespace zerko::testing {

/// A rule named by its stamp unless `name` is given ("ghost" makes the ghost).
inline std::shared_ptr<hierarchy::Rule> make_rule(std::string stamp, std::string regex, std::int64_t minimum = 1,
                                                  std::int64_t maximum = 1, std::vector<std::string> types = {},
                                                  std::string name = "") {
    auto r = std::make_shared<hierarchy::Rule>();
    r->stamp = stamp;
    r->name = name.empty() ? stamp : name;
    r->regex = std::move(regex);
    r->range = {minimum, maximum};
    r->types = std::move(types);
    return r;
}

}  // namespace zerko::testing
