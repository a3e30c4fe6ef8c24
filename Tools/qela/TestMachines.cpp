#include <windows.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "CommandError.h"
#include "Commands.h"
#include "CriterionWords.h"
#include "ExpectationFile.h"
#include "FileSearch.h"
#include "InOrder.h"
#include "Json.h"
#include "JunitFile.h"
#include "MachineSnapshot.h"
#include "Output.h"
#include "TestSet.h"
#include "Text.h"

namespace {

// The files that fit a pattern, by name. Throws CommandError when there are none: nothing would be tested, and would
// look as if all were well.
std::vector<std::wstring> FilesLike(const std::wstring& pattern, bool snapshotsOnly) {
  const std::wstring folder = pattern.substr(0, pattern.find_last_of(L"\\/:") + 1);
  std::vector<std::wstring> files;
  WIN32_FIND_DATAW found{};
  const UniqueFileSearch search(
      ::FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
  DWORD error = search ? ERROR_SUCCESS : ::GetLastError();
  for (bool more = error == ERROR_SUCCESS; more;) {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
        (!snapshotsOnly || MachineSnapshot::IsSnapshotFile(found.cFileName)))
      files.push_back(folder + found.cFileName);
    more = ::FindNextFileW(search.get(), &found) != FALSE;
    if (!more) error = ::GetLastError();
  }
  if (error != ERROR_NO_MORE_FILES && error != ERROR_FILE_NOT_FOUND)
    throw CommandError(kFailed,
                       Printable(pattern) + ": the files cannot be listed (error " + std::to_string(error) + ")");
  if (files.empty()) throw CommandError(kFailed, "no file fits " + Printable(pattern));
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::wstring> SnapshotFiles(const std::vector<std::wstring>& given) {
  std::vector<std::wstring> files;
  const auto add = [&](std::vector<std::wstring> found) {
    files.insert(files.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
  };
  for (const std::wstring& path : given) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const std::size_t nameAt = path.find_last_of(L"\\/:") + 1;
    if (path.find_first_of(L"*?", nameAt) != std::wstring::npos)
      add(FilesLike(path, false));
    else if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
      add(FilesLike(path + (nameAt == path.size() ? L"*.json" : L"\\*.json"), true));
    else
      files.push_back(path);
  }
  return files;
}

// What became of one snapshot.
struct MachineResult {
  struct Difference {
    std::size_t location;
    Verdict found;
    std::vector<std::string> reasons;
  };
  struct Unknown {
    std::size_t location;
    std::vector<TestSet::Question> questions;
  };

  std::wstring file;
  std::wstring machine;
  std::string error;  // why nothing could be tested
  std::vector<std::size_t> current;
  std::vector<Unknown> unknown;
  const Expectation* expected = nullptr;
  std::vector<Difference> differences;
};

MachineResult TestMachine(const std::wstring& file, const TestSet& set, const Expectations& expectations) {
  MachineResult result;
  result.file = file;
  try {
    const MachineSnapshot machine = ReadMachine(file);
    result.machine = machine.machine;
    const std::vector<Verdict> verdicts = set.VerdictsOn(machine);
    const auto expected = expectations.find(machine.machine);
    if (expected != expectations.end()) result.expected = &expected->second;
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
      if (verdicts[i] == Verdict::kCurrent) result.current.push_back(i);
      if (verdicts[i] == Verdict::kUnknown) result.unknown.push_back({i, set.QuestionsLeft(machine, i)});
      // What is unknown is no proof of anything, and so is never as expected.
      if (result.expected != nullptr &&
          verdicts[i] != (result.expected->isCurrent[i] ? Verdict::kCurrent : Verdict::kNotCurrent))
        result.differences.push_back({i, verdicts[i], set.Reasons(machine, i, verdicts[i])});
    }
  } catch (const CommandError& error) {  // of this snapshot; the others are tested all the same
    result.error = error.what();
  }
  return result;
}

const char* NameOf(Verdict verdict) {
  return verdict == Verdict::kCurrent ? "current" : verdict == Verdict::kUnknown ? "unknown" : "not current";
}

// "Office is not current, but expected to be"
std::string InWords(const MachineResult::Difference& difference, const MachineResult& result, const TestSet& set) {
  return Printable(set.LabelOf(difference.location)) + " is " + NameOf(difference.found) + ", but expected " +
         (result.expected->isCurrent[difference.location] ? "to be" : "not to be") +
         (difference.found == Verdict::kUnknown ? " current" : "");
}

std::string DifferencesText(const MachineResult& result, const TestSet& set) {
  std::string text;
  for (const MachineResult::Difference& difference : result.differences) {
    text += "  " + InWords(difference, result, set) + "\n";
    for (const std::string& reason : difference.reasons) text += "    " + reason + "\n";
  }
  return text;
}

// "pc-7: Office, Home; unknown: VPN (web host vpn.example)"
std::string LineText(const MachineResult& result, const TestSet& set) {
  std::string names;
  for (const std::size_t i : result.current) names += (names.empty() ? "" : ", ") + Printable(set.LabelOf(i));
  std::string unknown;
  for (const MachineResult::Unknown& location : result.unknown) {
    std::string questions;
    for (const TestSet::Question& question : location.questions)
      questions += (questions.empty() ? "" : ", ") + InWords(question);
    unknown +=
        (unknown.empty() ? "unknown: " : ", ") + Printable(set.LabelOf(location.location)) + " (" + questions + ")";
  }
  if (names.empty() && unknown.empty()) names = "none";
  return Printable(result.machine) + ": " + names + (names.empty() || unknown.empty() ? "" : "; ") + unknown + "\n";
}

Json Reference(const TestSet& set, std::size_t location) {
  const CQeLocation& its = set.Locations()[location];
  return {{"id", ToUtf8(its.Id())}, {"name", ToUtf8(its.Name())}};
}

Json ResultAsJson(const MachineResult& result, const TestSet& set) {
  Json json = {{"file", ToUtf8(result.file)}};
  if (!result.machine.empty()) json["machine"] = ToUtf8(result.machine);
  if (!result.error.empty()) {
    json["error"] = result.error;
    return json;
  }
  json["current"] = Json::array();
  for (const std::size_t i : result.current) json["current"].push_back(Reference(set, i));
  json["unknown"] = Json::array();
  for (const MachineResult::Unknown& location : result.unknown) {
    Json reference = Reference(set, location.location);
    for (const TestSet::Question& question : location.questions)
      reference["unanswered"].push_back({{"kind", MemberOf(question.kind)}, {"asked", ToUtf8(question.text)}});
    json["unknown"].push_back(std::move(reference));
  }
  if (result.expected == nullptr) return json;
  json["differences"] = Json::array();
  for (const MachineResult::Difference& difference : result.differences) {
    Json reference = Reference(set, difference.location);
    reference["expected"] =
        NameOf(result.expected->isCurrent[difference.location] ? Verdict::kCurrent : Verdict::kNotCurrent);
    reference["found"] = NameOf(difference.found);
    reference["reasons"] = difference.reasons;
    json["differences"].push_back(std::move(reference));
  }
  return json;
}

// Takes the results as they come and keeps none of them.
class TestReport {
 public:
  TestReport(const Options& options, const TestSet& set, const Expectations& expectations, std::size_t machines)
      : m_asked(options.machines),
        m_json(options.json),
        m_set(set),
        m_expectations(expectations),
        m_machines(machines) {
    if (!m_asked.junit.empty()) m_junit.emplace(m_asked.junit, ToUtf8(m_asked.set));
    if (m_json) m_text = R"({"schema":1,"machines":[)";
  }

