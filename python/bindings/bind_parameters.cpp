// Parameters: the inputs, blocks, tasks, groups and options of checks and exporters.
#include "common.hpp"

namespace zerko::py {

void bind_parameters(nb::module_& m) {
    (void)m;
}

}  // namespace zerko::py
