// Check: the check base, class discovery, checklists and the check queue.
#include "common.hpp"

namespace zerko::py {

void bind_check(nb::module_& m) {
    (void)m;
}

}  // namespace zerko::py
