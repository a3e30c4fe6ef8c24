#include "ExpectationFile.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "CommandError.h"
#include "FileBytes.h"
#include "Text.h"

namespace {

struct Record {
  std::size_t line;
  std::vector<std::string> fields;
};

class CsvReader {
 public:
  CsvReader(std::string_view text, const std::string& fileName) : m_rest(text), m_fileName(fileName) {
    if (m_rest.starts_with("\xef\xbb\xbf")) m_rest.remove_prefix(3);
  }

  // False at the end. Lines without anything are none.
  bool Next(Record& record) {
    while (TakeLineEnd()) {
    }
    if (m_rest.empty()) return false;
    record = {m_line, {}};
    do record.fields.push_back(TakeField());
    while (Take(','));
    if (!m_rest.empty() && !TakeLineEnd()) Fail(m_line, "text follows a closing quotation mark; put \"\" for one");
    return true;
  }

  [[noreturn]] void Fail(std::size_t line, const std::string& what) const {
    throw CommandError(kFailed, m_fileName + ", line " + std::to_string(line) + ": " + what);
  }

 private:
  bool Take(char character) {
    if (!m_rest.starts_with(character)) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  bool TakeLineEnd() {
    if (!m_rest.starts_with('\n') && !m_rest.starts_with("\r\n")) return false;
    m_rest.remove_prefix(m_rest.front() == '\r' ? 2 : 1);
    ++m_line;
    return true;
  }

  std::string TakeField() {
    if (Take('"')) return TakeQuoted();
    const std::string field(m_rest.substr(0, m_rest.find_first_of(",\r\n")));
    if (field.find('"') != std::string::npos)
      Fail(m_line, "a quotation mark stands inside a field; put the whole field in quotation marks, and \"\" for one");
    m_rest.remove_prefix(field.size());
    if (m_rest.starts_with('\r') && !m_rest.starts_with("\r\n")) Fail(m_line, "a line ends with CR alone");
    return field;
  }

  std::string TakeQuoted() {
    const std::size_t begin = m_line;
    std::string field;
    for (;;) {
      if (m_rest.empty()) Fail(begin, "a quotation mark is not closed");
      const char character = m_rest.front();
      m_rest.remove_prefix(1);
      if (character == '"' && !Take('"')) return field;
      if (character == '\n') ++m_line;
      field += character;
    }
  }

  std::string_view m_rest;
  const std::string& m_fileName;
  std::size_t m_line = 1;
};

std::wstring Trimmed(std::wstring_view text) {
  constexpr std::wstring_view kBlanks = L" \t";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::wstring_view::npos) return {};
  return std::wstring(text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1));
}

// The positions of locations by ID and by name.
class LocationIndex {
 public:
  explicit LocationIndex(const TestSet& set) {
    for (std::size_t i = 0; i < set.Locations().size(); ++i) {
      const CQeLocation& location = set.Locations()[i];
      m_byId.emplace(location.Id(), i);
      m_byName[location.Name()].push_back(i);
      if (set.LabelOf(i) != location.Name()) m_byName[set.LabelOf(i)].push_back(i);  // as results show it
    }
  }

  std::size_t At(const std::wstring& nameOrId, const CsvReader& csv, std::size_t line) const {
    if (const auto id = m_byId.find(nameOrId); id != m_byId.end()) return id->second;
    const auto name = m_byName.find(nameOrId);
    if (name == m_byName.end())
      csv.Fail(line, "no location of the set has the name or ID \"" + Printable(nameOrId) +
                         "\"; several are separated by \";\"");
    if (name->second.size() > 1)
      csv.Fail(line, "several locations have the name \"" + Printable(nameOrId) + "\"; write the ID of one");
    return name->second.front();
  }

 private:
  std::unordered_map<std::wstring, std::size_t> m_byId;
  std::unordered_map<std::wstring, std::vector<std::size_t>> m_byName;
};

std::wstring TextOf(const std::string& field, const CsvReader& csv, std::size_t line) {
  std::wstring text = ToWide(field);
  if (ToUtf8(text) != field) csv.Fail(line, "it is not UTF-8; save the file as \"CSV UTF-8\"");
  return text;
}

}  // namespace

Expectations ParseExpectations(const std::string& text, const std::string& fileName, const TestSet& set) {
  CsvReader csv(text, fileName);
  Record record;
  if (!csv.Next(record) || record.fields != std::vector<std::string>{"machine", "locations"})
    csv.Fail(1, "the first line must be \"machine,locations\"");
  const LocationIndex index(set);
  Expectations expectations;
  while (csv.Next(record)) {
    const std::size_t line = record.line;
    if (record.fields.size() != 2)
      csv.Fail(line, Counted(record.fields.size(), "field") + (record.fields.size() == 1 ? " stands" : " stand") +
                         " here; write the machine, a comma, and its locations separated by \";\"");
    const std::wstring machine = TextOf(record.fields[0], csv, line);
    if (machine.empty()) csv.Fail(line, "the machine has no name");
    Expectation expectation{line, std::vector<bool>(set.Locations().size())};
    const std::wstring locations = TextOf(record.fields[1], csv, line);
    for (std::size_t begin = 0; begin <= locations.size();) {
      const std::size_t end = std::min(locations.find(L';', begin), locations.size());
      const std::wstring location = Trimmed(std::wstring_view(locations).substr(begin, end - begin));
      if (!location.empty()) expectation.isCurrent[index.At(location, csv, line)] = true;
      begin = end + 1;
    }
    const auto [stored, isNew] = expectations.emplace(machine, std::move(expectation));
    if (!isNew)
      csv.Fail(line,
               "\"" + Printable(machine) + "\" stands in line " + std::to_string(stored->second.line) + " already");
  }
  return expectations;
}

Expectations ReadExpectations(const std::wstring& path, const TestSet& set) {
  return ParseExpectations(ReadFileBytes(path), ShownFileName(path), set);
}
