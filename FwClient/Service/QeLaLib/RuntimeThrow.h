// Exceptions where memory has run out.
#pragma once

// Whether the C++ runtime got, while the library loaded, what it needs to throw without memory on any thread. A library
// that did not must not stay loaded: it would end the service one day instead of throwing std::bad_alloc.
bool CanThrowWithoutMemory() noexcept;
