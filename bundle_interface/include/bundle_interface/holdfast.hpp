#pragma once

// Core of the bundle data model: references, chunks, attributes, console.
#include "bundle_interface/holdfast/attributes.hpp"
#include "bundle_interface/holdfast/chunk.hpp"
#include "bundle_interface/holdfast/console.hpp"
#include "bundle_interface/holdfast/reference.hpp"
