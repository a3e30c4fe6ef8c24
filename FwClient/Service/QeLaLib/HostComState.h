// Coordination of COM with the host process.
#pragma once

#include <windows.h>

#include <cstdint>

// A record that the host may own and hand out by exporting, from its main executable, a function "CisbMs" that takes
// nothing and returns a pointer to it. Host and library agree on this layout; the library never frees it.
struct HostComState {
  CRITICAL_SECTION lock;
  bool hostComActive;
  bool forceComInit;
  std::uint32_t initCount;    // raised by the library whenever a calculation starts
  std::uint32_t uninitCount;  // raised by the library whenever a calculation ends
};

// The host's record, or null when it has none. It is looked up until there is an answer, which holds for the life of
// the process. The host's function may call the library; no thread waits for another's look-up, so two that come first
// together both ask.
HostComState* FindHostComState() noexcept;

// Initialises COM for one calculation on the calling thread and ends it again.
//
// The two tests of the host's record are deliberately not symmetric, and each reads the flags anew: initialisation is
// left out when COM is active in the host and not forced, the end is left out whenever COM is active in the host.
class ComBracket {
 public:
  ComBracket() noexcept;
  ~ComBracket();
  ComBracket(const ComBracket&) = delete;
  ComBracket& operator=(const ComBracket&) = delete;

 private:
  HRESULT m_outcome = S_OK;
};
