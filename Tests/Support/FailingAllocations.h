// Makes allocations of one loaded module fail.
#pragma once

#include <windows.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "Tests/Support/ImportPatch.h"

// While it lives, the `nth` allocation that the module makes on this thread (1 is the next) fails, whether it comes
// from malloc, calloc, realloc or HeapAlloc; nothing fails before Arm. Other threads are not disturbed.
class FailingAllocations {
 public:
  explicit FailingAllocations(HMODULE module);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
  void Arm(std::size_t nth);

  // Ends the failing and tells whether an allocation has failed.
  bool Disarm();

 private:
  std::vector<std::unique_ptr<ImportPatch>> m_patches;
};
