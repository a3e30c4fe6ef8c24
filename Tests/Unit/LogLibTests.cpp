// LogLib: its texts, its sink, and through a copy of the DLL its file and console output.
#include <windows.h>
#include <LogLib.h>
#include <LogLibHost.h>
#include <gtest/gtest.h>
// After windows.h, which it needs.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/ProcessCounts.h"

namespace {

constexpr DWORD kDeadlineMs = 10000;

LogUtils::LogEvent MakeEvent() { return {"FwClient/File.cpp", 42, 8, "FirewallBL", getLogManager(), 2, 0}; }

UniqueKernelHandle MakeEventHandle() { return UniqueKernelHandle(::CreateEventW(nullptr, TRUE, FALSE, nullptr)); }

TEST(LogLib, EventCarriesWhatItWasBuiltWith) {
  const LogRecorder recorder;
  LogUtils::LogEvent("FwClient/Other.cpp", 7, 3, "Source", getLogManager(), 2, 0)("COMPONENT", L"text");
  ASSERT_EQ(recorder.Events().size(), 1u);
  const LoggedEvent event = recorder.Events().front();
  EXPECT_EQ(event.file, "FwClient/Other.cpp");
  EXPECT_EQ(event.line, 7);
  EXPECT_EQ(event.severity, 3);
  EXPECT_EQ(event.source, "Source");
  EXPECT_EQ(event.component, "COMPONENT");
  EXPECT_EQ(event.text, L"text");
}

TEST(LogLib, WideFormatReadsSmallSAsWideAndCapitalSAsNarrow) {
  const LogRecorder recorder;
  MakeEvent()("C", L"%s, %S, %d, %lu, 0x%x", L"B\u00fcro \u65e5", "narrow", -1, 4000000000ul, 255u);
  EXPECT_EQ(recorder.Texts(), std::vector<std::wstring>{L"B\u00fcro \u65e5, narrow, -1, 4000000000, 0xff"});
}

TEST(LogLib, NarrowFormatReadsSmallSAsNarrowAndCapitalSAsWideTextOfAnyLanguage) {
  const LogRecorder recorder;
  MakeEvent()("C", "returning %d for %S... (%s)", 1, L"B\u00fcro \u65e5\U0001f600", "narrow");
  EXPECT_EQ(recorder.Texts(), std::vector<std::wstring>{L"returning 1 for B\u00fcro \u65e5\U0001f600... (narrow)"});
}

TEST(LogLib, LoneSurrogatesReachTheSinkAsTheyAre) {
  const LogRecorder recorder;
  const wchar_t name[] = {L'a', 0xd800, L'b', 0};
  MakeEvent()("C", "%S", name);
  MakeEvent()("C", L"%s", name);
  EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{name, name}));
}

TEST(LogLib, LongTextsReachTheSinkWhole) {
  const LogRecorder recorder;
  const std::wstring text(300'000, L'\u65e5');
  MakeEvent()("C", L"<%s>", text.c_str());
  MakeEvent()("C", "<%S>", text.c_str());
  EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{L"<" + text + L">", L"<" + text + L">"}));
}

TEST(LogLib, MissingTextsAreShownAsNull) {
  const LogRecorder recorder;
  MakeEvent()("C", L"%s", static_cast<const wchar_t*>(nullptr));
  MakeEvent()("C", "%S", static_cast<const wchar_t*>(nullptr));
  MakeEvent()("C", static_cast<const wchar_t*>(nullptr));
  MakeEvent()("C", static_cast<const char*>(nullptr));
  EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{L"(null)", L"(null)", L"", L""}));
}

// The host's sink, set for the test and taken away after it.
struct SinkGuard {
  SinkGuard(LogUtils::LogSink sink, void* context) {
    LogUtils::setConsoleLogging(false);
    LogUtils::setLogSink(sink, context);
  }
  ~SinkGuard() {
    LogUtils::setLogSink(nullptr, nullptr);
    LogUtils::setConsoleLogging(true);
  }
  SinkGuard(const SinkGuard&) = delete;
  SinkGuard& operator=(const SinkGuard&) = delete;
};

