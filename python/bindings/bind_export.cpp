// _Export: flags, the export queue and the exporter options.
#include "common.hpp"

namespace zerko::py {

void bind_export(nb::module_& m) {
    (void)m;
}

}  // namespace zerko::py
