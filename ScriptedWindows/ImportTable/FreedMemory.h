// Use after free, made visible.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// While it lives, what the module frees is filled with a pattern and kept, so that a read of it yields pointers to
// nowhere and a write damages the pattern. It complains of the damage at the end, and of what is freed twice.
class FreedMemory : public OnlyOne<FreedMemory> {
 public:
  explicit FreedMemory(HMODULE module);
  ~FreedMemory();

  bool Contains(const void* block) const;

 private:
  static void Free(void* block);

  mutable std::mutex m_mutex;
  std::map<void*, std::size_t> m_blocks;
  ImportPatch m_patch;
};
