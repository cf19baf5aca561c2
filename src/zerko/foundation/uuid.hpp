#pragma once
// What stamps are made of: random identifiers (for rule and preset stamps
// and generated file names) and the wall-clock time.
#include <string>

namespace zerko::foundation {

/// The 32 lowercase hexadecimal digits of a new random version-4 UUID.
std::string uuid4_hex();

/// Seconds since the epoch, with the fraction, from the wall clock.
double wall_time();

}  // namespace zerko::foundation
