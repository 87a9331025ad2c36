// How long loading the libraries took.
#pragma once

#include <chrono>

namespace brimtool {

/// The time from before the first constructor of any shared library to before the first of the program
/// itself: all that the library and those it uses do when they are loaded. Mapping their files, which the
/// system does before, is not in it.
std::chrono::nanoseconds loadTime() noexcept;

} // namespace brimtool
