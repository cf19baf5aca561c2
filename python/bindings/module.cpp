// The private extension module zerko._core; the package zerko re-exports it.
#include "common.hpp"

NB_MODULE(_core, m) {
    m.doc() = "Core of the scene validator";
    // Host objects that live in module globals are released only late in
    // interpreter shutdown, after nanobind's own leak check has run.
    // Tests turn the report back on to prove that what they drop is freed.
    nb::set_leak_warnings(false);
    m.def("_set_leak_warnings", &nb::set_leak_warnings, nb::arg("enabled"),
          "Whether the module reports objects still alive when the interpreter ends.");
    zerko::py::bind_foundation(m);
    zerko::py::bind_constants(m);
    zerko::py::bind_scene(m);
    zerko::py::bind_hierarchy(m);
    zerko::py::bind_scan(m);
    zerko::py::bind_file(m);
    zerko::py::bind_statistics(m);
    zerko::py::bind_parameters(m);
    zerko::py::bind_export(m);
    zerko::py::bind_settings(m);
    zerko::py::bind_check(m);
    zerko::py::bind_project(m);
    zerko::py::bind_api(m);
}
