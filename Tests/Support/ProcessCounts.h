// What this process has of the system's.
#pragma once

#include <cstddef>

std::size_t CountHandles();
std::size_t CountThreads();
