#include "MachineFacts.h"

#include <windows.h>
#include <QeLaVersion.h>
// After windows.h, which it needs.
#include <sddl.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "AdapterView.h"
#include "CommandError.h"
#include "CriterionKinds.h"
#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Common/Utilities/SystemDirectory.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/StoredSetRecord.h"
#include "StoredSet.h"
#include "Text.h"
#include "Version.h"

namespace {

struct ModuleTraits {
  using Handle = HMODULE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::FreeLibrary(handle); }
};
using UniqueModule = UniqueHandle<ModuleTraits>;

void GatherSet(MachineFacts& facts) {
  const StoredValue value = ReadStoredValue();
  facts.readError = value.IsAbsent() ? ERROR_SUCCESS : static_cast<unsigned long>(value.status);
  try {
    facts.set = LocationsIn(value);
  } catch (const CommandError& error) {
    facts.setError = error.what();
    return;
  }
  std::vector<std::string_view> rules;
  for (const Finding& finding : Lint(facts.set, facts.adapters.size())) {
    const Severity severity = finding.rule->severity;
    ++(severity == Severity::kError     ? facts.lintErrors
       : severity == Severity::kWarning ? facts.lintWarnings
                                        : facts.lintNotes);
    if (severity == Severity::kError && std::find(rules.begin(), rules.end(), finding.rule->number) == rules.end())
      rules.push_back(finding.rule->number);
    if (!finding.cost) continue;
    facts.cost.silentSeconds += finding.cost->silentSeconds;
    facts.cost.worstSeconds += finding.cost->worstSeconds;
    facts.webHosts += facts.set[finding.location].Criterias().Texts(LCT_DOMAIN_REACHABLE).size();
  }
  for (const std::string_view rule : rules)
    facts.lintRules += (facts.lintRules.empty() ? "" : ", ") + std::string(rule);
}

// Whether the key may be written, or made below the nearest one that is there. Nothing is made.
unsigned long ErrorOfWriting() {
  std::wstring path = kLaKey;
  REGSAM access = KEY_SET_VALUE;
  for (;;) {
    UniqueRegKey key;
    const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, key.put());
    if (status != ERROR_FILE_NOT_FOUND || path.empty()) return static_cast<unsigned long>(status);
    path.resize(path.find(L'\\') == std::wstring::npos ? 0 : path.rfind(L'\\'));
    access = KEY_CREATE_SUB_KEY;
  }
}

const IMAGE_IMPORT_DESCRIPTOR* ImportsOf(const std::byte* base) {
  const auto* const header = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const image = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + header->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = image->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  return imports.Size == 0 ? nullptr : reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
}

bool IsOfWindows(const std::string& library) {
  std::wstring lower = ToWide(library);
  LowerAscii(lower);
  if (lower.starts_with(L"api-ms-") || lower.starts_with(L"ext-ms-")) return true;
  std::wstring folder;
  return GetSystemDirectoryPath(folder) &&
         ::GetFileAttributesW((folder + L"\\" + lower).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Modules are mapped only: nothing of theirs runs.
unsigned long Map(const std::wstring& path, UniqueModule& module) {
  module.reset(::LoadLibraryExW(path.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES));
  return module ? ERROR_SUCCESS : ::GetLastError();
}

HostLibrary Examine(const std::byte* base, const IMAGE_IMPORT_DESCRIPTOR& imported, const std::wstring& folder) {
  HostLibrary library;
  library.name = reinterpret_cast<const char*>(base + imported.Name);
  const std::wstring path = folder + ToWide(library.name);
  library.version = FileVersion(path);
  UniqueModule module;
  library.error = Map(path, module);
  if (!module) return library;
  const DWORD names = imported.OriginalFirstThunk != 0 ? imported.OriginalFirstThunk : imported.FirstThunk;
  for (const auto* entry = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + names); entry->u1.AddressOfData != 0;
       ++entry) {
    if (IMAGE_SNAP_BY_ORDINAL(entry->u1.Ordinal)) continue;
    const auto* const name =
        reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + static_cast<std::size_t>(entry->u1.AddressOfData));
    if (::GetProcAddress(module.get(), name->Name) == nullptr && library.missing++ == 0)
      library.firstMissing = name->Name;
  }
  return library;
}

void GatherLibraries(MachineFacts& facts) {
  const std::wstring folder = FolderOfThisProgram();
  const std::wstring path = folder + L"QeLaLib.dll";
  facts.programVersion = QELA_VERSION_TEXT;
  facts.libraryVersion = FileVersion(path);
  UniqueModule library;
  facts.libraryError = Map(path, library);
  if (!library) return;
  const auto* const base = reinterpret_cast<const std::byte*>(library.get());
  for (const IMAGE_IMPORT_DESCRIPTOR* imported = ImportsOf(base); imported != nullptr && imported->Name != 0;
       ++imported)
    if (!IsOfWindows(reinterpret_cast<const char*>(base + imported->Name)))
      facts.hostLibraries.push_back(Examine(base, *imported, folder));
}

std::wstring ComputerName(COMPUTER_NAME_FORMAT format) {
  DWORD size = 0;
  ::GetComputerNameExW(format, nullptr, &size);
  std::wstring name(size, L'\0');
  if (!::GetComputerNameExW(format, name.data(), &size)) return {};
  name.resize(size);
  return name;
}

void GatherAccount(MachineFacts& facts) {
  facts.identity.machine = ComputerName(ComputerNamePhysicalDnsHostname);
  facts.identity.dnsDomain = ComputerName(ComputerNamePhysicalDnsDomain);
  UniqueKernelHandle token;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.put())) return;
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  if (::GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size))
    facts.isElevated = elevation.TokenIsElevated != 0;
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer{};
  if (!::GetTokenInformation(token.get(), TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &size)) return;
  PSID sid = reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid;
  if (wchar_t* text = nullptr; ::ConvertSidToStringSidW(sid, &text)) {
    facts.identity.sid = text;
    ::LocalFree(text);
  }
  wchar_t name[256];
  wchar_t domain[256];
  DWORD nameSize = std::size(name);
  DWORD domainSize = std::size(domain);
  SID_NAME_USE use{};
  if (!::LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use)) return;
  facts.identity.user = name;
  facts.identity.domain = domain;
}

}  // namespace

MachineFacts GatherFacts() {
  MachineFacts facts;
  facts.adapters = *TakeAdapters();
  GatherSet(facts);
  GatherLibraries(facts);
  GatherAccount(facts);
  facts.writeError = ErrorOfWriting();
  facts.upSeconds = ::GetTickCount64() / 1000;
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  facts.year = now.wYear;
  facts.time = TimeNow();
  return facts;
}

MachineFacts Redacted(const MachineFacts& facts, Redaction& redaction) {
  MachineFacts redacted = facts;
  redacted.set = redaction.Set();
  redacted.adapters = redaction.Machine().adapters;
  redacted.identity.machine = redaction.Replace(Secret::kMachine, facts.identity.machine);
  redacted.identity.user = redaction.Replace(Secret::kUser, facts.identity.user);
  redacted.identity.domain = redaction.Replace(Secret::kDomain, facts.identity.domain);
  redacted.identity.sid = redaction.Replace(Secret::kSid, facts.identity.sid);
  redacted.identity.dnsDomain = redaction.Suffix(facts.identity.dnsDomain);
  return redacted;
}
