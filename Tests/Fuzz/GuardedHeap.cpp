#include "Tests/Fuzz/GuardedHeap.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/PlainLock.h"
#include "Tests/Fuzz/FuzzRun.h"
#include "Tests/Fuzz/FuzzTarget.h"

namespace {

constexpr std::size_t kPageBytes = 4096;
// Pages are given out in a circle, so that what was freed stays out of reach until all others had their turn.
constexpr std::size_t kArenaPages = std::size_t{1} << 15;
constexpr std::size_t kMostBlockPages = kArenaPages / 4;
constexpr std::size_t kEdgeBytes = 16;
constexpr std::uint8_t kEdge = 0xFB;

std::size_t PagesOf(std::size_t bytes) { return (bytes + kPageBytes - 1) / kPageBytes; }

void Protect(std::uint8_t* start, std::size_t pages, DWORD protection) {
  DWORD before = 0;
  if (!::VirtualProtect(start, pages * kPageBytes, protection, &before)) FuzzFail("pages cannot be protected");
}

std::uint8_t* Unreachable(std::size_t pages) {
  auto* const memory =
      static_cast<std::uint8_t*>(::VirtualAlloc(nullptr, pages * kPageBytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (memory == nullptr) throw std::bad_alloc();
  // All pages are there from the start: Linux then keeps neighbours of equal protection as one, and has a limit of
  // them.
  std::fill_n(memory, pages * kPageBytes, kEdge);
  Protect(memory, pages, PAGE_NOACCESS);
  return memory;
}

class Arena {
 public:
  Arena() : m_memory(Unreachable(kArenaPages)), m_isTaken(kArenaPages), m_sizes(kArenaPages) {}

  bool Holds(const void* block) const {
    const auto* const byte = static_cast<const std::uint8_t*>(block);
    return byte >= m_memory && byte < m_memory + kArenaPages * kPageBytes;
  }

  void* Take(std::size_t bytes) {
    bytes = std::max<std::size_t>(bytes, 1);
    if (bytes > kMostBlockPages * kPageBytes) return nullptr;
    const std::lock_guard hold(m_lock);
    const std::size_t extent = ExtentOf(bytes);
    const std::size_t pages = PagesOf(extent);
    const std::size_t page = FreePages(pages + 1);
    if (page == kArenaPages) return nullptr;
    std::uint8_t* const start = m_memory + page * kPageBytes;
    Protect(start, pages, PAGE_READWRITE);
    std::fill_n(m_isTaken.begin() + static_cast<std::ptrdiff_t>(page), pages + 1, std::uint8_t{1});
    m_sizes[page] = bytes;
    ++m_blocks;
    std::uint8_t* const block = start + pages * kPageBytes - extent;
    std::fill_n(block + bytes, extent - bytes, kEdge);
    std::fill_n(block - EdgeBefore(start, block), EdgeBefore(start, block), kEdge);
    return block;
  }

  std::size_t SizeOf(const void* block) const { return m_sizes[PageOf(block)]; }

  void Free(void* block) {
    const std::lock_guard hold(m_lock);
    const std::size_t page = PageOf(block);
    const std::size_t extent = ExtentOf(m_sizes[page]);
    const std::size_t pages = PagesOf(extent);
    std::uint8_t* const start = m_memory + page * kPageBytes;
    auto* const byte = static_cast<std::uint8_t*>(block);
    if (m_isTaken[page] == 0 || byte + extent != start + pages * kPageBytes)
      FuzzFail("what is freed is no block, or not any more");
    if (std::any_of(byte - EdgeBefore(start, byte), byte, [](std::uint8_t edge) { return edge != kEdge; }))
      FuzzFail("what stands before a block was written");
    if (std::any_of(byte + m_sizes[page], byte + extent, [](std::uint8_t edge) { return edge != kEdge; }))
      FuzzFail("what stands behind a block was written");
    Protect(start, pages, PAGE_NOACCESS);
    std::fill_n(m_isTaken.begin() + static_cast<std::ptrdiff_t>(page), pages + 1, std::uint8_t{0});
    --m_blocks;
  }

  std::size_t Blocks() const { return m_blocks; }

 private:
  // Blocks end where their page does, aligned as far as their size is a multiple of the alignment. Only where the
  // counter that the runtime's shared texts have behind 16 bytes would then lie in two lines of the cache, four bytes
  // follow: counting there stops all processors, and Linux makes programs wait for it.
  static std::size_t ExtentOf(std::size_t bytes) {
    constexpr std::size_t kCounterAt = 16, kLineBytes = 64;
    const bool isSplit = bytes > kCounterAt && (kCounterAt - bytes) % kLineBytes > kLineBytes - sizeof(int);
    return isSplit ? bytes + sizeof(int) : bytes;
  }
  static std::size_t EdgeBefore(const std::uint8_t* start, const std::uint8_t* block) {
    return std::min(kEdgeBytes, static_cast<std::size_t>(block - start));
  }
  std::size_t PageOf(const void* block) const {
    return static_cast<std::size_t>(static_cast<const std::uint8_t*>(block) - m_memory) / kPageBytes;
  }

  // So many in a row that are free, from where the last ones were found on; kArenaPages for none.
  std::size_t FreePages(std::size_t pages) {
    std::size_t looked = 0;
    while (looked < kArenaPages + pages) {
      if (m_next + pages > kArenaPages) {
        looked += kArenaPages - m_next;
        m_next = 0;
      }
      const auto begin = m_isTaken.begin() + static_cast<std::ptrdiff_t>(m_next);
      const auto end = begin + static_cast<std::ptrdiff_t>(pages);
      const auto taken = std::find(begin, end, std::uint8_t{1});
      if (taken == end) {
        const std::size_t found = m_next;
        m_next += pages;
        return found;
      }
      const auto step = static_cast<std::size_t>(taken - begin) + 1;
      m_next += step;
      looked += step;
    }
    return kArenaPages;
  }

  PlainLock m_lock;
  std::uint8_t* const m_memory;         // never given back: blocks outlive the heap
  std::vector<std::uint8_t> m_isTaken;  // by page, guards too
  std::vector<std::size_t> m_sizes;     // of the block that begins on the page
  std::size_t m_next = 0;
  std::size_t m_blocks = 0;
};

// The replacements are plain functions, so the state is global.
Arena* g_arena = nullptr;  // null: no guards
std::atomic<bool> g_isInRun = false;
decltype(std::malloc)* g_malloc = nullptr;
decltype(std::calloc)* g_calloc = nullptr;
decltype(std::realloc)* g_realloc = nullptr;
decltype(std::free)* g_free = nullptr;

// Whether a block that is asked for now is to be a guarded one.
bool Counted(std::size_t bytes) {
  if (!g_isInRun) return false;
  CurrentFuzzRun().bytesAskedFor += bytes;
  return g_arena != nullptr;
}

void* Malloc(std::size_t bytes) { return Counted(bytes) ? g_arena->Take(bytes) : g_malloc(bytes); }

void* Calloc(std::size_t count, std::size_t bytes) {
  if (!Counted(count * bytes)) return g_calloc(count, bytes);
  void* const block = g_arena->Take(count * bytes);
  return block != nullptr ? std::memset(block, 0, count * bytes) : nullptr;
}

bool IsGuarded(const void* block) { return g_arena != nullptr && g_arena->Holds(block); }

void Free(void* block) {
  if (IsGuarded(block))
    g_arena->Free(block);
  else
    g_free(block);
}

void* Realloc(void* block, std::size_t bytes) {
  if (block == nullptr) return Malloc(bytes);
  if (!IsGuarded(block)) {
    Counted(bytes);
    return g_realloc(block, bytes);
  }
  void* const moved = Malloc(bytes);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, std::min(bytes, g_arena->SizeOf(block)));
  Free(block);
  return moved;
}

}  // namespace

void GuardedHeap::Install(bool guards) {
  // Never destroyed, as the patches are not undone.
  if (guards) g_arena = new Arena;
  const auto replace = [](const char* name, auto* replacement, auto*& original) {
    original = (new ImportPatch(ThisProgram(), name, replacement))
                   ->template Original<std::remove_reference_t<decltype(*replacement)>>();
  };
  replace("malloc", &Malloc, g_malloc);
  replace("calloc", &Calloc, g_calloc);
  replace("realloc", &Realloc, g_realloc);
  replace("free", &Free, g_free);
}

void GuardedHeap::BeginRun() noexcept {
  CurrentFuzzRun().bytesAskedFor = 0;
  g_isInRun = true;
}

void GuardedHeap::EndRun() noexcept { g_isInRun = false; }

std::size_t GuardedHeap::Blocks() noexcept { return g_arena != nullptr ? g_arena->Blocks() : 0; }

std::span<const std::uint8_t> GuardedHeap::CopyToPageEnd(std::span<const std::uint8_t> bytes) {
  static void* copy = nullptr;
  if (copy != nullptr) g_arena->Free(copy);
  // Of a size that lies at the end of its page whatever is done about counters.
  constexpr std::size_t kWhole = 64;
  const std::size_t size = (bytes.size() / kWhole + 1) * kWhole;
  copy = g_arena->Take(size);
  if (copy == nullptr) throw std::bad_alloc();
  auto* const start = static_cast<std::uint8_t*>(copy) + size - bytes.size();
  std::copy(bytes.begin(), bytes.end(), start);
  return {start, bytes.size()};
}
