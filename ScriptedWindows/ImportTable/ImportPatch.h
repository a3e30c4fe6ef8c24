// Replaces a Windows (or C runtime) call in the import table of one loaded module, so that what is tested is exactly
// what ships.
#pragma once

#include <winsock2.h>
#include <windows.h>

// While it lives, `module` reaches `replacement` wherever it calls the imported `function`; afterwards the call before
// it again. The module's statically linked runtime shares the table, so a replacement of a common call (waits, heap,
// Tls...) is called by the runtime too: forward by default and decide by argument or thread.
//
// Patches of one call must be undone in reverse order of their making. Complains of a function that the
// module does not import.
class ImportPatch {
 public:
  template <typename Function>
  ImportPatch(HMODULE module, const char* function, Function* replacement)
      : ImportPatch(module, function, reinterpret_cast<void*>(replacement), 0) {}
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  // What the module called before, for a replacement that forwards.
  template <typename Function>
  Function* Original() const {
    return reinterpret_cast<Function*>(m_original);
  }

 private:
  ImportPatch(HMODULE module, const char* function, void* replacement, int);

  void** m_slot = nullptr;
  void* m_original = nullptr;
};

// Whether the module imports the function at all.
bool Imports(HMODULE module, const char* function);

// The program that runs, for tests of what is linked into it.
inline HMODULE ThisProgram() { return ::GetModuleHandleW(nullptr); }