  void Add(MachineResult result) {
    ++m_done;
    if (result.expected != nullptr) {
      const auto [first, isFirst] = m_seen.emplace(result.expected, result.file);
      if (!isFirst)
        result.error = Printable(result.file) + ": " + Printable(first->second) + " is a snapshot of \"" +
                       Printable(result.machine) + "\", too; give one of each machine";
    }
    if (!result.error.empty())
      ++m_failed;
    else if (!result.differences.empty())
      ++m_different;
    else if (!m_asked.expect.empty() && result.expected == nullptr)
      NoteUnexpected(result);
    if (m_json) {
      m_text += (m_done == 1 ? "" : ",") + ResultAsJson(result, m_set).dump();
    } else if (result.error.empty()) {
      m_text += LineText(result, m_set) + DifferencesText(result, m_set);
    } else {
      Tell("error: " + result.error);
    }
    if (m_junit) AddTo(*m_junit, result);
    constexpr std::size_t kEnough = 32 << 10;
    if (m_text.size() >= kEnough || IsLate()) Flush();
  }

  ExitCode End() {
    Json missing = Json::array();
    for (const auto& [machine, expectation] : m_expectations) {
      if (m_seen.contains(&expectation)) continue;
      missing.push_back({{"machine", ToUtf8(machine)}, {"line", expectation.line}});
      const std::string message = "no snapshot of it is given, but line " + std::to_string(expectation.line) + " of " +
                                  Printable(m_asked.expect) + " expects one";
      if (!m_json) m_text += Printable(machine) + ": " + message + "\n";
      if (m_junit) m_junit->Add(ToUtf8(machine), JunitFile::Outcome::kFailure, message, {});
    }
    if (m_junit) m_junit->End();
    if (m_json)
      m_text += "],\"withoutSnapshot\":" + missing.dump() + ",\"tested\":" + std::to_string(m_done - m_failed) +
                ",\"different\":" + std::to_string(m_different) + ",\"errors\":" + std::to_string(m_failed) + "}\n";
    Flush();
    ClearProgress();
    if (m_unexpected != 0)
      Tell("note: " + Counted(m_unexpected, "machine") + " without a line in " + Printable(m_asked.expect) + ": " +
           m_unexpectedNames + (m_unexpected > kNamed ? ", and others" : ""));
    if (!m_asked.expect.empty())
      Tell(Counted(m_done - m_failed - m_different - m_unexpected, "machine") + " as expected, " +
           std::to_string(m_different) + " not, " + std::to_string(missing.size()) + " without a snapshot, " +
           Counted(m_failed, "error"));
    return m_failed + m_different + missing.size() == 0 ? kDone : kFailed;
  }

