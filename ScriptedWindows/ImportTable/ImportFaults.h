// Lets any import of a module fail at any of its calls, without knowing what the functions look like.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// How a call fails: what it returns, and the last error that it leaves. Its outputs stay as they are.
struct ImportFailure {
  std::uint64_t result;         // as the register holds it: INVALID_HANDLE_VALUE is ~0
  DWORD error = ERROR_SUCCESS;  // with ERROR_SUCCESS the last error stays what it is
};

// While it lives, every function that the module imports is reached through a few instructions of this class's own.
// They count the call; then they jump to the function, which finds registers, stack and last error as the module left
// them, or return the failure in its place. Nothing of theirs is on the stack while the function runs, so exceptions
// pass. Variables are left alone: what points to no code.
//
// Calls may come from any number of threads, and failures may be ordered and ended meanwhile. The module's threads must
// have ended, or be inside a function that they have called, when this goes. Patches of the same module that are made
// before are called from here, and see no call that fails.
class ImportFaults {
 public:
  explicit ImportFaults(HMODULE module);
  ~ImportFaults();
  ImportFaults(const ImportFaults&) = delete;
  ImportFaults& operator=(const ImportFaults&) = delete;

  // For a module that is loaded again and again, the same file each time: Leave comes before it goes, Enter when it is
  // there again, before its first instruction. What was ordered and counted stays.
  void Leave();
  void Enter(HMODULE module);

  // The functions; a number that stands for one is its place here.
  const std::vector<std::string>& Names() const { return m_names; }

  // Since the beginning or the last ForgetCalls.
  std::uint32_t Calls(std::size_t import) const { return m_slots[import].calls; }
  std::uint32_t Calls(const std::string& import) const;  // 0 for what the module does not import
  std::uint64_t AllCalls() const;
  void ForgetCalls();

  enum class Mode { kOnce, kFromThenOn };

  // Call number `call` of the function from now on fails, or that one and all later ones; 1 is the next. Of several
  // functions the calls are counted together. Takes the place of what was ordered before.
  void FailAt(const std::vector<std::size_t>& imports, std::uint32_t call, Mode mode, ImportFailure failure);

  // Ends FailAt. Returns whether a call has failed.
  bool StopFailing();

  // One function. The instructions know the places of the first two members.
  struct Slot {
    void* original;
    std::uint64_t result;
    DWORD error;
    std::atomic<bool> fails;
    std::atomic<std::uint32_t> calls;
    void** entry;
    ImportFaults* owner;
  };

  // Called by the instructions: counts, and tells whether the call is to fail. Uses nothing that a patch could reach.
  static bool Decide(Slot& slot) noexcept;

 private:
  std::vector<std::string> m_names;
  std::vector<Slot> m_slots;
  void* m_code = nullptr;
  bool m_entered = false;
  std::atomic<std::int64_t> m_left = 0;  // calls up to the first that fails
  std::atomic<Mode> m_mode = Mode::kOnce;
  std::atomic<bool> m_failed = false;
};
