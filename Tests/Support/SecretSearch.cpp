#include "Tests/Support/SecretSearch.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <format>

namespace {

constexpr std::size_t kPieceUnits = Secret::kPieceUnits;

// Whether `bytes`, as units of `kWidth` bytes, are the piece that begins with that unit.
template <std::size_t kWidth>
bool IsPiece(const Secret& secret, std::size_t first, const unsigned char* bytes, const unsigned char* end) {
  if (static_cast<std::size_t>(end - bytes) < kPieceUnits * kWidth) return false;
  for (std::size_t i = 0; i < kPieceUnits; ++i) {
    wchar_t unit = 0;
    std::memcpy(&unit, bytes + i * kWidth, kWidth);
    if (unit != secret.Unit(first + i)) return false;
  }
  return true;
}

bool LiesIn(const void* address, const void* block, std::size_t bytes) {
  return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(block) < bytes;
}

// Allocates nothing while it walks, so that no heap changes under it. The smallest block decides: some systems' walks
// end with one without bounds.
std::string WhereInHeaps(const void* address) {
  std::array<HANDLE, 64> heaps{};
  const DWORD count = ::GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
  std::size_t bytes = ~std::size_t{0};
  bool inUse = false;
  for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
    PROCESS_HEAP_ENTRY entry{};
    while (::HeapWalk(heaps[i], &entry) != FALSE) {
      if ((entry.wFlags & PROCESS_HEAP_REGION) != 0 || entry.cbData >= bytes) continue;
      if (!LiesIn(address, entry.lpData, entry.cbData)) continue;
      bytes = entry.cbData;
      inUse = (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    }
  }
  if (bytes == ~std::size_t{0}) return {};
  return std::format("in a block of a heap, of {} bytes, that is {}", bytes, inUse ? "in use" : "free");
}

std::string Where(const void* address, const MEMORY_BASIC_INFORMATION& region) {
  const std::string heap = WhereInHeaps(address);
  if (!heap.empty()) return heap;
  const char* const kind = LiesIn(&region, region.AllocationBase, 16 << 20) && region.Type == MEM_PRIVATE ? "a stack"
                           : region.Type == MEM_IMAGE                                                     ? "a module"
                                                      : "memory of no heap";
  return std::format("in {} at {}", kind, address);
}

// What a region holds, beside all heaps. Read by the system, since another thread may give the region back meanwhile.
class Snapshot {
 public:
  explicit Snapshot(const MEMORY_BASIC_INFORMATION& region)
      : m_bytes(::VirtualAlloc(nullptr, region.RegionSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)) {
    if (m_bytes != nullptr &&
        ::ReadProcessMemory(::GetCurrentProcess(), region.BaseAddress, m_bytes, region.RegionSize, &m_size) == FALSE)
      m_size = 0;
  }
  ~Snapshot() {
    if (m_bytes != nullptr) ::VirtualFree(m_bytes, 0, MEM_RELEASE);
  }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  const unsigned char* begin() const { return static_cast<const unsigned char*>(m_bytes); }
  const unsigned char* end() const { return begin() + m_size; }

 private:
  void* m_bytes;
  SIZE_T m_size = 0;
};

void SearchRegion(const Secret& secret, const MEMORY_BASIC_INFORMATION& region, std::vector<std::string>& found) {
  // The pieces' first units choose what is compared at all.
  std::array<bool, 256> begins{};
  for (std::size_t first = 0; first + kPieceUnits <= secret.Units(); first += kPieceUnits)
    begins[static_cast<std::size_t>(secret.Unit(first))] = true;
  const Snapshot bytes(region);
  for (const unsigned char& byte : bytes) {
    if (!begins[byte]) continue;
    for (std::size_t first = 0; first + kPieceUnits <= secret.Units(); first += kPieceUnits) {
      const bool wide = IsPiece<2>(secret, first, &byte, bytes.end());
      if (wide || IsPiece<1>(secret, first, &byte, bytes.end()))
        found.push_back(std::format(
            "{}, {}, from unit {} on, {}", secret.Name(), wide ? "wide" : "narrow", first,
            Where(static_cast<const unsigned char*>(region.BaseAddress) + (&byte - bytes.begin()), region)));
    }
  }
}

}  // namespace

wchar_t Secret::Unit(std::size_t i) const {
  // No piece of it is like another.
  std::uint64_t mixed = (i + static_cast<std::size_t>(m_name[0]) * 1000) * 0x9E3779B97F4A7C15;
  mixed = (mixed ^ (mixed >> 29)) * 0xBF58476D1CE4E5B9;
  return static_cast<wchar_t>(L'!' + (mixed >> 40) % 94);
}

void Secret::WriteTo(wchar_t* text) const {
  for (std::size_t i = 0; i < m_units; ++i) text[i] = Unit(i);
  text[m_units] = L'\0';
}

bool Secret::Equals(const wchar_t* text, std::size_t units) const {
  if (units != m_units) return false;
  for (std::size_t i = 0; i < units; ++i)
    if (text[i] != Unit(i)) return false;
  return true;
}

std::vector<std::string> FindInMemory(const Secret& secret) {
  std::vector<std::string> found;
  MEMORY_BASIC_INFORMATION region{};
  for (const unsigned char* address = nullptr; ::VirtualQuery(address, &region, sizeof region) != 0;
       address = static_cast<const unsigned char*>(region.BaseAddress) + region.RegionSize) {
    constexpr DWORD kWritable = PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    const bool readable = (region.Protect & kWritable) != 0 && (region.Protect & PAGE_GUARD) == 0;
    if (region.State == MEM_COMMIT && region.Type != MEM_MAPPED && readable) SearchRegion(secret, region, found);
  }
  return found;
}
