// A registry entry as a Python function on numpy arrays: its parameters, its docstring and its call.
#pragma once

#include "EffectCall.h"

#include <pybind11/pybind11.h>

#include <deque>
#include <string>
#include <vector>

class EffectFunction {
public:
    explicit EffectFunction(const EffectEntry& entry);

    // The command-line name in snake_case: box_blur.
    const std::string& Name() const { return m_name; }
    // Starts with the signature, "name(...)\n--\n\n", which Python's inspect reads as the function's.
    std::string Doc() const;
    // Binds the arguments as a function of Doc's signature would, runs the entry with the GIL released and
    // gives back what it made: an array, arrays in a tuple, or a dict of numbers.
    pybind11::object Call(const pybind11::args& args, const pybind11::kwargs& kwargs) const;

    // kxeffects.Error, raised for a non-zero status; the module makes it once and keeps it.
    static void SetErrorType(pybind11::handle type);

private:
    enum class Role { Input, OptionalInput, Setting };
    struct Parameter {
        size_t index; // of the registry argument
        std::string name;
        Role role;
    };
    // The values given, one per parameter (null where not given), and rect and out.
    struct Bound {
        std::vector<pybind11::object> values;
        pybind11::object rect, out;
    };

    Bound Bind(const pybind11::args& args, const pybind11::kwargs& kwargs) const;
    pybind11::object* Slot(Bound& bound, const std::string& name) const;
    void SetInput(EffectCall& call, const Parameter& parameter, const pybind11::object& value) const;
    void SetSettings(EffectCall& call, const Bound& bound, std::deque<std::vector<float>>& arrays) const;
    std::string Signature() const;
    std::string ParameterDoc(const Parameter& parameter) const;
    std::string ReturnsDoc() const;

    const EffectEntry& m_entry;
    std::string m_name;
    std::vector<Parameter> m_parameters; // the inputs that the entry needs first, in order
    size_t m_positional = 0;
    bool m_takesRect = false;
    bool m_makesImage = false;
};
