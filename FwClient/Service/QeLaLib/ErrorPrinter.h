// The host's printer for failures of the byte form; one for the process.
#pragma once

#include <atomic>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"

// Null until the host sets one.
inline std::atomic<QeLaErrorPrinter> errorPrinter{nullptr};

// Calls the printer when there is one. It is read once, since a host may change it at any time. The printer is the
// host's; what it throws ends here, because callers promise that nothing leaves them.
template <typename... Arguments>
void PrintError(const char* format, Arguments... arguments) noexcept {
  const QeLaErrorPrinter printer = errorPrinter.load();
  if (printer == nullptr) return;
  try {
    printer(format, arguments...);
  } catch (...) {
  }
}