TEST(LogLib, ReplacingASinkWaitsUntilItHasEnded) {
  struct State {
    UniqueKernelHandle inside = MakeEventHandle();
    UniqueKernelHandle replaced = MakeEventHandle();
    bool ended = false;
    bool endedWhenReplaced = false;
  } state;
  const SinkGuard sink(
      [](const LogUtils::LogRecord&, void* context) {
        auto& self = *static_cast<State*>(context);
        ::SetEvent(self.inside.get());
        // Gives a replacement that does not wait the time to show itself; the right one never signals here.
        ::WaitForSingleObject(self.replaced.get(), 50);
        self.ended = true;
      },
      &state);
  std::jthread logging([] { MakeEvent()("C", L"text"); });
  ASSERT_EQ(::WaitForSingleObject(state.inside.get(), kDeadlineMs), WAIT_OBJECT_0);
  LogUtils::setLogSink(nullptr, nullptr);
  state.endedWhenReplaced = state.ended;
  ::SetEvent(state.replaced.get());
  logging.join();
  EXPECT_TRUE(state.endedWhenReplaced);
}

TEST(LogLib, ThreadsRunTheSinkAtOnce) {
  struct State {
    UniqueKernelHandle first = MakeEventHandle();
    UniqueKernelHandle second = MakeEventHandle();
    DWORD firstSaw = WAIT_FAILED;
  } state;
  const SinkGuard sink(
      [](const LogUtils::LogRecord& record, void* context) {
        auto& self = *static_cast<State*>(context);
        if (std::wstring_view(record.text) == L"first") {
          ::SetEvent(self.first.get());
          self.firstSaw = ::WaitForSingleObject(self.second.get(), kDeadlineMs);
        } else {
          ::SetEvent(self.second.get());
        }
      },
      &state);
  std::jthread logging([] { MakeEvent()("C", L"first"); });
  EXPECT_EQ(::WaitForSingleObject(state.first.get(), kDeadlineMs), WAIT_OBJECT_0);
  MakeEvent()("C", L"second");
  logging.join();
  EXPECT_EQ(state.firstSaw, WAIT_OBJECT_0);
}

TEST(LogLib, WhatASinkLogsDoesNotComeBackToIt) {
  int calls = 0;
  const SinkGuard sink(
      [](const LogUtils::LogRecord&, void* context) {
        if (++*static_cast<int*>(context) < 5) MakeEvent()("C", L"from the sink");
      },
      &calls);
  MakeEvent()("C", L"first");
  EXPECT_EQ(calls, 1);
  MakeEvent()("C", L"second");
  EXPECT_EQ(calls, 2);
}

TEST(LogLib, ASinkMayTakeItselfAway) {
  int calls = 0;
  const SinkGuard sink(
      [](const LogUtils::LogRecord&, void* context) {
        ++*static_cast<int*>(context);
        LogUtils::setLogSink(nullptr, nullptr);
      },
      &calls);
  MakeEvent()("C", L"first");
  MakeEvent()("C", L"second");
  EXPECT_EQ(calls, 1);
}

// A second LogLib under another name: one that has not looked for its file yet.
class CopiedLogLib {
 public:
  explicit CopiedLogLib(const std::filesystem::path& folder, const std::wstring& logFile) {
    const std::filesystem::path copy = folder / L"LogLib copy.dll";
    wchar_t original[MAX_PATH];
    ::GetModuleFileNameW(::GetModuleHandleW(L"LogLib.dll"), original, MAX_PATH);
    if (!std::filesystem::exists(copy)) ::CopyFileW(original, copy.c_str(), TRUE);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", logFile.empty() ? nullptr : logFile.c_str());
    m_module = ::LoadLibraryW(copy.c_str());
    m_wide = Find<Wide>("_ZNK8LogUtils8LogEventclEPKcPKwz");
    m_narrow = Find<Narrow>("_ZNK8LogUtils8LogEventclEPKcS2_z");
    m_setConsole = Find<void (*)(bool)>("_ZN8LogUtils17setConsoleLoggingEb");
  }
  ~CopiedLogLib() {
    ::FreeLibrary(m_module);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", nullptr);
  }
  CopiedLogLib(const CopiedLogLib&) = delete;
  CopiedLogLib& operator=(const CopiedLogLib&) = delete;

  void Log(const std::wstring& text) const { LogEvent(MakeEvent(), text); }
  void LogEvent(const LogUtils::LogEvent& event, const std::wstring& text) const {
    m_wide(&event, "FIREWALL", L"%s", text.c_str());
  }
  void LogNarrow(const char* format, const wchar_t* text) const {
    const LogUtils::LogEvent event = MakeEvent();
    m_narrow(&event, "FIREWALL", format, text);
  }
  HMODULE Module() const { return m_module; }
  void SetConsole(bool enabled) const { m_setConsole(enabled); }

