// Settings of registry entries as Python values: what each kind takes, its neutral value written as Python,
// and the conversion into the values of a call.
#pragma once

#include "EffectCall.h"

#include <pybind11/pybind11.h>

#include <deque>
#include <string>
#include <vector>

// What a setting takes, for the docstring: "float", "(r, g, b) or None", ...
std::string PythonForm(const ArgSpec& arg);

// The neutral value as a Python literal, for the signature: 0.0, 'norm', (1.0, 0.0, 0.0), None.
std::string PythonDefault(const ArgSpec& arg);

// Sets the setting at index from a Python value. Arrays that the call points into are kept in arrays.
// A value of the wrong type is a TypeError, one outside the setting's range or form a ValueError, both
// naming the setting as name.
void SetSetting(EffectCall& call, size_t index, const pybind11::handle& value, const std::string& name,
                std::deque<std::vector<float>>& arrays);
