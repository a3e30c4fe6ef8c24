// How much of the heap a module holds, and held at most.
#pragma once

#include <windows.h>

#include <cstddef>
#include <deque>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// Counts the bytes that the module allocates and frees while this lives, as the heap gives them. One at a time.
class HeapMeter {
 public:
  explicit HeapMeter(HMODULE module);
  HeapMeter(const HeapMeter&) = delete;
  HeapMeter& operator=(const HeapMeter&) = delete;

  // Against the beginning; negative when more was freed.
  std::ptrdiff_t Held() const;
  std::ptrdiff_t HeldAtMost() const;

 private:
  std::deque<ImportPatch> m_patches;
};
