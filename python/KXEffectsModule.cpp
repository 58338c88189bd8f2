// kxeffects: every effect of the registry as a function on numpy arrays, made at import from the entries.
#include "EffectFunction.h"
#include "KXEffectsRegistry.h"

#include <pybind11/pybind11.h>

#include <memory>

namespace py = pybind11;

PYBIND11_MODULE(kxeffects, module)
{
    module.doc() = "KXEffects photo effects on numpy arrays of uint8, uint16 or float32 samples, shaped H x W, "
                   "H x W x 3 or H x W x 4. Every registered effect is a function named after its kxfx row "
                   "(box_blur), its settings keyword arguments with neutral defaults; families maps each family "
                   "to the names of its functions.";
    const py::object error = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "kxeffects.Error", "A non-zero status of the library, in .status.", PyExc_RuntimeError, nullptr));
    module.attr("Error") = error;
    EffectFunction::SetErrorType(error);

    // The docstrings carry the signatures that Python reads.
    py::options options;
    options.disable_function_signatures();
    py::dict families;
    for (const EffectEntry& entry : kEffectRegistry) {
        const auto function = std::make_shared<const EffectFunction>(entry);
        module.def(
            function->Name().c_str(),
            [function](const py::args& args, const py::kwargs& kwargs) { return function->Call(args, kwargs); },
            function->Doc().c_str());
        const py::str family(entry.family);
        if (!families.contains(family))
            families[family] = py::list();
        families[family].cast<py::list>().append(function->Name());
    }
    module.attr("families") = families;
}
