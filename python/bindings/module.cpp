// The private extension module zerko._core; the package zerko re-exports it.
#include "common.hpp"

NB_MODULE(_core, m) {
    m.doc() = "Core of the scene validator";
    zerko::py::bind_foundation(m);
    zerko::py::bind_constants(m);
    zerko::py::bind_scene(m);
    zerko::py::bind_api(m);
}