 private:
  using Wide = void (*)(const LogUtils::LogEvent*, const char*, const wchar_t*, ...);
  using Narrow = void (*)(const LogUtils::LogEvent*, const char*, const char*, ...);

  template <typename Function>
  Function Find(const char* name) const {
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(m_module, name)));
    if (function == nullptr) throw std::runtime_error(name);
    return function;
  }

  HMODULE m_module = nullptr;
  Wide m_wide = nullptr;
  Narrow m_narrow = nullptr;
  void (*m_setConsole)(bool) = nullptr;
};

std::vector<std::string> ReadLines(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// What stands behind the time.
std::string WithoutTime(const std::string& line) { return line.substr(line.find('\t') + 1); }

// A folder of its own, and standard error caught in a file of it.
class LogLibOutput : public testing::Test {
 protected:
  void SetUp() override {
    m_folder = std::filesystem::temp_directory_path() / (L"LogLib B\u00fcro \u65e5 " + UniqueName());
    std::filesystem::remove_all(m_folder);  // of an earlier process with this number, if it crashed
    std::filesystem::create_directories(m_folder);
    m_errors = ::CreateFileW((m_folder / L"stderr").c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                             CREATE_ALWAYS, 0, nullptr);
    m_standardError = ::GetStdHandle(STD_ERROR_HANDLE);
    ::SetStdHandle(STD_ERROR_HANDLE, m_errors);
  }
  void TearDown() override {
    ::SetStdHandle(STD_ERROR_HANDLE, m_standardError);
    ::CloseHandle(m_errors);
    std::filesystem::remove_all(m_folder);
  }
  std::filesystem::path File() const { return m_folder / L"log \u65e5.txt"; }
  std::vector<std::string> ErrorLines() const { return ReadLines(m_folder / L"stderr"); }

  std::filesystem::path m_folder;
  HANDLE m_errors = nullptr;
  HANDLE m_standardError = nullptr;
};

TEST_F(LogLibOutput, FileHoldsOneTabSeparatedLineAnEventAtOnce) {
  const CopiedLogLib log(m_folder, File());
  log.Log(L"B\u00fcro \u65e5");
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(std::regex_match(lines[0].substr(0, lines[0].find('\t')),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)")))
      << lines[0];
  EXPECT_EQ(WithoutTime(lines[0]), "8\tFirewallBL\tFIREWALL\tFwClient/File.cpp:42\tB\xc3\xbcro \xe6\x97\xa5");
}

TEST_F(LogLibOutput, TextsAreEscapedSoThatAnEventStaysOneLine) {
  const struct {
    std::wstring text;
    std::string expected;
  } cases[] = {
      {L"a\nb", "a\\nb"},
      {L"a\r\n\tb", "a\\r\\n\\tb"},
      {L"a\\nb", "a\\\\nb"},                                 // a backslash and an n are no line break
      {L"\x1b[2J\x7f", "\\u001B[2J\\u007F"},                 // would steer a terminal
      {L"a\u0085\u2028\u2029b", "a\\u0085\\u2028\\u2029b"},  // line ends to Unicode readers
      {{L'a', 0xd800, L'b'},
       "a\xef\xbf\xbd"
       "b"},
      {{0xdc00}, "\xef\xbf\xbd"},
      {L"\U0001f600", "\xf0\x9f\x98\x80"},
      {L"", ""},
  };
  const CopiedLogLib log(m_folder, File());
  for (const auto& [text, expected] : cases) log.Log(text);
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), std::size(cases));
  for (std::size_t index = 0; index < lines.size(); ++index)
    EXPECT_EQ(WithoutTime(lines[index]), "8\tFirewallBL\tFIREWALL\tFwClient/File.cpp:42\t" + cases[index].expected);
}

