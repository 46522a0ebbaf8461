#pragma once

#include "scanlib/vector3.hpp"

namespace simulator {

using scanlib::cross;
using scanlib::dot;
using scanlib::vector3;
using scanlib::operator+;
using scanlib::operator-;
using scanlib::operator*;

} // namespace simulator
