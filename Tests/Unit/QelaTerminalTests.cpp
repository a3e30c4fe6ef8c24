// What qela shows on a console alone. The process of a test has none, so the calls that make one are replaced.
#include <winsock2.h>
#include <windows.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <type_traits>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tools/qela/CalculationProgress.h"
#include "Tools/qela/LocationSet.h"
#include "Tools/qela/LogBlocks.h"
#include "Tools/qela/Output.h"

namespace {

class QelaTerminal : public testing::Test {
 protected:
  QelaTerminal() {
    s_shown.clear();
    s_aheadSeconds = 0;
  }

  static std::wstring Shown() {
    const std::lock_guard lock(s_mutex);
    return s_shown;
  }
  static bool AwaitText(const std::wstring& text) {
    std::unique_lock lock(s_mutex);
    return s_written.wait_for(lock, std::chrono::seconds(30), [&] { return s_shown.find(text) != std::wstring::npos; });
  }
  static void PassSeconds(int seconds) { s_aheadSeconds += seconds; }

 private:
  static BOOL WINAPI IsConsole(HANDLE, DWORD* mode) {
    *mode = 0;
    return TRUE;
  }
  static BOOL WINAPI Show(HANDLE, const void* text, DWORD units, DWORD* written, void*) {
    const std::lock_guard lock(s_mutex);
    s_shown.append(static_cast<const wchar_t*>(text), units);
    *written = units;
    s_written.notify_all();
    return TRUE;
  }
  static BOOL WINAPI Count(LARGE_INTEGER* count) {
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    const BOOL counted = s_count(count);
    count->QuadPart += frequency.QuadPart * s_aheadSeconds;
    return counted;
  }

  static inline std::mutex s_mutex;
  static inline std::condition_variable s_written;
  static inline std::wstring s_shown;
  static inline std::atomic<int> s_aheadSeconds = 0;
  static inline decltype(&::QueryPerformanceCounter) s_count = nullptr;

  const ImportPatch m_mode{ThisProgram(), "GetConsoleMode", &IsConsole};
  const ImportPatch m_write{ThisProgram(), "WriteConsoleW", &Show};
  const ImportPatch m_clock{ThisProgram(), "QueryPerformanceCounter", &Count};
  const bool m_hasClock = (s_count = m_clock.Original<std::remove_pointer_t<decltype(s_count)>>()) != nullptr;
};

TEST_F(QelaTerminal, TextsOfAnyLanguageReachIt) {
  Print("B\xc3\xbcro");
  PrintDiagnostic(" \xe6\x9d\xb1");
  EXPECT_EQ(Shown(), L"B\u00fcro \u6771");
  EXPECT_TRUE(IsTerminal(STD_ERROR_HANDLE));
}

TEST_F(QelaTerminal, ItsWidthIsThatOfTheOutput) {
  EXPECT_EQ(OutputWidth(), 100U) << "where there is none";
  const ImportPatch patch(
      ThisProgram(), "GetConsoleScreenBufferInfo", +[](HANDLE, CONSOLE_SCREEN_BUFFER_INFO* info) -> BOOL {
        info->dwSize.X = 132;
        return TRUE;
      });
  EXPECT_EQ(OutputWidth(), 132U);
}

TEST_F(QelaTerminal, ADiagnosticThatThereIsNoMemoryForIsLost) {
  const std::string diagnostic(100, 'x');
  WarmUpExceptions(ThisProgram());
  HeapWatch heap(ThisProgram());
  heap.FailAt(0);
  PrintDiagnostic(diagnostic);
  EXPECT_TRUE(heap.StopFailing());
  EXPECT_EQ(Shown(), L"");
}

TEST_F(QelaTerminal, ReadingALogTellsHowFarItIsAfterASecondAndLeavesNothing) {
  const auto line = [](const std::wstring& text) {
    std::wstring padded = text;
    padded.resize(60, L' ');
    return L"\r" + padded;
  };
  std::wstring expected;
  {
    LogProgress progress;
    progress.Tell(L"C:\\logs\\host.log", 1, 100);
    EXPECT_EQ(Shown(), L"");
    PassSeconds(2);
    progress.Tell(L"C:\\logs\\host.log", 25, 100);
    progress.Tell(L"C:\\logs\\host.log", 26, 100);  // too soon
    expected = line(L"reading host.log: 25 %");
    EXPECT_EQ(Shown(), expected);
    PassSeconds(2);
    progress.Tell(L"pipe", 3 << 20, 0);
    expected += line(L"reading pipe: 3 MB");
    EXPECT_EQ(Shown(), expected);
  }
  EXPECT_EQ(Shown(), expected + line(L"") + L"\r");
}

TEST_F(QelaTerminal, ACalculationTellsAfterTwoSecondsWhatItWaitsForAndLeavesNothing) {
  const LocationSet set;
  AwaitedProbe awaited(set);
  {
    const CalculationProgress progress(awaited);
    EXPECT_TRUE(AwaitText(L"\rqela: waiting for the library, 2 s"));
  }
  EXPECT_TRUE(Shown().ends_with(L" \r"));
}

}  // namespace
