// Use after free, made visible.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// While it lives, what the module frees is filled with a pattern and kept, so that a read of it yields pointers to
// nowhere and a write damages the pattern. At the end the damage, and what was freed twice, fails the test.
class FreedMemory {
 public:
  explicit FreedMemory(HMODULE module);
  ~FreedMemory();
  FreedMemory(const FreedMemory&) = delete;
  FreedMemory& operator=(const FreedMemory&) = delete;

  bool Contains(const void* block) const;

 private:
  static void Free(void* block);

  mutable std::mutex m_mutex;
  std::map<void*, std::size_t> m_blocks;
  ImportPatch m_patch;
};
