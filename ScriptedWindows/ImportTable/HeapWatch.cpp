#include "ScriptedWindows/ImportTable/HeapWatch.h"

#include <atomic>
#include <limits>

#include "ScriptedWindows/Complaint.h"

namespace {

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

// The heap itself, past every import table.
template <typename Function>
Function* FromModule(const wchar_t* module, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(module), name)));
}
auto* const g_malloc = FromModule<void*(std::size_t)>(L"ucrtbase.dll", "malloc");
auto* const g_calloc = FromModule<void*(std::size_t, std::size_t)>(L"ucrtbase.dll", "calloc");
auto* const g_realloc = FromModule<void*(void*, std::size_t)>(L"ucrtbase.dll", "realloc");
auto* const g_free = FromModule<void(void*)>(L"ucrtbase.dll", "free");
auto* const g_heapAlloc = FromModule<decltype(::HeapAlloc)>(L"kernel32.dll", "HeapAlloc");
auto* const g_heapFree = FromModule<decltype(::HeapFree)>(L"kernel32.dll", "HeapFree");

// The thread that is watched; no thread has the ID 0. What follows is its own while it runs.
std::atomic<DWORD> g_thread = 0;

// The replacements are plain functions, so the state is global. They must not allocate.
struct State {
  std::size_t allocations = 0;
  std::size_t bytes = 0;
  std::ptrdiff_t blocks = 0;
  std::size_t succeeding = kNever;  // allocations until failures begin
  HeapWatch::Failing failing = HeapWatch::Failing::kOnce;
  bool failed = false;
  int pauses = 0;
};
State g_state;

bool OnWatchedThread() { return ::GetCurrentThreadId() == g_thread; }

bool Watched() { return OnWatchedThread() && g_state.pauses == 0; }

// Counts an allocation and tells whether it is to fail.
bool Fails(std::size_t bytes) {
  ++g_state.allocations;
  g_state.bytes += bytes;
  if (g_state.succeeding == kNever) return false;
  if (g_state.succeeding > 0) {
    --g_state.succeeding;
    return false;
  }
  g_state.failed = true;
  if (g_state.failing == HeapWatch::Failing::kOnce) g_state.succeeding = kNever;
  return true;
}

void* Counted(void* block) {
  if (block != nullptr) ++g_state.blocks;
  return block;
}

void* WatchedMalloc(std::size_t bytes) {
  if (!Watched()) return g_malloc(bytes);
  return Fails(bytes) ? nullptr : Counted(g_malloc(bytes));
}

void* WatchedCalloc(std::size_t count, std::size_t bytes) {
  if (!Watched()) return g_calloc(count, bytes);
  return Fails(count * bytes) ? nullptr : Counted(g_calloc(count, bytes));
}

void* WatchedRealloc(void* block, std::size_t bytes) {
  if (!Watched()) return g_realloc(block, bytes);
  if (Fails(bytes)) return nullptr;
  void* const moved = g_realloc(block, bytes);
  return block == nullptr ? Counted(moved) : moved;
}

void WatchedFree(void* block) {
  if (Watched() && block != nullptr) --g_state.blocks;
  g_free(block);
}

void* WINAPI WatchedHeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
  if (!Watched()) return g_heapAlloc(heap, flags, bytes);
  return Fails(bytes) ? nullptr : Counted(g_heapAlloc(heap, flags, bytes));
}

BOOL WINAPI WatchedHeapFree(HANDLE heap, DWORD flags, void* block) {
  if (Watched() && block != nullptr) --g_state.blocks;
  return g_heapFree(heap, flags, block);
}

}  // namespace

HeapWatch::HeapWatch(HMODULE module)
    : m_malloc(module, "malloc", &WatchedMalloc),
      m_calloc(module, "calloc", &WatchedCalloc),
      m_realloc(module, "realloc", &WatchedRealloc),
      m_free(module, "free", &WatchedFree) {
  if (Imports(module, "HeapAlloc")) m_heapAlloc.emplace(module, "HeapAlloc", &WatchedHeapAlloc);
  if (Imports(module, "HeapFree")) m_heapFree.emplace(module, "HeapFree", &WatchedHeapFree);
  Require(g_thread == 0u, "there is a heap watch already");
  g_state = {};
  g_thread = ::GetCurrentThreadId();
}

HeapWatch::~HeapWatch() { g_thread = 0; }

void HeapWatch::FailAt(std::size_t n, Failing failing) {
  if (const DWORD thread = ::GetCurrentThreadId(); g_thread.exchange(thread) != thread) g_state.pauses = 0;
  g_state.succeeding = n;
  g_state.failing = failing;
  g_state.failed = false;
}

bool HeapWatch::StopFailing() {
  g_state.succeeding = kNever;
  return g_state.failed;
}

std::size_t HeapWatch::Allocations() const { return g_state.allocations; }

std::size_t HeapWatch::BytesAskedFor() const { return g_state.bytes; }

std::ptrdiff_t HeapWatch::BlocksLeft() const { return g_state.blocks; }

HeapWatch::Pause::Pause() noexcept : m_thread(OnWatchedThread() ? ::GetCurrentThreadId() : 0) {
  if (m_thread != 0) ++g_state.pauses;
}

HeapWatch::Pause::~Pause() {
  if (m_thread != 0 && m_thread == g_thread) --g_state.pauses;
}

void ExpectNothingLeft(std::ptrdiff_t blocks, std::size_t n) {
  if (blocks != 0)
    Complain(std::to_string(blocks) + " blocks are left on the heap when allocation " + std::to_string(n) + " fails");
}

void WarmUpExceptions(HMODULE module) {
  const auto throwOne = [] {
    try {
      throw 1;
    } catch (int) {
    }
  };
  throwOne();
  // Once more, while the heap refuses the exception's memory: the runtime then takes it from a reserve, whose mutex is
  // made by malloc when it is first locked. That one failing as well would end the process.
  HeapWatch heap(module);
  heap.FailAt(0);
  throwOne();
}
