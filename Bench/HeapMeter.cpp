#include "Bench/HeapMeter.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>

namespace {

std::ptrdiff_t g_held = 0;
std::ptrdiff_t g_most = 0;

void Add(std::size_t bytes) {
  g_held += static_cast<std::ptrdiff_t>(bytes);
  g_most = std::max(g_most, g_held);
}

void Subtract(std::size_t bytes) { g_held -= static_cast<std::ptrdiff_t>(bytes); }

std::size_t SizeOf(void* block) { return block != nullptr ? ::_msize(block) : 0; }

void* Malloc(std::size_t bytes) {
  void* const block = std::malloc(bytes);
  Add(SizeOf(block));
  return block;
}

void* Calloc(std::size_t count, std::size_t bytes) {
  void* const block = std::calloc(count, bytes);
  Add(SizeOf(block));
  return block;
}

void* Realloc(void* block, std::size_t bytes) {
  const std::size_t before = SizeOf(block);
  void* const moved = std::realloc(block, bytes);
  if (moved == nullptr) return nullptr;
  Subtract(before);
  Add(SizeOf(moved));
  return moved;
}

void Free(void* block) {
  Subtract(SizeOf(block));
  std::free(block);
}

void* WINAPI Alloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
  void* const block = ::HeapAlloc(heap, flags, bytes);
  if (block != nullptr) Add(::HeapSize(heap, 0, block));
  return block;
}

BOOL WINAPI FreeBlock(HANDLE heap, DWORD flags, void* block) {
  if (block != nullptr) Subtract(::HeapSize(heap, 0, block));
  return ::HeapFree(heap, flags, block);
}

}  // namespace

HeapMeter::HeapMeter(HMODULE module) {
  g_held = g_most = 0;
  m_patches.emplace_back(module, "malloc", Malloc);
  m_patches.emplace_back(module, "calloc", Calloc);
  m_patches.emplace_back(module, "realloc", Realloc);
  m_patches.emplace_back(module, "free", Free);
  m_patches.emplace_back(module, "HeapAlloc", Alloc);
  m_patches.emplace_back(module, "HeapFree", FreeBlock);
}

std::ptrdiff_t HeapMeter::Held() const { return g_held; }

std::ptrdiff_t HeapMeter::HeldAtMost() const { return g_most; }
