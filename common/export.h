#pragma once

/// Marks what a shared library shows to its users; everything else is hidden.
#define CB_EXPORT __attribute__((visibility("default")))
