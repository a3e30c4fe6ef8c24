// The system's libraries, as a service has them.
#pragma once

#include <windows.h>

#include <vector>

// While it lives, what QeLaLib.dll imports stays loaded, whether or not it is itself: what those libraries keep of a
// load is theirs, and a process that has used the network has most of them anyway.
class KeptImports {
 public:
  KeptImports();
  ~KeptImports();
  KeptImports(const KeptImports&) = delete;
  KeptImports& operator=(const KeptImports&) = delete;

 private:
  std::vector<HMODULE> m_modules;
};
