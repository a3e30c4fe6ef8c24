#include "FwClient/Service/QeLaLib/InteractiveUser.h"

#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kDefaultCommandLine[] = L" /FI \"IMAGENAME eq explorer.exe\" /FO CSV /NH";

std::wstring CommandLineFor(const std::wstring& image) { return L" /FI \"IMAGENAME eq " + image + L"\" /FO CSV /NH"; }

// ---- the token ----

class InteractiveUserToken : public ScriptedHttps {
 protected:
  InteractiveUserToken() { m_registry.MakeKey(kWinlogon); }

  HRESULT Get() { return GetInteractiveUserToken(&m_token); }
  // The caller's part.
  void CloseToken() { ::CloseHandle(m_token); }

  void SetShell(const std::wstring& text, DWORD type, std::size_t bytes) {
    m_registry.Set(kWinlogon, L"Shell", type, text.c_str(), bytes);
  }

  static constexpr wchar_t kWinlogon[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon";
  HANDLE m_token = INVALID_HANDLE_VALUE;
};

TEST_F(InteractiveUserToken, IsThatOfTheShellsProcess) {
  EXPECT_EQ(Get(), 0);
  EXPECT_EQ(m_processes.openedProcess, 4711u);
  EXPECT_EQ(m_processes.commandLine, kDefaultCommandLine);
  EXPECT_THAT(m_windows.Calls({"RegOpenKeyExW", "RegQueryValueExW", "RegCloseKey", "OpenProcess", "OpenProcessToken"}),
              ElementsAre("RegOpenKeyExW(0x20019)", "RegQueryValueExW(key, Shell, 520)", "RegCloseKey(key)",
                          "OpenProcess(0x410, 4711)", "OpenProcessToken(process, 11)"));
  EXPECT_THAT(m_windows.OpenHandles(), ElementsAre("token"));
  CloseToken();
}

TEST_F(InteractiveUserToken, FailsWithOneStatusAndNoTokenAndNothingLeftOpen) {
  EXPECT_EQ(Get(), 0);
  CloseToken();
  const std::size_t calls = m_windows.FallibleCalls();
  std::size_t failures = 0;
  for (std::size_t call = 1; call <= calls; ++call) {
    SCOPED_TRACE(call);
    m_token = INVALID_HANDLE_VALUE;
    m_windows.FailCallNumber(call);
    const HRESULT status = Get();
    if (status == 0) {
      CloseToken();
      continue;
    }
    ++failures;
    EXPECT_EQ(static_cast<std::uint32_t>(status), 0x80004005u);
    EXPECT_EQ(m_token, nullptr);
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
  // All but these four: the registry's two, whose default holds, and the last two, of which one is the end of output.
  EXPECT_EQ(failures, calls - 3);
}

struct ShellCase {
  std::wstring text;
  DWORD type;
  bool terminated;
  std::wstring image;
};

class ShellImageName : public InteractiveUserToken, public testing::WithParamInterface<ShellCase> {};

TEST_P(ShellImageName, ComesFromAPlainStringThatFits) {
  const ShellCase& shell = GetParam();
  SetShell(shell.text, shell.type, (shell.text.size() + (shell.terminated ? 1 : 0)) * sizeof(wchar_t));
  m_processes.output.clear();
  EXPECT_NE(Get(), 0);
  EXPECT_EQ(m_processes.commandLine, CommandLineFor(shell.image));
}

INSTANTIATE_TEST_SUITE_P(Values, ShellImageName,
                         testing::Values(ShellCase{L"shell.exe", REG_SZ, true, L"shell.exe"},
                                         ShellCase{L"explorer.exe, x", REG_SZ, true, L"explorer.exe, x"},
                                         ShellCase{L"shell.exe", REG_SZ, false, L"shell.exe"},
                                         ShellCase{L"", REG_SZ, true, L""}, ShellCase{L"", REG_SZ, false, L""},
                                         // 520 bytes fit, with or without the terminator; 522 do not.
                                         ShellCase{std::wstring(259, L's'), REG_SZ, true, std::wstring(259, L's')},
                                         ShellCase{std::wstring(260, L's'), REG_SZ, false, std::wstring(260, L's')},
                                         ShellCase{std::wstring(260, L's'), REG_SZ, true, L"explorer.exe"},
                                         ShellCase{L"shell.exe", REG_EXPAND_SZ, true, L"explorer.exe"},
                                         ShellCase{L"shell.exe", REG_MULTI_SZ, true, L"explorer.exe"},
                                         ShellCase{L"shell.exe", REG_BINARY, true, L"explorer.exe"}));

TEST_F(InteractiveUserToken, ReadsAShellOfOddSizeToItsLastWholeCharacter) {
  SetShell(L"shell.exe", REG_SZ, 9);
  m_processes.output.clear();
  EXPECT_NE(Get(), 0);
  EXPECT_EQ(m_processes.commandLine, CommandLineFor(L"shel"));
}

TEST_F(InteractiveUserToken, NeedsAProcessIdAboveZero) {
  m_processes.output = "\"explorer.exe\",\"0\"\r\n";
  EXPECT_NE(Get(), 0);
  EXPECT_EQ(m_windows.Count("OpenProcess"), 0u);
}

// ---- on a 32-bit system ----

class ToolhelpToken : public InteractiveUserToken {
 protected:
  ToolhelpToken() {
    m_system.wow64DirectoryLength = 0;
    m_processes.list = {{L"[System Process]", 0}, {L"System", 4}, {L"explorer.exe", 32}, {L"explorer.exe", 33}};
  }
};

TEST_F(ToolhelpToken, IsThatOfTheFirstMatchAndTheSnapshotIsClosed) {
  EXPECT_EQ(Get(), 0);
  EXPECT_EQ(m_processes.openedProcess, 32u);
  EXPECT_EQ(m_windows.Count("CreateProcessW"), 0u);
  EXPECT_THAT(m_windows.Calls({"CreateToolhelp32Snapshot"}), ElementsAre("CreateToolhelp32Snapshot(2)"));
  EXPECT_THAT(m_windows.OpenHandles(), ElementsAre("token"));
  CloseToken();
}

TEST_F(ToolhelpToken, NeverComparesTheFirstProcess) {
  m_processes.list = {{L"explorer.exe", 32}, {L"System", 4}};
  EXPECT_NE(Get(), 0);
  m_processes.list = {{L"explorer.exe", 32}, {L"explorer.exe", 33}};
  EXPECT_EQ(Get(), 0);
  EXPECT_EQ(m_processes.openedProcess, 33u);
  CloseToken();
}

TEST_F(ToolhelpToken, ComparesWithLetterCase) {
  m_processes.list = {{L"System", 4}, {L"Explorer.EXE", 32}};
  EXPECT_NE(Get(), 0);
  EXPECT_EQ(m_windows.Count("OpenProcess"), 0u);
}

TEST_F(ToolhelpToken, FailsWhenASnapshotCallFailsAndClosesIt) {
  for (const char* call : {"CreateToolhelp32Snapshot", "Process32FirstW", "Process32NextW"}) {
    SCOPED_TRACE(call);
    m_windows.Fail(call, ERROR_BAD_LENGTH);
    EXPECT_NE(Get(), 0);
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
}

// ---- which system it is ----

struct SystemCase {
  DWORD major;
  DWORD minor;
  bool asked;
};

class SystemVersion : public ScriptedHttps, public testing::WithParamInterface<SystemCase> {};

TEST_P(SystemVersion, DecidesWhetherTheDirectoryIsAskedFor) {
  m_system.majorVersion = GetParam().major;
  m_system.minorVersion = GetParam().minor;
  EXPECT_EQ(IsWow64SystemDirectoryPresent(), GetParam().asked);
  EXPECT_EQ(m_windows.Count("GetSystemWow64DirectoryW"), GetParam().asked ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Versions, SystemVersion,
                         testing::Values(SystemCase{10, 0, true}, SystemCase{6, 2, true}, SystemCase{4, 0, true},
                                         SystemCase{3, 51, true}, SystemCase{3, 0, false}, SystemCase{2, 51, false}));

class Wow64Directory : public ScriptedHttps {};

TEST_F(Wow64Directory, IsAbsentOnA32BitSystem) {
  m_system.wow64DirectoryLength = 0;
  EXPECT_FALSE(IsWow64SystemDirectoryPresent());
}

TEST_F(Wow64Directory, IsAbsentWhereTheFunctionIs) {
  m_system.knowsWow64Directory = false;
  EXPECT_FALSE(IsWow64SystemDirectoryPresent());
}

TEST_F(Wow64Directory, IsAbsentWhenAnyCallFails) {
  for (const char* call : {"GetVersionExW", "LoadLibraryW", "GetProcAddress", "GetSystemWow64DirectoryW"}) {
    SCOPED_TRACE(call);
    WindowsScript& script = m_windows;
    script.Fail(call, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(IsWow64SystemDirectoryPresent());
    EXPECT_THAT(script.OpenHandles(), IsEmpty());
  }
  EXPECT_TRUE(IsWow64SystemDirectoryPresent());
}

}  // namespace
