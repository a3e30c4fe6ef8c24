// Processes, identities, folders and events of the system, and what the tests themselves are built on.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/WindowsTruth/Wine.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::Not;
using testing::StartsWith;

std::wstring InSystemDirectory(const std::wstring& name) {
  wchar_t folder[MAX_PATH] = L"";
  ::GetSystemDirectoryW(folder, MAX_PATH);
  return std::wstring(folder) + L'\\' + name;
}

// The lines of tasklist's answer about processes of one image, asked for as the library asks.
std::vector<std::string> Tasklist(const std::wstring& imageName) {
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  UniqueKernelHandle read;
  UniqueKernelHandle write;
  EXPECT_TRUE(::CreatePipe(read.put(), write.put(), &inheritable, 0));
  EXPECT_TRUE(::SetHandleInformation(read.get(), HANDLE_FLAG_INHERIT, 0));
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdOutput = write.get();
  startup.hStdError = write.get();
  std::wstring line = L" /FI \"IMAGENAME eq " + imageName + L"\" /FO CSV /NH";
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(InSystemDirectory(L"tasklist.exe").c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &child)) {
    ADD_FAILURE() << "tasklist does not start, error " << ::GetLastError();
    return {};
  }
  const UniqueKernelHandle process(child.hProcess);
  const UniqueKernelHandle thread(child.hThread);
  write.reset();
  std::string text;
  char buffer[4096];
  for (DWORD count = 0; ::ReadFile(read.get(), buffer, sizeof buffer, &count, nullptr) && count != 0;)
    text.append(buffer, count);
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string each; std::getline(stream, each);) lines.push_back(each);
  return lines;
}

TEST(WindowsTruth, TasklistNamesAProcessInQuotesWithItsNumberBehindIt) {
  EXPECT_THAT(Tasklist(L"WindowsTruthTests.exe"),
              Contains(StartsWith("\"WindowsTruthTests.exe\",\"" + std::to_string(::GetCurrentProcessId()) + "\",")));
}

// Whatever the language: a line that starts with a quote is taken for a process.
TEST(WindowsTruth, TasklistWithoutAProcessSaysSoInNoLineThatStartsWithAQuote) {
  EXPECT_THAT(Tasklist(L"there-is-no-such-process.exe"), Each(Not(StartsWith("\""))));
}

// The user's shell, as far as its name is ASCII: the library reads names byte by byte.
TEST(WindowsTruth, TasklistNamesTheShellOfTheUser) {
  wchar_t shell[MAX_PATH] = L"";
  DWORD size = sizeof shell;
  ASSERT_EQ(::RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon", L"Shell",
                           RRF_RT_REG_SZ, nullptr, shell, &size),
            ERROR_SUCCESS);
  if (::GetShellWindow() == nullptr) GTEST_SKIP() << "nobody is logged on at a desktop";
  const std::string narrow(shell, shell + ::lstrlenW(shell));
  EXPECT_THAT(Tasklist(shell), Contains(StartsWith("\"" + narrow + "\",\"")));
}

TEST(WindowsTruth, The64BitSystemTellsTheSizeOfItsFolderFor32BitPrograms) {
  wchar_t oneCharacter[1] = L"";
  EXPECT_GT(::GetSystemWow64DirectoryW(oneCharacter, 1), 1u);
}

bool ActsAsAnother() {
  UniqueKernelHandle token;
  return ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, token.put()) != FALSE;
}

// With the rights with which the library opens the token of the user's shell.
TEST(WindowsTruth, AThreadThatActsAsAnotherBecomesItselfByEitherWay) {
  UniqueKernelHandle token;
  ASSERT_TRUE(
      ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY, token.put()));
  ASSERT_TRUE(::ImpersonateLoggedOnUser(token.get())) << ::GetLastError();
  EXPECT_TRUE(ActsAsAnother());
  ASSERT_TRUE(::RevertToSelf());
  EXPECT_FALSE(ActsAsAnother());
  ASSERT_TRUE(::ImpersonateLoggedOnUser(token.get())) << ::GetLastError();
  ASSERT_TRUE(::SetThreadToken(nullptr, nullptr));
  EXPECT_FALSE(ActsAsAnother());
}

TEST(WindowsTruth, AnEventOfWinsockIsOneOfTheSystemAndStaysSignalled) {
  const WinsockGuard winsock;
  const UniqueWsaEvent event(::WSACreateEvent());
  ASSERT_TRUE(event);
  EXPECT_EQ(::WaitForSingleObject(event.get(), 0), DWORD{WAIT_TIMEOUT});
  ASSERT_TRUE(::SetEvent(event.get()));
  HANDLE events[] = {event.get()};
  EXPECT_EQ(::WaitForMultipleObjects(1, events, FALSE, 0), WAIT_OBJECT_0);
  EXPECT_EQ(::WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
}

// What the library's lenient reading of addresses rests on.
TEST(WindowsTruth, TheParserOfAddressesStopsBeforeAPortThatIsNone) {
  SKIP_UNDER_WINE("RtlIpv4StringToAddressW refuses the text");
  const auto parse = reinterpret_cast<LONG(NTAPI*)(PCWSTR, BOOLEAN, PCWSTR*, in_addr*)>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlIpv4StringToAddressW")));
  ASSERT_NE(parse, nullptr);
  const wchar_t text[] = L"10.0.0.1:http";
  PCWSTR end = nullptr;
  in_addr address{};
  EXPECT_EQ(parse(text, FALSE, &end, &address), 0);
  EXPECT_STREQ(end, L":http");
  EXPECT_EQ(address.s_addr, 0x0100000au);
}

// The tests give the process another HKEY_LOCAL_MACHINE. Where the system's own modules need the real one, tests of
// discovery fail for the tests' reason.
TEST(WindowsTruth, WinsockStartsWithTheHiveThatTestsUse) {
  const RedirectedMachineHive hive;
  WSADATA data{};
  ASSERT_EQ(::WSAStartup(MAKEWORD(2, 2), &data), 0);
  EXPECT_EQ(::WSACleanup(), 0);
}

// "10.0.19041.1": which Windows a report is of.
std::string VersionOf(const std::wstring& file) {
  DWORD ignored = 0;
  std::vector<std::byte> block(::GetFileVersionInfoSizeW(file.c_str(), &ignored));
  VS_FIXEDFILEINFO* info = nullptr;
  UINT size = 0;
  if (block.empty() || !::GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
      !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &size))
    return "";
  std::string text;
  for (const DWORD part : {info->dwFileVersionMS, info->dwFileVersionLS})
    text += (text.empty() ? "" : ".") + std::to_string(part >> 16) + "." + std::to_string(part & 0xffff);
  return text;
}

TEST(WindowsTruth, TheSystemHasEveryModuleThatTheLibraryCalls) {
  for (const char* name : {"advapi32.dll", "crypt32.dll", "dnsapi.dll", "iphlpapi.dll", "kernel32.dll", "ntdll.dll",
                           "ole32.dll", "rpcrt4.dll", "tasklist.exe", "ucrtbase.dll", "winhttp.dll", "ws2_32.dll"}) {
    const std::string version = VersionOf(InSystemDirectory(std::wstring(name, name + std::strlen(name))));
    EXPECT_NE(version, "") << name;
    RecordProperty(name, version);
    std::cout << name << ' ' << version << '\n';
  }
}

}  // namespace
