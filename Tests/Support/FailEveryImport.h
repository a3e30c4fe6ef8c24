// Runs a scene again and again while each import of a module that it reaches fails, at each of its calls.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "ScriptedWindows/ImportTable/ImportFaults.h"

// One run of a scene.
class Attempt {
 public:
  // Nothing fails.
  Attempt() = default;
  Attempt(ImportFaults& faults, ImportFaults::Mode mode, DWORD error = ERROR_SUCCESS, bool lacksMemory = false)
      : m_faults(&faults), m_mode(mode), m_error(error), m_lacksMemory(lacksMemory) {}

  bool Fails() const { return m_faults != nullptr; }
  bool FailsFromThenOn() const { return Fails() && m_mode == ImportFaults::Mode::kFromThenOn; }
  bool FailsWith(DWORD error) const { return Fails() && m_error == error; }
  // One allocation fails, and after it there is memory again.
  bool LacksMemoryOnce() const { return m_lacksMemory && !FailsFromThenOn(); }
  // From here on nothing fails, in this run.
  void EndFailures() {
    if (m_faults != nullptr) m_faults->StopFailing();
  }

 private:
  ImportFaults* m_faults = nullptr;
  ImportFaults::Mode m_mode = ImportFaults::Mode::kOnce;
  DWORD m_error = ERROR_SUCCESS;
  bool m_lacksMemory = false;
};

// What a host does. It judges what comes of it, and leaves nothing behind.
using Scene = std::function<void(Attempt&)>;

// Sets the module up and calls its argument with it; for a scene that does in a module what is done there only once,
// each time with a module that has just been loaded. It must be the same file each time.
using WithModule = std::function<void(const std::function<void(ImportFaults&)>&)>;

// For every import that the scene reaches, for its calls, once and from then on: runs the scene while the call fails,
// and then while nothing does. Of more than `mostCalls` calls that many are taken: the first, and others that the day
// chooses, so that all are taken in time. The first call fails with every error that ImportFailures.h knows for the
// function, the others with these in turn. What gives memory fails together besides, as "memory": the heap is one.
//
// A failure of the test tells what failed and how to see it again alone, and after a few of them no more is tried. So
// does what the program says at its end, when it crashes or when a run takes over 30 seconds. A run that calls a
// multiple of what the scene calls does not rest where it should wait, and fails. Returns the imports that were called
// in any run.
//
// What is taken, the program's environment can tell; ./dev torture does:
//   TORTURE_CALLS=all|NUMBER  all calls with every error, or so many in the place of `mostCalls`; 0 counts them
//   TORTURE_ONLY=NAME[:CALL[:once|on[:ERROR]]]  that function; that call of it, in that way, with that error
//   TORTURE_PART=PART/PARTS   every one of so many of the chosen calls, so that several processes share them
//   TORTURE_SEED=NUMBER       chooses the calls in the place of the day, which is 20261122, say
//   TORTURE_REPORT=FILE       gets a line for each import, with tabs: scene, import, calls, failures put in, those of
//                             them that were reached, the errors or why there are none, "ok" or "failed"
std::set<std::string> FailEveryImport(const WithModule& withModule, std::uint32_t mostCalls, const Scene& scene);
inline std::set<std::string> FailEveryImport(ImportFaults& faults, std::uint32_t mostCalls, const Scene& scene) {
  return FailEveryImport([&](const auto& use) { use(faults); }, mostCalls, scene);
}

// Fails the test for each import that ImportFailures.h does not know.
void ExpectKnownImports(const ImportFaults& faults);
