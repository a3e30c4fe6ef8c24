// Linked into the test programs that `./dev mutate` builds: writes down which faults each test passes, one line a test,
// behind the file that QELA_MUTANT_RECORDS_TO names. The marks are shared with processes of the same program that a
// test starts: what these pass, the test passes.
#include <windows.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <string>

#include "Tests/Mutation/QeLaMutant.h"

namespace {

constexpr wchar_t kSharedName[] = L"QELA_MUTANT_SHARED";

unsigned char* g_marks = nullptr;

// The mapping that the process which started this one has named, or a new one. It stays to the end.
void ShareMarks() {
  wchar_t name[64];
  if (::GetEnvironmentVariableW(kSharedName, name, static_cast<DWORD>(std::size(name))) == 0) {
    std::swprintf(name, std::size(name), L"QeLaMutantMarks%lu", ::GetCurrentProcessId());
    ::SetEnvironmentVariableW(kSharedName, name);
  }
  HANDLE mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, qela_mutation::kMarks, name);
  g_marks = static_cast<unsigned char*>(::MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
  const auto set = [](const wchar_t* variable, std::uintptr_t number) {
    ::SetEnvironmentVariableW(variable, std::to_wstring(number).c_str());
  };
  set(L"QELA_MUTANT_MARKS", reinterpret_cast<std::uintptr_t>(g_marks));
  set(L"QELA_MUTANT_MARKS_OF", ::GetCurrentProcessId());
}

class Recorder : public ::testing::EmptyTestEventListener {
 public:
  explicit Recorder(const char* path) : m_path(path) {}

 private:
  void OnTestEnd(const ::testing::TestInfo& test) override {
    std::string line = std::string(test.test_suite_name()) + '.' + test.name() + '\t' +
                       std::to_string(test.result()->elapsed_time()) + '\t' +
                       (test.result()->Passed() ? "passed" : "failed") + '\t';
    for (std::size_t fault = 0; fault < qela_mutation::kMarks; ++fault)
      if (g_marks[fault] != 0) line += std::to_string(fault) + ' ';
    std::fill_n(g_marks, qela_mutation::kMarks, 0);
    if (std::FILE* const file = std::fopen(m_path.c_str(), "ab")) {
      std::fprintf(file, "%s\n", line.c_str());
      std::fclose(file);
    }
  }

  std::string m_path;
};

[[maybe_unused]] const bool g_installed = [] {
  const char* const path = std::getenv("QELA_MUTANT_RECORDS_TO");
  if (path == nullptr) return false;
  ShareMarks();
  ::testing::UnitTest::GetInstance()->listeners().Append(new Recorder(path));
  return true;
}();

}  // namespace
