// The modules that ship, as images: what they import, how they are hardened, what they say of themselves.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <format>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "QeLaVersion.h"
#include "ScriptedWindows/ImportTable/ImportTable.h"
#include "Tests/Support/TestFile.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// ---- what QeLaLib.dll may import ----

// A library, and its functions between blanks. It runs inside a security service, so every function of another's that
// it can call is chosen: each is one more that must be there on every Windows the library runs on, may fail, and can be
// turned against the host. A new one is entered here when it is meant, and in Tests/Support/ImportFailures.cpp with how
// it fails; the runtime that is linked in, which has its part of these, brings new ones when the toolchain changes.
// What is imported no longer is taken out.
const std::map<std::string, const char*> kAllowedImports = {
    // The registry, and the identity of the thread.
    {"ADVAPI32.dll",
     "ImpersonateLoggedOnUser OpenProcessToken RegCloseKey RegCreateKeyExW RegFlushKey RegOpenKeyExW "
     "RegQueryValueExW RegSetValueExW RevertToSelf SetThreadToken"},
    // The interactive user's client certificates.
    {"CRYPT32.dll",
     "CertCloseStore CertDuplicateCertificateContext CertFindChainInStore CertFreeCertificateChain "
     "CertFreeCertificateContext CertNameToStrW CertOpenStore"},
    // Whether a management server is known.
    {"DNSAPI.dll", "DnsFree DnsQuery_W"},
    // Adapters, addresses, and that these change.
    {"IPHLPAPI.DLL", "CancelIPChangeNotify GetAdaptersAddresses GetIpAddrTable NotifyAddrChange"},
    // Processes and pipes for the interactive user's shell; threads, events and locks; texts. SetSystemTime, the
    // affinities and the contexts of threads are of the runtime's threads, and are not called.
    {"KERNEL32.dll",
     "AcquireSRWLockExclusive CloseHandle CreateEventA CreateEventW CreatePipe CreateProcessW CreateSemaphoreA "
     "CreateThread CreateToolhelp32Snapshot DeleteCriticalSection DuplicateHandle EnterCriticalSection "
     "FileTimeToSystemTime FormatMessageA FreeLibrary FreeLibraryAndExitThread GetCurrentProcess GetCurrentProcessId "
     "GetCurrentThread GetCurrentThreadId GetHandleInformation GetLastError GetModuleHandleA GetModuleHandleExW "
     "GetModuleHandleW GetOverlappedResult GetProcAddress GetProcessAffinityMask GetProcessHeap GetProcessTimes "
     "GetSystemDirectoryW GetSystemTimeAdjustment GetSystemTimeAsFileTime GetThreadContext GetThreadPriority "
     "GetThreadTimes GetTickCount GetTickCount64 GetVersionExW GlobalFree HeapAlloc HeapFree "
     "InitializeCriticalSection IsDebuggerPresent IsProcessorFeaturePresent LeaveCriticalSection LoadLibraryW "
     "LocalFree MultiByteToWideChar OpenProcess OutputDebugStringA PeekNamedPipe Process32FirstW Process32NextW "
     "QueryPerformanceCounter QueryPerformanceFrequency RaiseException ReadFile ReleaseSRWLockExclusive "
     "ReleaseSemaphore ResetEvent ResumeThread RtlCaptureContext RtlLookupFunctionEntry RtlUnwindEx RtlVirtualUnwind "
     "SetEvent SetHandleInformation SetLastError SetProcessAffinityMask SetSystemTime SetThreadContext "
     "SetThreadPriority Sleep SuspendThread TerminateProcess TlsAlloc TlsFree TlsGetValue TlsSetValue "
     "TryEnterCriticalSection VirtualProtect VirtualQuery WaitForMultipleObjects WaitForSingleObject "
     "WideCharToMultiByte __C_specific_handler"},
    // The apartment of a calculation.
    {"ole32.dll", "CoInitializeEx CoUninitialize"},
    // Identifiers of new locations.
    {"RPCRT4.dll", "RpcStringFreeW UuidCreate UuidToStringW"},
    // The probe over HTTPS.
    {"WINHTTP.dll",
     "WinHttpCloseHandle WinHttpConnect WinHttpGetIEProxyConfigForCurrentUser WinHttpGetProxyForUrl WinHttpOpen "
     "WinHttpOpenRequest WinHttpQueryAuthSchemes WinHttpQueryHeaders WinHttpQueryOption WinHttpReceiveResponse "
     "WinHttpSendRequest WinHttpSetCredentials WinHttpSetOption WinHttpSetStatusCallback WinHttpSetTimeouts"},
    // Address texts.
    {"WS2_32.dll",
     "FreeAddrInfoW GetAddrInfoW InetNtopW InetPtonW WSACleanup WSACloseEvent WSACreateEvent WSAGetLastError "
     "WSAStartup WSAStringToAddressW htonl inet_ntop"},
    // The host's own libraries.
    {"KzVariantExport.dll",
     "_ZN9KzvStringC1EPKwS1_j _ZNK7KzvBase17BuildNewKzVariantEPFPvyE _ZNK7KzvView4ListEv _ZNK7KzvView4NameEv "
     "_ZNK7KzvView6StringEv _ZNK7KzvViewixEj"},
    {"LogLib.dll",
     "_Z13getLogManagerv _ZN8LogUtils8LogEventC1EPKciiS2_PNS_10LogManagerEii _ZNK8LogUtils8LogEventclEPKcPKwz "
     "_ZNK8LogUtils8LogEventclEPKcS2_z"},
    {"blframework.dll",
     "BLAlloc BLFrameworkCleanUp BLFrameworkInit BLFree BLGetObjectHandle BLInvokeMethod BLReleaseObjectHandle"},
    // The C runtime.
    {"api-ms-win-crt-convert-l1-1-0.dll", "_wtoi mbrtowc mbstowcs strtol strtoul wcrtomb wcstol"},
    {"api-ms-win-crt-environment-l1-1-0.dll", "__p__environ __p__wenviron getenv"},
    {"api-ms-win-crt-heap-l1-1-0.dll", "_set_new_mode calloc free malloc realloc"},
    {"api-ms-win-crt-locale-l1-1-0.dll", "___lc_codepage_func ___mb_cur_max_func localeconv setlocale"},
    {"api-ms-win-crt-private-l1-1-0.dll", "__intrinsic_setjmpex longjmp memchr memcmp memcpy memmove strchr"},
    {"api-ms-win-crt-runtime-l1-1-0.dll",
     "__p___argc __p___argv __p___wargv _beginthreadex _configure_narrow_argv _configure_wide_argv "
     "_crt_at_quick_exit _crt_atexit _endthreadex _errno _execute_onexit_table _exit _initialize_narrow_environment "
     "_initialize_onexit_table _initialize_wide_environment _initterm _register_onexit_function abort exit signal "
     "strerror"},
    {"api-ms-win-crt-stdio-l1-1-0.dll",
     "__acrt_iob_func __stdio_common_vfprintf __stdio_common_vfwprintf __stdio_common_vsprintf _read _write fputc "
     "fwrite"},
    {"api-ms-win-crt-string-l1-1-0.dll",
     "_strdup iswctype memset strcmp strcoll strlen strncmp strxfrm towlower towupper wcscoll wcslen wcsxfrm"},
    {"api-ms-win-crt-time-l1-1-0.dll", "__daylight __timezone __tzname _tzset strftime wcsftime"},
    {"api-ms-win-crt-utility-l1-1-0.dll", "rand_s"},
};

