#pragma once

/// Marks what a shared library of this package exports; everything else is built hidden.
#define ZAM_API __attribute__((visibility("default")))
