#include "FwClient/Service/QeLaLib/InteractiveUser.h"

#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD kUntouched = 77;

struct CsvCase {
  std::string text;
  const wchar_t* image;
  DWORD expected;  // kUntouched: not found
};

class TasklistCsv : public testing::TestWithParam<CsvCase> {};

TEST_P(TasklistCsv, GivesTheFirstProcessOfExactlyThisImage) {
  DWORD id = kUntouched;
  EXPECT_EQ(FindProcessIdInCsv(GetParam().text, GetParam().image, &id), GetParam().expected != kUntouched);
  EXPECT_EQ(id, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TasklistCsv,
    testing::Values(CsvCase{"\"explorer.exe\",\"32\",\"Console\",\"1\",\"18,612 K\"\r\n", L"explorer.exe", 32},
                    CsvCase{"\"explorer.exe\",\"32\"\n\"explorer.exe\",\"33\"\n", L"explorer.exe", 32},
                    // Other letter case, part of a name, other names first.
                    CsvCase{"\"Explorer.exe\",\"32\"\r\n", L"explorer.exe", kUntouched},
                    CsvCase{"\"explorer.ex\",\"32\"\r\n\"explorer.exe2\",\"33\"\r\n", L"explorer.exe", kUntouched},
                    CsvCase{"\r\n\"Explorer.exe\",\"32\"\r\n\"explorer.exe\",\"33\"\r\n", L"explorer.exe", 33},
                    // Lines that do not begin with a quote.
                    CsvCase{"INFO: No tasks are running which match the specified criteria.\r\n", L"explorer.exe",
                            kUntouched},
                    CsvCase{"explorer.exe,32\r\n \"explorer.exe\",\"33\"\r\n", L"explorer.exe", kUntouched},
                    // No text, no fields, no id; a cut last line gives what is left of its id.
                    CsvCase{"", L"explorer.exe", kUntouched}, CsvCase{"\"", L"explorer.exe", kUntouched},
                    CsvCase{"\",\",\"\r\n", L"", kUntouched}, CsvCase{"\"explorer.exe\"", L"explorer.exe", kUntouched},
                    CsvCase{"\"explorer.exe\"\n\"explorer.exe\",\"33\"", L"explorer.exe", 33},
                    CsvCase{"\"explorer.exe\",\"12", L"explorer.exe", 12},
                    // The id is read as a number as far as it is one.
                    CsvCase{"\"explorer.exe\",\"12x\"", L"explorer.exe", 12},
                    CsvCase{"\"explorer.exe\",\"0\"", L"explorer.exe", 0},
                    CsvCase{"\"explorer.exe\",\"x\"", L"explorer.exe", 0},
                    // Names with separators can never match; blanks can.
                    CsvCase{"\"explorer.exe, x\",\"32\"\r\n", L"explorer.exe, x", kUntouched},
                    CsvCase{"\"a\"\"b\",\"32\"\r\n", L"a\"b", kUntouched}, CsvCase{"\"a b\",\"32\"\r\n", L"a b", 32},
                    // A NUL ends its line, not the text.
                    CsvCase{std::string("\"a\",\"1\0 2\"\n", 11), L"a", 1},
                    CsvCase{std::string("\"b\0\",\"1\"\n\"b\",\"2\"\n", 17), L"b", 2},
                    CsvCase{std::string("\"x\0\"a\",\"7\"\n", 11), L"a", kUntouched},
                    // 511 characters are compared.
                    CsvCase{"\"" + std::string(600, 'n') + "\",\"32\"", L"n", kUntouched}));

TEST(TasklistCsv, ReadsNoFurtherThanTheText) {
  // The text is not terminated: what stands behind it must not be read.
  const std::string memory = "\"a\",\"123456";
  DWORD id = kUntouched;
  EXPECT_TRUE(FindProcessIdInCsv(std::string_view(memory).substr(0, 7), L"a", &id));
  EXPECT_EQ(id, 12u);
}

class TasklistQuery : public ScriptedHttps {
 protected:
  bool Find(const std::wstring& image = L"explorer.exe") { return FindProcessIdWithTasklist(image, &m_id); }

  DWORD m_id = kUntouched;
};

TEST_F(TasklistQuery, RunsTheSystemsOwnProgramAndClosesEverything) {
  EXPECT_TRUE(Find());
  EXPECT_EQ(m_id, 4711u);
  EXPECT_EQ(m_processes.program, L"C:\\windows\\system32\\tasklist.exe");
  EXPECT_EQ(m_processes.commandLine, L" /FI \"IMAGENAME eq explorer.exe\" /FO CSV /NH");
  EXPECT_THAT(m_windows.Calls(), ElementsAre("CreatePipe()", "SetHandleInformation(read end)", "CreatePipe()",
                                             "SetHandleInformation(write end2)", "GetSystemDirectoryW()",
                                             "CreateProcessW()", "CloseHandle(write end)", "CloseHandle(read end2)",
                                             "ReadFile(read end)", "ReadFile(read end)", "CloseHandle(child thread)",
                                             "CloseHandle(child)", "CloseHandle(write end2)", "CloseHandle(read end)"));
}

TEST_F(TasklistQuery, FailsWhenAnyStepFailsAndClosesEverything) {
  Find();
  const std::size_t steps = m_windows.FallibleCalls();
  EXPECT_EQ(steps, 8u);
  // The last call is the read that ends the output.
  for (std::size_t step = 1; step < steps; ++step) {
    SCOPED_TRACE(step);
    m_id = kUntouched;
    m_windows.FailCallNumber(step);
    EXPECT_FALSE(Find());
    EXPECT_EQ(m_id, kUntouched);
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
}

TEST_F(TasklistQuery, JoinsPiecesOfOutput) {
  m_processes.pieceBytes = 7;
  EXPECT_TRUE(Find());
  EXPECT_EQ(m_id, 4711u);
}

TEST_F(TasklistQuery, EndsWhenAReadGivesNothing) {
  m_processes.endsWithEmptyRead = true;
  m_processes.output.clear();
  m_processes.silent = false;
  EXPECT_FALSE(Find());
}

TEST_F(TasklistQuery, EndlessOutputEndsWithTheBuffer) {
  m_processes.endless = true;
  m_processes.pieceBytes = 1000;
  EXPECT_FALSE(Find());
  EXPECT_EQ(m_windows.Count("ReadFile"), 5u);
  EXPECT_EQ(m_windows.Count("TerminateProcess"), 0u);
}

TEST_F(TasklistQuery, FullBufferIsReadToItsLastByteAndNotBeyond) {
  const std::string line = "\"explorer.exe\",\"4711";
  m_processes.output = std::string(4095 - line.size(), 'x') + "\n" + line + "9 behind the buffer";
  EXPECT_TRUE(Find());
  EXPECT_EQ(m_id, 4711u);
  EXPECT_EQ(m_windows.Count("ReadFile"), 1u);
}

TEST_F(TasklistQuery, SilentProgramIsEndedAfterHalfAMinute) {
  m_processes.output.clear();
  m_processes.silent = true;
  EXPECT_FALSE(Find());
  EXPECT_EQ(m_processes.sleptMs, 30000u);
  EXPECT_THAT(m_windows.Calls({"TerminateProcess"}), ElementsAre("TerminateProcess(child)"));
}

TEST_F(TasklistQuery, TakesWhatASilentProgramHadSaid) {
  m_processes.silent = true;
  EXPECT_TRUE(Find());
  EXPECT_EQ(m_id, 4711u);
}

TEST_F(TasklistQuery, RefusesANameThatWouldLeaveItsQuotes) {
  m_processes.output = "\"x\",\"1\"\r\n";
  EXPECT_FALSE(Find(L"x\" /S server /U user \""));
  EXPECT_THAT(m_windows.Calls(), IsEmpty());
}

TEST_F(TasklistQuery, PassesOtherNamesOnAsTheyAre) {
  for (const wchar_t* name : {L"explorer.exe, x", L"a & b | c > d %PATH%", L"a\\", L"", L"\x4e2d.exe"}) {
    Find(name);
    EXPECT_EQ(m_processes.commandLine, std::wstring(L" /FI \"IMAGENAME eq ") + name + L"\" /FO CSV /NH");
  }
}

}  // namespace
