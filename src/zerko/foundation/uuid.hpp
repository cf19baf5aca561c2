#pragma once
// Random identifiers for stamps and generated file names.
#include <string>

namespace zerko::foundation {

/// The 32 lowercase hexadecimal digits of a new random version-4 UUID.
std::string uuid4_hex();

/// Seconds since the epoch, with the fraction, from the wall clock.
double wall_time();

}  // namespace zerko::foundation
