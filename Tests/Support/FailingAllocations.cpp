#include "Tests/Support/FailingAllocations.h"

namespace {

using Malloc = void*(std::size_t);
using Calloc = void*(std::size_t, std::size_t);
using Realloc = void*(void*, std::size_t);
using HeapAllocFunction = void* WINAPI(HANDLE, DWORD, SIZE_T);

// Plain data, so that a replacement allocates nothing itself.
DWORD g_thread = 0;  // the thread whose allocations fail; 0 for none
std::size_t g_left = 0;
bool g_failed = false;

Malloc* g_malloc;
Calloc* g_calloc;
Realloc* g_realloc;
HeapAllocFunction* g_heapAlloc;

bool Fails() {
  if (g_thread != ::GetCurrentThreadId()) return false;
  if (g_left == 0 || --g_left > 0) return false;
  g_failed = true;
  return true;
}

}  // namespace

FailingAllocations::FailingAllocations(HMODULE module) {
  const auto patch = [&](const char* function, auto* replacement, auto*& original) {
    auto made = std::make_unique<ImportPatch>(module, function, replacement);
    original = made->template Original<std::remove_pointer_t<std::remove_reference_t<decltype(original)>>>();
    m_patches.push_back(std::move(made));
  };
  patch("malloc", +[](std::size_t size) -> void* { return Fails() ? nullptr : g_malloc(size); }, g_malloc);
  patch(
      "calloc", +[](std::size_t count, std::size_t size) -> void* { return Fails() ? nullptr : g_calloc(count, size); },
      g_calloc);
  patch(
      "realloc", +[](void* memory, std::size_t size) -> void* { return Fails() ? nullptr : g_realloc(memory, size); },
      g_realloc);
  HeapAllocFunction* const heapAlloc = [](HANDLE heap, DWORD flags, SIZE_T size) -> void* {
    return Fails() ? nullptr : g_heapAlloc(heap, flags, size);
  };
  patch("HeapAlloc", heapAlloc, g_heapAlloc);
}

FailingAllocations::~FailingAllocations() {
  Disarm();
  m_patches.clear();
}

void FailingAllocations::Arm(std::size_t nth) {
  g_left = nth;
  g_failed = false;
  g_thread = ::GetCurrentThreadId();
}

bool FailingAllocations::Disarm() {
  g_thread = 0;
  return g_failed;
}
