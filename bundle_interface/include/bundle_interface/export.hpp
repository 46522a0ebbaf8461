#pragma once

/// Marks what the shared library librxp2k7 shows to its clients; everything else stays hidden.
#define RXP2K7_EXPORT __attribute__((visibility("default")))
