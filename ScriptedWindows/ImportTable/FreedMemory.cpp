#include "ScriptedWindows/ImportTable/FreedMemory.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned char kFreed = 0xDD;

FreedMemory* g_current = nullptr;

}  // namespace

FreedMemory::FreedMemory(HMODULE module) : m_patch(module, "free", &Free) { g_current = this; }

FreedMemory::~FreedMemory() {
  g_current = nullptr;
  for (const auto& [block, size] : m_blocks) {
    const auto* bytes = static_cast<const unsigned char*>(block);
    EXPECT_TRUE(std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == kFreed; }))
        << "a freed block of " << size << " bytes was written to";
    std::free(block);
  }
}

bool FreedMemory::Contains(const void* block) const {
  const std::lock_guard lock(m_mutex);
  return m_blocks.contains(const_cast<void*>(block));
}

void FreedMemory::Free(void* block) {
  if (block == nullptr) return;
  FreedMemory& self = *g_current;
  const std::lock_guard lock(self.m_mutex);
  const std::size_t size = ::_msize(block);
  if (!self.m_blocks.emplace(block, size).second) {
    ADD_FAILURE() << "a block of " << size << " bytes is freed twice";
    return;
  }
  std::memset(block, kFreed, size);
}
