// Lets one allocation of the code under test fail.
#pragma once

#include <cstddef>

#include "Tests/Support/ImportPatch.h"

// While it lives, the n-th allocation (from 1) that the making thread asks of the C runtime fails, in the running
// program's own code; allocations of fakes (see InsideFake) do not count and do not fail.
class FailingMemory {
 public:
  explicit FailingMemory(std::size_t number);
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  // Whether there were so many.
  bool Failed() const noexcept;

 private:
  static void* Malloc(std::size_t size);

  ImportPatch m_patch;
};
