// _Project: rules, the rule tree, records, history, project settings and the collection.
#include "common.hpp"

namespace zerko::py {

void bind_project(nb::module_& m) {
    (void)m;
}

}  // namespace zerko::py
