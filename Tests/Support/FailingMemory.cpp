#include "Tests/Support/FailingMemory.h"

#include <cstdlib>

#include "Tests/Support/WindowsScript.h"

namespace {

void*(__cdecl* original)(std::size_t) = nullptr;
DWORD thread = 0;
std::size_t left = 0;

}  // namespace

FailingMemory::FailingMemory(std::size_t number)
    : m_patch((original = &std::malloc, ::GetModuleHandleW(nullptr)), "malloc", &FailingMemory::Malloc) {
  original = m_patch.Original<void*(std::size_t)>();
  left = number;
  thread = ::GetCurrentThreadId();
}

FailingMemory::~FailingMemory() { left = 0; }

bool FailingMemory::Failed() const noexcept { return left == 0; }

void* FailingMemory::Malloc(std::size_t size) {
  if (left != 0 && ::GetCurrentThreadId() == thread && !InsideFake::Active() && --left == 0) return nullptr;
  return original(size);
}