 private:
  static constexpr std::size_t kWidth = 40;  // of the line of progress
  static constexpr std::size_t kNamed = 5;

  void NoteUnexpected(const MachineResult& result) {
    if (++m_unexpected <= kNamed) m_unexpectedNames += (m_unexpected == 1 ? "" : ", ") + Printable(result.machine);
  }

  void AddTo(JunitFile& junit, const MachineResult& result) const {
    using Outcome = JunitFile::Outcome;
    const std::string name = ToUtf8(result.machine.empty() ? result.file : result.machine);
    if (!result.error.empty())
      junit.Add(name, Outcome::kError, result.error, {});
    else if (!result.differences.empty())
      junit.Add(name, Outcome::kFailure, InWords(result.differences.front(), result, m_set),
                DifferencesText(result, m_set));
    else if (result.expected == nullptr)
      junit.Add(name, Outcome::kSkipped, "nothing is expected of it", LineText(result, m_set));
    else
      junit.Add(name, Outcome::kPassed, {}, {});
  }

  bool IsLate() {
    constexpr std::chrono::milliseconds kPatience{200};
    return std::chrono::steady_clock::now() - m_flushed >= kPatience;
  }

  // In its turn, and in the place of the line of progress.
  void Tell(const std::string& message) {
    Flush();
    ClearProgress();
    PrintDiagnostic("qela: " + message + "\n");
  }

  void ClearProgress() const {
    if (m_isWatched) PrintDiagnostic("\r" + std::string(kWidth, ' ') + "\r");
  }

  void Flush() {
    m_flushed = std::chrono::steady_clock::now();
    if (!m_text.empty()) Print(std::exchange(m_text, {}));
    if (!m_isWatched) return;
    std::string progress = std::to_string(m_done) + " of " + Counted(m_machines, "machine");
    progress.resize(kWidth, ' ');
    PrintDiagnostic("\r" + progress);
  }

  const MachineOptions& m_asked;
  const bool m_json;
  const TestSet& m_set;
  const Expectations& m_expectations;
  const std::size_t m_machines;
  // Lines on the same terminal are progress enough.
  const bool m_isWatched = IsTerminal(STD_ERROR_HANDLE) && !IsTerminal(STD_OUTPUT_HANDLE);
  std::optional<JunitFile> m_junit;
  std::map<const Expectation*, std::wstring> m_seen;  // the snapshot of each expectation
  std::string m_text;                                 // to be printed
  std::chrono::steady_clock::time_point m_flushed = std::chrono::steady_clock::now();
  std::size_t m_done = 0;
  std::size_t m_failed = 0;
  std::size_t m_different = 0;
  std::size_t m_unexpected = 0;
  std::string m_unexpectedNames;
};

}  // namespace

ExitCode TestMachines(const Options& options) {
  const MachineOptions& asked = options.machines;
  const TestSet set(ReadSetToTest(asked.set));
  const Expectations expectations = asked.expect.empty() ? Expectations() : ReadExpectations(asked.expect, set);
  const std::vector<std::wstring> files = SnapshotFiles(asked.machines);
  TestReport report(options, set, expectations, files.size());
  InOrder(
      files.size(), std::max(std::thread::hardware_concurrency(), 1U),
      [&](std::size_t i) { return TestMachine(files[i], set, expectations); },
      [&](std::size_t, MachineResult result) { report.Add(std::move(result)); });
  return report.End();
}