// Long texts are looked at in blocks: a letter is written alike at each place in one and between two.
TEST_F(LogLibOutput, ALetterIsWrittenAlikeAtEachPlaceOfAText) {
  const struct {
    wchar_t letter;
    std::string expected;
  } cases[] = {
      {0x1f, "\\u001F"},        {L' ', " "},
      {L'\\', "\\\\"},          {L'~', "~"},
      {0x7f, "\\u007F"},        {0x80, "\\u0080"},
      {0xa0, "\xc2\xa0"},       {0xff, "\xc3\xbf"},
      {0x100, "\xc4\x80"},      {0x161, "\xc5\xa1"},  // "a" in its low byte
      {0x2028, "\\u2028"},      {0x7fff, "\xe7\xbf\xbf"},
      {0x8061, "\xe8\x81\xa1"}, {0xd861, "\xef\xbf\xbd"},
      {0xffff, "\xef\xbf\xbf"},
  };
  constexpr std::size_t kLength = 40;
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  std::vector<std::string> expected;
  for (const auto& [letter, bytes] : cases)
    for (std::size_t place = 0; place < kLength; ++place) {
      std::wstring text(kLength, L'x');
      text[place] = letter;
      log.Log(text);
      expected.push_back(std::string(place, 'x') + bytes + std::string(kLength - place - 1, 'x'));
    }
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), expected.size());
  for (std::size_t index = 0; index < lines.size(); ++index)
    EXPECT_EQ(lines[index].substr(lines[index].rfind('\t') + 1), expected[index]);
}

TEST_F(LogLibOutput, ATextEndsAtANul) {
  const CopiedLogLib log(m_folder, File());
  log.LogNarrow("before%cbehind", nullptr);
  ASSERT_EQ(ReadLines(File()).size(), 1u);
  EXPECT_TRUE(ReadLines(File())[0].ends_with("\tbefore"));
}

// The length of a text that just fits into what is at hand for the usual ones, and its neighbours.
TEST_F(LogLibOutput, TextsOfEveryLengthAreWrittenWhole) {
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  for (std::size_t length = 0; length < 1100; ++length) log.Log(std::wstring(length, L'x'));
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), 1100u);
  for (std::size_t length = 0; length < lines.size(); ++length)
    EXPECT_EQ(lines[length].substr(lines[length].rfind('\t') + 1), std::string(length, 'x'));
}

TEST_F(LogLibOutput, NamesAndPathsAreEscapedTooAndMayBeMissing) {
  const CopiedLogLib log(m_folder, File());
  log.LogEvent({"a\tb\\c\xff", 1, 3, nullptr, getLogManager(), 2, 0}, L"text");
  ASSERT_EQ(ReadLines(File()).size(), 1u);
  EXPECT_EQ(WithoutTime(ReadLines(File())[0]), "3\t\tFIREWALL\ta\\tb\\\\c\xef\xbf\xbd:1\ttext");
}

TEST_F(LogLibOutput, LongPathsAreWrittenWhole) {
  const CopiedLogLib log(m_folder, File());
  const std::string path = std::string(5000, 'p') + "\xc3\xbc" + std::string(5000, 'q');
  log.LogEvent({path.c_str(), 1, 3, "source", getLogManager(), 2, 0}, L"text");
  ASSERT_EQ(ReadLines(File()).size(), 1u);
  EXPECT_EQ(WithoutTime(ReadLines(File())[0]), "3\tsource\tFIREWALL\t" + path + ":1\ttext");
}

TEST_F(LogLibOutput, NarrowFormatsWriteWideNamesOfAnyLanguage) {
  const CopiedLogLib log(m_folder, File());
  log.LogNarrow("location %S...", L"B\u00fcro \u65e5");
  ASSERT_EQ(ReadLines(File()).size(), 1u);
  EXPECT_TRUE(ReadLines(File())[0].ends_with("\tlocation B\xc3\xbcro \xe6\x97\xa5..."));
}

