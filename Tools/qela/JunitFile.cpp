#include "JunitFile.h"

#include <cstdint>
#include <cstdio>
#include <iterator>

namespace {

constexpr const char* kElements[] = {nullptr, "failure", "error", "skipped"};

// The head is written first, when its numbers are not known yet, and again at the end. So it always takes this room, by
// blanks in front of its last character.
constexpr std::size_t kRoomForNumbers = 200;

}  // namespace

std::string XmlText(std::string_view utf8) {
  std::string xml;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const char character = utf8[i];
    const std::string_view rest = utf8.substr(i);
    char escaped[16];
    if (character == '&') {
      xml += "&amp;";
    } else if (character == '<') {
      xml += "&lt;";
    } else if (character == '>') {
      xml += "&gt;";
    } else if (character == '"') {
      xml += "&quot;";
    } else if (static_cast<unsigned char>(character) < 0x20 && character != '\n') {
      static_cast<void>(std::snprintf(escaped, std::size(escaped), "\\u%04X", static_cast<unsigned>(character)));
      xml += escaped;
    } else if (rest.starts_with("\xef\xbf\xbe") || rest.starts_with("\xef\xbf\xbf")) {
      xml += rest[2] == '\xbe' ? "\\uFFFE" : "\\uFFFF";
      i += 2;
    } else {
      xml += character;
    }
  }
  return xml;
}

JunitFile::JunitFile(const std::wstring& path, const std::string& suite) : m_file(path), m_suite(suite) {
  m_file.Write(Head());
}

std::string JunitFile::Head() const {
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - m_begin;
  std::string numbers;
  const auto add = [&](const char* attribute, const std::string& value) {
    numbers += std::string(" ") + attribute + "=\"" + value + "\"";
  };
  add("tests", std::to_string(m_count[0] + m_count[1] + m_count[2] + m_count[3]));
  add("failures", std::to_string(m_count[static_cast<int>(Outcome::kFailure)]));
  add("errors", std::to_string(m_count[static_cast<int>(Outcome::kError)]));
  add("skipped", std::to_string(m_count[static_cast<int>(Outcome::kSkipped)]));
  add("time", std::to_string(took.count()));
  numbers.resize(kRoomForNumbers, ' ');
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n<testsuite name=\"" + XmlText(m_suite) + "\"" +
         numbers + ">\n";
}

void JunitFile::Add(const std::string& name, Outcome outcome, const std::string& message, const std::string& details) {
  ++m_count[static_cast<int>(outcome)];
  std::string line = "<testcase classname=\"" + XmlText(m_suite) + "\" name=\"" + XmlText(name) + "\"";
  if (const char* const element = kElements[static_cast<int>(outcome)]; element != nullptr)
    line += std::string("><") + element + " message=\"" + XmlText(message) + "\">" + XmlText(details) + "</" + element +
            "></testcase>\n";
  else
    line += "/>\n";
  m_file.Write(line);
}

void JunitFile::End() {
  m_file.Write("</testsuite>\n</testsuites>\n");
  m_file.WriteAtStart(Head());
  m_file.Flush();
}
