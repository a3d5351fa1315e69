#pragma once

/// Marks what applications may link to; everything else stays hidden in the shared library.
#define TDW_EXPORT __attribute__((visibility("default")))