TEST_F(LogLibOutput, LongTextsAreWrittenWhole) {
  const CopiedLogLib log(m_folder, File());
  log.Log(std::wstring(200'000, L'x'));
  ASSERT_EQ(ReadLines(File()).size(), 1u);
  EXPECT_TRUE(ReadLines(File())[0].ends_with("\t" + std::string(200'000, 'x')));
}

TEST_F(LogLibOutput, FileIsAppendedTo) {
  std::ofstream(File(), std::ios::binary) << "kept\n";
  for (const wchar_t* text : {L"first", L"second"}) {
    const CopiedLogLib log(m_folder, File());
    log.Log(text);
  }
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "kept");
  EXPECT_TRUE(lines[1].ends_with("\tfirst"));
  EXPECT_TRUE(lines[2].ends_with("\tsecond"));
}

TEST_F(LogLibOutput, LinesOfSeveralThreadsAreNotMixed) {
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kEvents = 100;
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  {
    std::vector<std::jthread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread)
      threads.emplace_back([&log, thread] {
        for (std::size_t event = 0; event < kEvents; ++event)
          log.Log(std::wstring(2000, static_cast<wchar_t>(L'a' + thread)));
      });
  }
  std::size_t counts[kThreads] = {};
  for (const std::string& line : ReadLines(File())) {
    const std::string text = line.substr(line.rfind('\t') + 1);
    ASSERT_EQ(text, std::string(2000, text.empty() ? ' ' : text[0]));
    ++counts[text[0] - 'a'];
  }
  for (const std::size_t count : counts) EXPECT_EQ(count, kEvents);
}

TEST_F(LogLibOutput, FileThatCannotBeWrittenIsToldOnceAndLoggingGoesOn) {
  const std::filesystem::path missing = m_folder / L"no such folder" / L"log.txt";
  const CopiedLogLib log(m_folder, missing);
  log.Log(L"first");
  log.Log(L"second");
  const std::vector<std::string> lines = ErrorLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(lines[0].starts_with("LogLib: cannot write the log file \"")) << lines[0];
  EXPECT_TRUE(lines[0].ends_with("no such folder\\log.txt\" (error 3); events may be missing there")) << lines[0];
  EXPECT_TRUE(lines[1].ends_with("\tfirst"));
  EXPECT_TRUE(lines[2].ends_with("\tsecond"));
}

TEST_F(LogLibOutput, FullDiskIsToldOnceAndLoggingGoesOn) {
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  static HANDLE standardError;
  standardError = m_errors;
  static decltype(&::WriteFile) writeFile;
  const ImportPatch patch(
      log.Module(), "WriteFile",
      +[](HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) -> BOOL {
        if (file == standardError) return writeFile(file, bytes, size, written, overlapped);
        ::SetLastError(ERROR_DISK_FULL);
        return FALSE;
      });
  writeFile = patch.Original<BOOL(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED)>();
  log.Log(L"first");
  log.Log(L"second");
  const std::vector<std::string> lines = ErrorLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].ends_with("(error 112); events may be missing there")) << lines[0];
}

TEST_F(LogLibOutput, WithoutStandardErrorTheDebuggerIsToldOfAFileThatCannotBeWritten) {
  ::SetStdHandle(STD_ERROR_HANDLE, nullptr);
  const CopiedLogLib log(m_folder, m_folder / L"no such folder" / L"log.txt");
  static std::wstring told;
  told.clear();
  const ImportPatch patch(log.Module(), "OutputDebugStringW", +[](const wchar_t* text) { told += text; });
  log.Log(L"text");
  EXPECT_TRUE(told.starts_with(L"LogLib: cannot write the log file \"")) << told;
  EXPECT_NE(told.find(L"(error 3); events may be missing there\n"), std::wstring::npos) << told;
}

TEST_F(LogLibOutput, MemoryThatLacksForTheNoticeCostsNoEvent) {
  static HeapWatch* heap;
  static std::size_t number;
  number = 0;
  bool failed = true;
  for (; failed; ++number) {
    const CopiedLogLib log(m_folder, m_folder / L"no such folder" / L"log.txt");
    {
      HeapWatch watch(log.Module());
      heap = &watch;
      const ImportPatch patch(
          log.Module(), "CreateFileW",
          +[](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) -> HANDLE {
            heap->FailAt(number);
            ::SetLastError(ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
          });
      log.Log(L"first");
      failed = watch.StopFailing();
    }
    log.Log(L"second");
    EXPECT_TRUE(ErrorLines().back().ends_with("\tsecond"));
  }
  EXPECT_GT(number, 3u);
}

TEST_F(LogLibOutput, ConsoleShowsTheSameLinesUntilSwitchedOff) {
  const CopiedLogLib log(m_folder, File());
  log.Log(L"B\u00fcro\n");
  log.SetConsole(false);
  log.Log(L"not shown");
  log.SetConsole(true);
  log.Log(L"shown");
  const std::vector<std::string> all = ReadLines(File());
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(ErrorLines(), (std::vector{all[0], all[2]}));
}

TEST_F(LogLibOutput, ConsoleIsWhatStandardErrorIsAtTheTimeOfTheEvent) {
  const CopiedLogLib log(m_folder, File());
  log.Log(L"first");
  const HANDLE other = ::CreateFileW((m_folder / L"other").c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     nullptr, CREATE_ALWAYS, 0, nullptr);
  ::SetStdHandle(STD_ERROR_HANDLE, other);
  log.Log(L"second");
  ::SetStdHandle(STD_ERROR_HANDLE, m_errors);
  ::CloseHandle(other);
  const std::vector<std::string> all = ReadLines(File());
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(ErrorLines(), std::vector{all[0]});
  EXPECT_EQ(ReadLines(m_folder / L"other"), std::vector{all[1]});
}

// The question costs as much as writing four lines.
TEST_F(LogLibOutput, AFileIsNotAskedWhetherItIsAConsole) {
  const CopiedLogLib log(m_folder, File());
  static int asked;
  asked = 0;
  const ImportPatch patch(
      log.Module(), "GetConsoleMode", +[](HANDLE, LPDWORD) -> BOOL {
        ++asked;
        return FALSE;
      });
  log.Log(L"text");
  EXPECT_EQ(ErrorLines().size(), 1u);
  EXPECT_EQ(asked, 0);
}

TEST_F(LogLibOutput, AProcessWithoutStandardErrorLogsToTheFile) {
  ::SetStdHandle(STD_ERROR_HANDLE, nullptr);
  const CopiedLogLib log(m_folder, File());
  log.Log(L"text");
  EXPECT_EQ(ReadLines(File()).size(), 1u);
}

// Some lines fill a file; each is a tenth of it.
TEST_F(LogLibOutput, AFullFileIsRenamedAndThreeOlderOnesAreKept) {
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  const std::wstring tenth(1 << 20, L'x');
  for (int line = 0; line < 50; ++line) log.Log(std::to_wstring(line) + tenth);
  const auto file = [this](const wchar_t* age) { return std::filesystem::path(File().native() + age); };
  std::size_t lines = 0;
  for (const wchar_t* age : {L"", L".1", L".2", L".3"}) {
    EXPECT_LE(std::filesystem::file_size(file(age)), 10u << 20);
    lines += ReadLines(file(age)).size();
  }
  EXPECT_GE(lines, 30u);
  EXPECT_FALSE(std::filesystem::exists(file(L".0")));
  EXPECT_FALSE(std::filesystem::exists(file(L".4")));
  EXPECT_NE(ReadLines(File()).back().find("\t49xx"), std::string::npos);
}

TEST_F(LogLibOutput, AReaderThatForbidsRenamingCostsNoLine) {
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  log.Log(L"first");
  const HANDLE reader = ::CreateFileW(File().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
  const std::wstring tenth(1 << 20, L'x');
  for (int line = 0; line < 15; ++line) log.Log(tenth);
  ::CloseHandle(reader);
  EXPECT_EQ(ReadLines(File()).size(), 16u);
}

TEST_F(LogLibOutput, AFileThatAnotherProcessHasRotatedIsNotRotatedAgain) {
  const CopiedLogLib log(m_folder, File());
  log.SetConsole(false);
  const std::wstring tenth(1 << 20, L'x');
  for (int line = 0; line < 9; ++line) log.Log(tenth);
  std::filesystem::rename(File(), File().native() + L".1");
  std::ofstream(File(), std::ios::binary) << "another's\n";
  log.Log(tenth);
  const std::vector<std::string> lines = ReadLines(File());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "another's");
}

// Bytes that the process holds.
std::size_t HeapBytes() {
  std::size_t bytes = 0;
  PROCESS_HEAP_ENTRY entry{};
  const HANDLE heap = ::GetProcessHeap();
  ::HeapLock(heap);
  while (::HeapWalk(heap, &entry))
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
  ::HeapUnlock(heap);
  return bytes;
}

TEST_F(LogLibOutput, LoadingAndUnloadingAThousandTimesKeepsNothing) {
  const auto load = [&](int times) {
    for (int time = 0; time < times; ++time) {
      const CopiedLogLib log(m_folder, File());
      log.SetConsole(false);
      log.Log(L"text");
    }
  };
  load(50);  // what the system itself keeps after the first times
  const std::size_t bytes = HeapBytes();
  const std::size_t threads = CountThreads();
  load(1000);
  // A leak of 100 bytes a time would be found; the system's own heap blocks come in steps of 4 to 32 KB.
  EXPECT_LT(HeapBytes(), bytes + 100'000);
  EXPECT_EQ(CountThreads(), threads);
  EXPECT_EQ(ReadLines(File()).size(), 1050u);
}

TEST_F(LogLibOutput, LoggingStartsNoThread) {
  const std::size_t threads = CountThreads();
  const CopiedLogLib log(m_folder, File());
  log.Log(L"text");
  EXPECT_EQ(CountThreads(), threads);
}

}  // namespace
