#include "ScriptedWindows/ImportTable/ImportFaults.h"

#include <cstring>
#include <utility>

#include "ScriptedWindows/Complaint.h"
#include "ScriptedWindows/ImportTable/ImportTable.h"

// All functions' way in, with the slot in r11. Keeps the registers that hold arguments, and asks. Its frame is gone
// before it jumps on.
asm(R"(
  .text
  .p2align 4
  .globl ScriptedWindowsImportEntry
  .def ScriptedWindowsImportEntry; .scl 2; .type 32; .endef
  .seh_proc ScriptedWindowsImportEntry
ScriptedWindowsImportEntry:
  subq $0x88, %rsp
  .seh_stackalloc 0x88
  .seh_endprologue
  movaps %xmm0, 0x20(%rsp)
  movaps %xmm1, 0x30(%rsp)
  movaps %xmm2, 0x40(%rsp)
  movaps %xmm3, 0x50(%rsp)
  movq %rcx, 0x60(%rsp)
  movq %rdx, 0x68(%rsp)
  movq %r8, 0x70(%rsp)
  movq %r9, 0x78(%rsp)
  movq %r11, 0x80(%rsp)
  movq %r11, %rcx
  call ScriptedWindowsImportDecide
  movaps 0x20(%rsp), %xmm0
  movaps 0x30(%rsp), %xmm1
  movaps 0x40(%rsp), %xmm2
  movaps 0x50(%rsp), %xmm3
  movq 0x60(%rsp), %rcx
  movq 0x68(%rsp), %rdx
  movq 0x70(%rsp), %r8
  movq 0x78(%rsp), %r9
  movq 0x80(%rsp), %r11
  addq $0x88, %rsp
  testb %al, %al
  jnz 1f
  jmpq *(%r11)
1:
  movq 8(%r11), %rax
  movq %rax, %xmm0
  ret
  .seh_endproc
)");

extern "C" {
void ScriptedWindowsImportEntry();  // NOLINT(misc-use-internal-linkage): it is defined above
bool ScriptedWindowsImportDecide(ImportFaults::Slot& slot) noexcept;
}

// NOLINTNEXTLINE(misc-use-internal-linkage): it is called from above
bool ScriptedWindowsImportDecide(ImportFaults::Slot& slot) noexcept { return ImportFaults::Decide(slot); }

namespace {

// What the table is made to point to: mov r11, slot; jmp [the address behind it]; the address.
struct Thunk {
  explicit Thunk(const ImportFaults::Slot* slot) {
    const auto place = reinterpret_cast<std::uintptr_t>(slot);
    const auto entry = reinterpret_cast<std::uintptr_t>(&ScriptedWindowsImportEntry);
    std::memcpy(bytes + 2, &place, sizeof place);
    std::memcpy(bytes + 16, &entry, sizeof entry);
  }
  unsigned char bytes[32] = {0x49, 0xbb, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0x25};
};

bool IsCode(const void* address) {
  MEMORY_BASIC_INFORMATION page{};
  constexpr DWORD kExecutable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  return ::VirtualQuery(address, &page, sizeof page) != 0 && (page.Protect & kExecutable) != 0;
}

// Past the import tables: the program's own may be the one that is patched.
auto* const g_setLastError = reinterpret_cast<decltype(&::SetLastError)>(
    reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetLastError")));

}  // namespace

ImportFaults::ImportFaults(HMODULE module) {
  static_assert(offsetof(Slot, original) == 0 && offsetof(Slot, result) == 8);
  VisitImports(module, [&](const ImportEntry& entry) {
    if (IsCode(*entry.slot)) m_names.push_back(entry.name);
    return true;
  });
  const std::size_t bytes = m_names.size() * sizeof(Thunk);
  m_code = ::VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  Require(m_code != nullptr, "there is no memory for the instructions");
  m_slots = std::vector<Slot>(m_names.size());
  auto* const thunks = static_cast<Thunk*>(m_code);
  for (std::size_t i = 0; i < m_slots.size(); ++i) {
    m_slots[i].owner = this;
    ::new (thunks + i) Thunk(&m_slots[i]);
  }
  DWORD before = 0;
  Require(::VirtualProtect(m_code, bytes, PAGE_EXECUTE_READ, &before) != FALSE, "the instructions cannot be run");
  ::FlushInstructionCache(::GetCurrentProcess(), m_code, bytes);
  Enter(module);
}

ImportFaults::~ImportFaults() {
  Leave();
  ::VirtualFree(m_code, 0, MEM_RELEASE);
}

void ImportFaults::Enter(HMODULE module) {
  Leave();
  std::size_t i = 0;
  VisitImports(module, [&](const ImportEntry& entry) {
    if (!IsCode(*entry.slot)) return true;
    Require(i < m_names.size() && m_names[i] == entry.name, "it is another file");
    m_slots[i].original = *entry.slot;
    m_slots[i].entry = entry.slot;
    ++i;
    return true;
  });
  auto* const thunks = static_cast<Thunk*>(m_code);
  for (i = 0; i < m_slots.size(); ++i) WriteImport(m_slots[i].entry, thunks + i);
  m_entered = true;
}

void ImportFaults::Leave() {
  if (!std::exchange(m_entered, false)) return;
  for (const Slot& slot : m_slots) WriteImport(slot.entry, slot.original);
}

std::uint32_t ImportFaults::Calls(const std::string& import) const {
  std::uint32_t calls = 0;
  for (std::size_t i = 0; i < m_names.size(); ++i)
    if (m_names[i] == import) calls += m_slots[i].calls;
  return calls;
}

std::uint64_t ImportFaults::AllCalls() const {
  std::uint64_t calls = 0;
  for (const Slot& slot : m_slots) calls += slot.calls;
  return calls;
}

void ImportFaults::ForgetCalls() {
  for (Slot& slot : m_slots) slot.calls = 0;
}

void ImportFaults::FailAt(const std::vector<std::size_t>& imports, std::uint32_t call, Mode mode,
                          ImportFailure failure) {
  StopFailing();
  m_failed = false;
  m_mode = mode;
  m_left = call;
  for (const std::size_t import : imports) {
    m_slots[import].result = failure.result;
    m_slots[import].error = failure.error;
    m_slots[import].fails = true;
  }
}

bool ImportFaults::StopFailing() {
  for (Slot& slot : m_slots) slot.fails = false;
  return m_failed;
}

bool ImportFaults::Decide(Slot& slot) noexcept {
  slot.calls.fetch_add(1, std::memory_order_relaxed);
  if (!slot.fails) return false;
  ImportFaults& self = *slot.owner;
  const std::int64_t left = self.m_left.fetch_sub(1);
  if (left > 1 || (left < 1 && self.m_mode == Mode::kOnce)) return false;
  self.m_failed = true;
  if (slot.error != ERROR_SUCCESS) g_setLastError(slot.error);
  return true;
}
