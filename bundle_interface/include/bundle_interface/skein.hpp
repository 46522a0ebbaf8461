#pragma once

// The bundle data model: bundles of slices, grids, fields and fragments, stored as a K7 file.
#include "bundle_interface/skein/bundle.hpp"
#include "bundle_interface/skein/data_range.hpp"
#include "bundle_interface/skein/field.hpp"
#include "bundle_interface/skein/grid.hpp"
#include "bundle_interface/skein/mem_array.hpp"
#include "bundle_interface/skein/storage_transformations.hpp"
