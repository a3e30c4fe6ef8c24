#pragma once

#include <string>

// The versions of this program and of the library that it would load, a line each.
std::string VersionText();
