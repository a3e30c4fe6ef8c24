// Linked into the test programs that `./dev mutate` builds: writes down which faults each test passes, one line a test,
// behind the file that QELA_MUTANT_RECORDS_TO names.
#include <windows.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Tests/Mutation/QeLaMutant.h"

namespace {

unsigned char g_marks[qela_mutation::kMarks];

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
    std::fill(std::begin(g_marks), std::end(g_marks), 0);
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
  const std::wstring address = std::to_wstring(reinterpret_cast<std::uintptr_t>(g_marks));
  ::SetEnvironmentVariableW(L"QELA_MUTANT_MARKS", address.c_str());
  ::testing::UnitTest::GetInstance()->listeners().Append(new Recorder(path));
  return true;
}();

}  // namespace
