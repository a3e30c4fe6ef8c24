// Ends the process when the C++ runtime cannot go on, as the runtime's own handler does, but without its message: the
// service has nobody who would read it, and the names in it would bring a demangler of 55 KB into the DLL.
#include <cstdlib>
#include <exception>

// In the place of the runtime's own.
void __gnu_cxx::__verbose_terminate_handler() { std::abort(); }
