#include "FwClient/Common/Utilities/NtDllExports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cwchar>
#include <set>
#include <string>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The loader's calls, as they should go: a test changes what it wants changed.
struct Loader {
  bool mapped = true;
  bool loadable = true;
  std::set<std::string> missing;

  int loads = 0;
  int lookUps = 0;
  int frees = 0;
  HMODULE freed = nullptr;
};
Loader g_loader;
ImportPatch* g_getModuleHandle = nullptr;
ImportPatch* g_loadLibrary = nullptr;
ImportPatch* g_getProcAddress = nullptr;
ImportPatch* g_freeLibrary = nullptr;

HMODULE WINAPI GetModuleHandleFake(LPCWSTR name) {
  const bool ours = name != nullptr && std::wcscmp(name, L"ntdll.dll") == 0;
  return ours && !g_loader.mapped ? nullptr : g_getModuleHandle->Original<HMODULE WINAPI(LPCWSTR)>()(name);
}

HMODULE WINAPI LoadLibraryFake(LPCWSTR name) {
  if (std::wcscmp(name, L"ntdll.dll") != 0) return g_loadLibrary->Original<HMODULE WINAPI(LPCWSTR)>()(name);
  ++g_loader.loads;
  return g_loader.loadable ? g_loadLibrary->Original<HMODULE WINAPI(LPCWSTR)>()(name) : nullptr;
}

FARPROC WINAPI GetProcAddressFake(HMODULE module, LPCSTR name) {
  ++g_loader.lookUps;
  return g_loader.missing.contains(name) ? nullptr
                                         : g_getProcAddress->Original<FARPROC WINAPI(HMODULE, LPCSTR)>()(module, name);
}

BOOL WINAPI FreeLibraryFake(HMODULE module) {
  ++g_loader.frees;
  g_loader.freed = module;
  return g_freeLibrary->Original<BOOL WINAPI(HMODULE)>()(module);
}

class NtDllExportsTest : public testing::Test {
 protected:
  NtDllExportsTest() {
    g_loader = {};
    g_getModuleHandle = &m_getModuleHandle;
    g_loadLibrary = &m_loadLibrary;
    g_getProcAddress = &m_getProcAddress;
    g_freeLibrary = &m_freeLibrary;
  }

  const HMODULE m_self = ThisProgram();
  LogRecorder m_log;
  ImportPatch m_getModuleHandle{m_self, "GetModuleHandleW", &GetModuleHandleFake};
  ImportPatch m_loadLibrary{m_self, "LoadLibraryW", &LoadLibraryFake};
  ImportPatch m_getProcAddress{m_self, "GetProcAddress", &GetProcAddressFake};
  ImportPatch m_freeLibrary{m_self, "FreeLibrary", &FreeLibraryFake};
};

