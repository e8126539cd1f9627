#pragma once

#include <string>

namespace foundation {

/// Gives the calling thread's name to the system, cut to what the system takes.
void setSystemThreadName(const std::string& name);

}  // namespace foundation
