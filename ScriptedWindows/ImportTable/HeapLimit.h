// Lets a module have small blocks of memory only.
#pragma once

#include <cstddef>
#include <cstdlib>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// While it lives, the module's malloc (and so operator new) fails for more than `mostBytes` at once, on any thread.
class HeapLimit : public OnlyOne<HeapLimit> {
 public:
  HeapLimit(HMODULE module, std::size_t mostBytes) : m_mostBytes(mostBytes), m_malloc(module, "malloc", &Malloc) {}

 private:
  static void* Malloc(std::size_t bytes) {
    const HeapLimit& self = Current();
    return bytes > self.m_mostBytes ? nullptr : self.m_malloc.Original<decltype(std::malloc)>()(bytes);
  }

  const std::size_t m_mostBytes;
  ImportPatch m_malloc;
};