TEST_F(NtDllExportsTest, FindsBothParsersAndThoseParse) {
  const NtDllExports ntDll;
  ASSERT_NE(ntDll.RtlIpv4StringToAddressW(), nullptr);
  ASSERT_NE(ntDll.RtlIpv6StringToAddressW(), nullptr);
  PCWSTR end = nullptr;
  IN_ADDR ipv4{};
  EXPECT_EQ(ntDll.RtlIpv4StringToAddressW()(L"10.1", FALSE, &end, &ipv4), 0);
  EXPECT_EQ(ipv4.s_addr, 0x0100000AU);
  IN6_ADDR ipv6{};
  EXPECT_EQ(ntDll.RtlIpv6StringToAddressW()(L"::1", &end, &ipv6), 0);
  EXPECT_EQ(ipv6.s6_addr[15], 1);
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(NtDllExportsTest, TakesTheMappedModuleAndLeavesItAlone) {
  {
    const NtDllExports ntDll;
  }
  EXPECT_EQ(g_loader.loads, 0);
  EXPECT_EQ(g_loader.frees, 0);
}

TEST_F(NtDllExportsTest, LoadsAModuleThatIsNotMappedAndFreesItAtTheEnd) {
  g_loader.mapped = false;
  {
    const NtDllExports ntDll;
    EXPECT_EQ(g_loader.loads, 1);
    EXPECT_EQ(g_loader.frees, 0);
    EXPECT_NE(ntDll.RtlIpv4StringToAddressW(), nullptr);
    EXPECT_NE(ntDll.RtlIpv6StringToAddressW(), nullptr);
  }
  EXPECT_EQ(g_loader.frees, 1);
  g_loader.mapped = true;
  EXPECT_EQ(g_loader.freed, ::GetModuleHandleW(L"ntdll.dll"));
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(NtDllExportsTest, LogsThatThereIsNoModuleAndLooksNothingUp) {
  g_loader.mapped = false;
  g_loader.loadable = false;
  {
    const NtDllExports ntDll;
    EXPECT_EQ(ntDll.RtlIpv4StringToAddressW(), nullptr);
    EXPECT_EQ(ntDll.RtlIpv6StringToAddressW(), nullptr);
  }
  EXPECT_EQ(g_loader.lookUps, 0);
  EXPECT_EQ(g_loader.frees, 0);
  EXPECT_THAT(m_log.Texts(3), ElementsAre(L"NtDllExports - can't obtain a handle to ntdll"));
  EXPECT_EQ(m_log.Texts().size(), 1u);
}

TEST_F(NtDllExportsTest, LogsTheMissingIPv4ParserAndStillFindsTheOther) {
  g_loader.missing = {"RtlIpv4StringToAddressW"};
  const NtDllExports ntDll;
  EXPECT_EQ(ntDll.RtlIpv4StringToAddressW(), nullptr);
  EXPECT_NE(ntDll.RtlIpv6StringToAddressW(), nullptr);
  EXPECT_THAT(m_log.Texts(3), ElementsAre(L"NtDllExports - can't obtain a handle to RtlIpv4StringToAddressW"));
}

TEST_F(NtDllExportsTest, LogsTheMissingIPv6ParserAndStillFindsTheOther) {
  g_loader.missing = {"RtlIpv6StringToAddressW"};
  const NtDllExports ntDll;
  EXPECT_NE(ntDll.RtlIpv4StringToAddressW(), nullptr);
  EXPECT_EQ(ntDll.RtlIpv6StringToAddressW(), nullptr);
  EXPECT_THAT(m_log.Texts(3), ElementsAre(L"NtDllExports - can't obtain a handle to RtlIpv6StringToAddressW"));
}

TEST_F(NtDllExportsTest, FreesAModuleLoadedHereAlsoWhenItLacksTheParsers) {
  g_loader.mapped = false;
  g_loader.missing = {"RtlIpv4StringToAddressW", "RtlIpv6StringToAddressW"};
  {
    const NtDllExports ntDll;
  }
  EXPECT_EQ(m_log.Texts(3).size(), 2u);
  EXPECT_EQ(g_loader.frees, 1);
}

TEST_F(NtDllExportsTest, LogsAsTheFirewallWithItsOwnSourcePath) {
  g_loader.missing = {"RtlIpv4StringToAddressW"};
  {
    const NtDllExports ntDll;
  }
  ASSERT_EQ(m_log.Events().size(), 1u);
  ExpectFirewallEvent(m_log.Events()[0], 3, "FwClient/Common/Utilities/NtDllExports.cpp");
}

TEST_F(NtDllExportsTest, TheInstanceIsMadeBeforeItIsAskedFor) {
  const NtDllExports& instance = NtDllExports::Instance();
  EXPECT_EQ(&instance, &NtDllExports::Instance());
  EXPECT_EQ(g_loader.lookUps, 0);
  EXPECT_NE(instance.RtlIpv4StringToAddressW(), nullptr);
  EXPECT_NE(instance.RtlIpv6StringToAddressW(), nullptr);
}

}  // namespace