// What only the build without optimisation imports.
const std::set<std::string> kOnlyUnoptimised = {"api-ms-win-crt-runtime-l1-1-0.dll _assert"};

// ---- images ----

// A module's image as the loader maps it, without its libraries, and without a line of it run.
class Image {
 public:
  explicit Image(const std::string& file)
      : m_path((ProgramFolder() / file).wstring()),
        m_module(::LoadLibraryExW(m_path.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES)) {
    EXPECT_NE(m_module, nullptr) << file << " does not load, error " << ::GetLastError();
    std::vector<std::byte> data(::GetFileVersionInfoSizeW(m_path.c_str(), nullptr));
    if (::GetFileVersionInfoW(m_path.c_str(), 0, static_cast<DWORD>(data.size()), data.data()) != FALSE)
      m_version = std::move(data);
  }
  ~Image() {
    if (m_module != nullptr) ::FreeLibrary(m_module);
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  HMODULE Module() const { return m_module; }
  template <typename T>
  const T* At(DWORD offset) const {
    return reinterpret_cast<const T*>(reinterpret_cast<const std::byte*>(m_module) + offset);
  }
  const IMAGE_NT_HEADERS& Headers() const {
    return *At<IMAGE_NT_HEADERS>(static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
  }
  const IMAGE_DATA_DIRECTORY& Directory(int number) const { return Headers().OptionalHeader.DataDirectory[number]; }
  // Null where it has none.
  template <typename T>
  const T* DirectoryAt(int number) const {
    return Directory(number).Size == 0 ? nullptr : At<T>(Directory(number).VirtualAddress);
  }
  std::vector<IMAGE_SECTION_HEADER> Sections() const {
    const auto* const first = reinterpret_cast<const IMAGE_SECTION_HEADER*>(
        reinterpret_cast<const std::byte*>(&Headers().OptionalHeader) + Headers().FileHeader.SizeOfOptionalHeader);
    return {first, first + Headers().FileHeader.NumberOfSections};
  }

  // A block of the version resource. Null where it has none.
  const void* Version(const std::wstring& name) const {
    void* block = nullptr;
    UINT size = 0;
    if (m_version.empty() || ::VerQueryValueW(m_version.data(), name.c_str(), &block, &size) == FALSE) return nullptr;
    return block;
  }
  std::wstring VersionText(const std::wstring& name) const {
    const void* text = Version(L"\\StringFileInfo\\040904B0\\" + name);
    return text == nullptr ? L"none" : static_cast<const wchar_t*>(text);
  }

 private:
  const std::wstring m_path;
  const HMODULE m_module;
  std::vector<std::byte> m_version;
};

struct Shipped {
  const char* file;
  const wchar_t* description;
};
constexpr Shipped kShipped[] = {
    {"QeLaLib.dll", L"Firewall Location Awareness Library"},
    {"QeLaC.dll", L"Firewall location awareness for hosts in C"},
    {"LogLib.dll", L"Log of QeLaLib's host"},
    {"blframework.dll", L"Proxy credentials of QeLaLib's host"},
    {"KzVariantExport.dll", L"Variants of QeLaLib's host"},
    {"qela.exe", L"Location awareness on the console"},
};

class ShippedImage : public testing::TestWithParam<Shipped> {
 protected:
  const Image m_image{GetParam().file};
};

TEST_P(ShippedImage, AsksForRandomAddressesOfAllBitsAndForDataThatIsNeverRun) {
  const DWORD flags = m_image.Headers().OptionalHeader.DllCharacteristics;
  EXPECT_TRUE(flags & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
  EXPECT_TRUE(flags & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA);
  EXPECT_TRUE(flags & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
}

// Without its relocations an image goes to one address, whatever its flags ask for.
TEST_P(ShippedImage, CanBeMovedToAnotherAddress) {
  EXPECT_FALSE(m_image.Headers().FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED);
  const auto* const block = m_image.DirectoryAt<IMAGE_BASE_RELOCATION>(IMAGE_DIRECTORY_ENTRY_BASERELOC);
  ASSERT_NE(block, nullptr);
  EXPECT_GT(block->SizeOfBlock, sizeof *block);
}

TEST_P(ShippedImage, HasNoMemoryThatCanBeWrittenAndRun) {
  int run = 0;
  for (const IMAGE_SECTION_HEADER& section : m_image.Sections()) {
    const bool runs = (section.Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0;
    EXPECT_FALSE(runs && (section.Characteristics & IMAGE_SCN_MEM_WRITE) != 0)
        << std::string_view(reinterpret_cast<const char*>(section.Name), sizeof section.Name);
    run += runs ? 1 : 0;
  }
  EXPECT_EQ(run, 1);
}

// The same sources give the same bytes.
TEST_P(ShippedImage, HoldsNoTimeOfItsBuild) {
  EXPECT_EQ(m_image.Headers().FileHeader.TimeDateStamp, 0u);
  const auto* const exports = m_image.DirectoryAt<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
  EXPECT_EQ(exports == nullptr ? 0u : exports->TimeDateStamp, 0u);
  const auto* const resources = m_image.DirectoryAt<IMAGE_RESOURCE_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_RESOURCE);
  ASSERT_NE(resources, nullptr);
  EXPECT_EQ(resources->TimeDateStamp, 0u);
  const auto* const debug = m_image.DirectoryAt<IMAGE_DEBUG_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_DEBUG);
  ASSERT_NE(debug, nullptr);
  const std::size_t count = m_image.Directory(IMAGE_DIRECTORY_ENTRY_DEBUG).Size / sizeof *debug;
  for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(debug[i].TimeDateStamp, 0u);
}

TEST_P(ShippedImage, SaysWhatItIsAndTheProjectsVersion) {
  const std::string file = GetParam().file;
  const std::wstring version = std::wstring(std::begin(QELA_VERSION_TEXT), std::end(QELA_VERSION_TEXT) - 1) + L".0";
  EXPECT_EQ(m_image.VersionText(L"CompanyName"), L"The QeLaLib authors");
  EXPECT_EQ(m_image.VersionText(L"FileDescription"), GetParam().description);
  EXPECT_EQ(m_image.VersionText(L"FileVersion"), version);
  EXPECT_EQ(m_image.VersionText(L"InternalName"), std::wstring(file.begin(), file.end() - 4));
  EXPECT_THAT(m_image.VersionText(L"LegalCopyright"), HasSubstr(L"the QeLaLib authors"));
  EXPECT_EQ(m_image.VersionText(L"OriginalFilename"), std::wstring(file.begin(), file.end()));
  EXPECT_EQ(m_image.VersionText(L"ProductName"), L"QeLaLib");
  EXPECT_EQ(m_image.VersionText(L"ProductVersion"), version);

  const auto* const fixed = static_cast<const VS_FIXEDFILEINFO*>(m_image.Version(L"\\"));
  ASSERT_NE(fixed, nullptr);
  const auto text = [](DWORD high, DWORD low) {
    return std::format(L"{}.{}.{}.{}", HIWORD(high), LOWORD(high), HIWORD(low), LOWORD(low));
  };
  EXPECT_EQ(text(fixed->dwFileVersionMS, fixed->dwFileVersionLS), version);
  EXPECT_EQ(text(fixed->dwProductVersionMS, fixed->dwProductVersionLS), version);
  EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(file.ends_with(".exe") ? VFT_APP : VFT_DLL));
  EXPECT_EQ(fixed->dwFileFlags & fixed->dwFileFlagsMask, 0u) << "neither a debug build nor a pre-release";
}

INSTANTIATE_TEST_SUITE_P(Of, ShippedImage, testing::ValuesIn(kShipped), [](const auto& module) {
  const std::string file = module.param.file;
  return file.substr(0, file.find('.'));
});

// ---- of QeLaLib.dll alone ----

class LibraryImage : public testing::Test {
 protected:
  const Image m_image{"QeLaLib.dll"};
};

TEST_F(LibraryImage, ExportsTwoFunctionsWithPlainNames) {
  const auto* const table = m_image.DirectoryAt<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
  ASSERT_NE(table, nullptr);
  std::vector<std::string> names;
  const auto* offsets = m_image.At<DWORD>(table->AddressOfNames);
  for (DWORD i = 0; i < table->NumberOfNames; ++i) names.emplace_back(m_image.At<char>(offsets[i]));
  EXPECT_THAT(names, UnorderedElementsAre("GetQeLaApi", "GetQeLaApiSmart"));
  EXPECT_EQ(table->NumberOfFunctions, 2u);
  EXPECT_STREQ(m_image.At<char>(table->Name), "QeLaLib.dll");
}

TEST_F(LibraryImage, ImportsNothingButWhatIsAllowed) {
  std::set<std::string> allowed;
  for (const auto& [library, functions] : kAllowedImports) {
    std::istringstream words(functions);
    for (std::string function; words >> function;) allowed.insert(library + " " + function);
  }
  std::set<std::string> imported;
  VisitImports(m_image.Module(), [&](const ImportEntry& import) {
    imported.insert(std::string(import.library) + " " + import.name);
    return true;
  });
  ASSERT_GT(imported.size(), 100u);

  const auto without = [](const std::set<std::string>& some, const std::set<std::string>& others) {
    std::vector<std::string> left;
    std::set_difference(some.begin(), some.end(), others.begin(), others.end(), std::back_inserter(left));
    return left;
  };
  std::set<std::string> unoptimisedToo = allowed;
  unoptimisedToo.insert(kOnlyUnoptimised.begin(), kOnlyUnoptimised.end());
  EXPECT_THAT(without(imported, unoptimisedToo), IsEmpty())
      << "These are new. Enter those that are meant in kAllowedImports in Tests/Contract/ImageTests.cpp, where a "
         "comment "
         "tells why there is a list.";
  EXPECT_THAT(without(allowed, imported), IsEmpty())
      << "These are imported no longer. Take them out of kAllowedImports in Tests/Contract/ImageTests.cpp.";
}

// Imports that are looked up later would pass the list by, and fail in the middle of a call.
TEST_F(LibraryImage, LeavesNoImportForLater) {
  EXPECT_EQ(m_image.Directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT).Size, 0u);
}

// The runtime calls one function where the guard of a frame was overwritten. It is found by the text that it writes;
// that the functions of the library end with a check is seen from how many places call it.
TEST_F(LibraryImage, GuardsItsStack) {
  constexpr std::string_view kMessage = "*** stack smashing detected ***";
  const auto* const image = m_image.At<char>(0);
  const std::string_view whole(image, m_image.Headers().OptionalHeader.SizeOfImage);
  const std::size_t message = whole.find(kMessage);
  ASSERT_NE(message, std::string_view::npos) << "the runtime's check is not linked in";

  const std::vector<IMAGE_SECTION_HEADER> sections = m_image.Sections();
  const auto code = std::find_if(sections.begin(), sections.end(), [](const IMAGE_SECTION_HEADER& section) {
    return (section.Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0;
  });
  ASSERT_NE(code, sections.end());
  // Where the four bytes at `at` lead to, counted from the instruction's end behind them.
  const auto target = [&](std::size_t at) {
    std::int32_t distance = 0;
    std::memcpy(&distance, image + at, sizeof distance);
    return at + sizeof distance + static_cast<std::size_t>(distance);
  };
  const std::size_t begin = code->VirtualAddress;
  const std::size_t end = begin + code->Misc.VirtualSize - 4;
  std::size_t user = begin;
  while (user < end && target(user) != message) ++user;
  ASSERT_LT(user, end) << "nothing uses the message";

  // The table of functions tells where the one that uses it begins.
  const auto* const functions = m_image.DirectoryAt<RUNTIME_FUNCTION>(IMAGE_DIRECTORY_ENTRY_EXCEPTION);
  ASSERT_NE(functions, nullptr);
  const auto* const last = functions + m_image.Directory(IMAGE_DIRECTORY_ENTRY_EXCEPTION).Size / sizeof *functions;
  const auto* const check = std::find_if(functions, last, [&](const RUNTIME_FUNCTION& function) {
    return function.BeginAddress <= user && user < function.EndAddress;
  });
  ASSERT_NE(check, last);

  constexpr char kCall = '\xE8';
  int calls = 0;
  for (std::size_t at = begin; at < end; ++at)
    if (image[at] == kCall && target(at + 1) == check->BeginAddress) ++calls;
  // 194 when this was written. All are the library's own: what is linked in of the runtime has no guards.
  EXPECT_GE(calls, 100);
}

}  // namespace
