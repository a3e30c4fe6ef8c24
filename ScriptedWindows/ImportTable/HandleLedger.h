// The handles that a module opens and closes.
#pragma once

#include <windows.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// Notes every handle that the module opens and closes while it lives: events, threads, copies of both, registry keys,
// module references, and the counted states of COM and Winsock. Declare it after other patches of the same calls (it
// forwards to them) and read it before it ends. The module's runtime shares its import table; what that opens is noted
// as well.
class HandleLedger {
 public:
  explicit HandleLedger(HMODULE module);
  ~HandleLedger();
  HandleLedger(const HandleLedger&) = delete;
  HandleLedger& operator=(const HandleLedger&) = delete;

  // How often a function that opens has succeeded, or one that closes has been called.
  std::size_t Count(const char* function) const;

  // What was opened by the function and not closed since.
  std::size_t Open(const char* function) const;

  // Everything that was opened and not closed, as "CreateEventW x3"; empty when nothing is.
  std::vector<std::string> Leaks() const;

  // Handles closed by a function that is not theirs, or twice; empty when all went well. Handles that were opened
  // before the ledger are not judged.
  std::vector<std::string> Mistakes() const;

 private:
  struct Entry {
    const char* openedBy;
    const char* closedBy;
  };
  static HandleLedger& Current();
  template <typename Function>
  void Patch(HMODULE module, const char* function, Function* replacement);
  void* Original(const char* function) const;
  // What a replacement notes: a handle of its own; one of several equal references; a call that is only counted.
  void Opened(const char* function, const char* closedBy, const void* handle);
  bool IsOpen(const void* handle) const;
  void Closed(const char* function, const void* handle);
  void Entered(const char* function, bool succeeded);
  void Left(const char* function, const char* enteredBy);

  struct Replacements;

  mutable std::mutex m_mutex;
  std::map<const void*, Entry> m_open;
  std::map<const void*, Entry> m_closed;
  std::map<std::string, std::size_t> m_counts;
  std::map<std::string, std::size_t> m_entered;
  std::vector<std::string> m_mistakes;
  std::map<std::string, std::unique_ptr<ImportPatch>> m_patches;
};
