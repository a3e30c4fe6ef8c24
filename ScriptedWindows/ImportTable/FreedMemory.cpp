#include "ScriptedWindows/ImportTable/FreedMemory.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned char kFreed = 0xDD;

}  // namespace

FreedMemory::FreedMemory(HMODULE module) : m_patch(module, "free", &Free) {}

FreedMemory::~FreedMemory() {
  for (const auto& [block, size] : m_blocks) {
    const auto* bytes = static_cast<const unsigned char*>(block);
    if (!std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == kFreed; }))
      Complain("a freed block of " + std::to_string(size) + " bytes was written to");
    std::free(block);
  }
}

bool FreedMemory::Contains(const void* block) const {
  const std::lock_guard lock(m_mutex);
  return m_blocks.contains(const_cast<void*>(block));
}

void FreedMemory::Free(void* block) {
  if (block == nullptr) return;
  FreedMemory& self = Current();
  const std::lock_guard lock(self.m_mutex);
  const std::size_t size = ::_msize(block);
  if (!self.m_blocks.emplace(block, size).second) {
    Complain("a block of " + std::to_string(size) + " bytes is freed twice");
    return;
  }
  std::memset(block, kFreed, size);
}
