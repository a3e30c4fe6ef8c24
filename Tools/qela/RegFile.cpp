#include "RegFile.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "CommandError.h"
#include "FwClient/Common/Utilities/AsciiCase.h"

namespace {

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kOldHeader = "REGEDIT4";
constexpr std::string_view kKey = R"([HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\Tessel\Firewall\LA])";
constexpr std::string_view kUtf16Mark = "\xff\xfe";
constexpr std::string_view kUtf8Mark = "\xef\xbb\xbf";

// All that counts is ASCII. Anything else becomes a letter that is nowhere allowed but in comments.
std::string AsAscii(const std::string& bytes) {
  constexpr char kOther = '\x7f';
  std::string text;
  if (bytes.starts_with(kUtf16Mark)) {
    for (std::size_t i = kUtf16Mark.size(); i < bytes.size(); i += 2)
      text += i + 1 < bytes.size() && bytes[i + 1] == 0 && bytes[i] > 0 ? bytes[i] : kOther;
    return text;
  }
  text = bytes.substr(bytes.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0);
  std::replace_if(text.begin(), text.end(), [](char byte) { return byte <= 0; }, kOther);
  return text;
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
  return EqualsIgnoringAsciiCase(std::wstring(left.begin(), left.end()), std::wstring(right.begin(), right.end()));
}

class RegParser {
 public:
  RegParser(std::string_view text, const std::string& fileName) : m_rest(text), m_fileName(fileName) {}

  RegValue Parse() {
    if (!NextLine() || (m_current != kHeader && m_current != kOldHeader))
      Fail("this is no header of a .reg file; write \"" + std::string(kHeader) + "\"");
    bool inKey = false;
    std::optional<RegValue> found;
    while (NextLine()) {
      if (m_current.empty() || m_current.front() == ';') continue;
      if (m_current.front() == '[') {
        if (!EqualsIgnoringCase(m_current, kKey))
          Fail("this is not the key of the location set; leave out all but " + std::string(kKey));
        inKey = true;
        continue;
      }
      if (!inKey) Fail("a value stands outside of a key; write " + std::string(kKey) + " before it");
      const std::size_t line = m_line;
      // What qela itself keeps beside the set, and so is in every export of the key.
      if (TakeName("\"la.former\"=")) {
        TakeBytes();
      } else if (TakeName("\"la\"=")) {
        if (found) Fail("the value \"la\" stands here a second time; write it once");
        found = RegValue{TakeBytes(), line};
      } else {
        Fail("only the value \"la\" of the location set can be read; leave out all others");
      }
    }
    if (!found) Fail("the value \"la\" of the location set is missing; write it below " + std::string(kKey));
    return *std::move(found);
  }

 private:
  [[noreturn]] void Fail(const std::string& message) const {
    throw CommandError(kFailed, m_fileName + ": line " + std::to_string(m_line) + ": " + message);
  }

  bool NextLine() {
    if (m_atEnd) return false;
    const std::size_t end = m_rest.find('\n');
    m_current = Trimmed(m_rest.substr(0, end));
    m_atEnd = end == std::string_view::npos;
    m_rest.remove_prefix(m_atEnd ? m_rest.size() : end + 1);
    ++m_line;
    return true;
  }

  bool TakeName(std::string_view name) {
    if (!EqualsIgnoringCase(m_current.substr(0, name.size()), name)) return false;
    m_current.remove_prefix(name.size());
    return true;
  }

  // The current line from its type on, and the lines that continue it.
  std::vector<std::uint8_t> TakeBytes() {
    if (!TakeName("hex:") && !TakeName("hex(3):"))
      Fail("the value is not binary; write \"hex:\" and its bytes, as an export has them");
    std::vector<std::uint8_t> bytes;
    for (;;) {
      const bool continues = m_current.ends_with('\\');
      if (continues) m_current.remove_suffix(1);
      TakeBytesOfLine(Trimmed(m_current), continues, bytes);
      if (!continues) return bytes;
      if (!NextLine()) Fail("the file ends within the value; export it again");
    }
  }

  void TakeBytesOfLine(std::string_view text, bool continues, std::vector<std::uint8_t>& bytes) const {
    const auto digit = [&](char letter) {
      constexpr std::string_view kDigits = "0123456789abcdef";
      const std::size_t value = kDigits.find(static_cast<char>(letter >= 'A' && letter <= 'F' ? letter + 32 : letter));
      if (value == std::string_view::npos) FailBytes();
      return static_cast<std::uint8_t>(value);
    };
    for (std::size_t i = 0; i < text.size(); i += 3) {
      if (i + 2 > text.size()) FailBytes();
      bytes.push_back(static_cast<std::uint8_t>(digit(text[i]) << 4 | digit(text[i + 1])));
      if (i + 2 < text.size() && text[i + 2] != ',') FailBytes();
    }
    // A comma announces another byte.
    if (text.ends_with(',') != continues && !(text.empty() && continues && bytes.empty())) FailBytes();
  }

  [[noreturn]] void FailBytes() const {
    Fail("these are not bytes of two hexadecimal digits each, between commas; export the file again");
  }

  std::string_view m_rest;
  std::string_view m_current;
  bool m_atEnd = false;
  std::size_t m_line = 0;
  const std::string& m_fileName;
};

}  // namespace

bool LooksLikeRegFile(const std::string& bytes) {
  if (bytes.starts_with(kUtf16Mark)) return true;
  const std::string_view text = Trimmed(std::string_view(bytes).substr(bytes.starts_with(kUtf8Mark) ? 3 : 0));
  return !text.empty() && (text.front() == kHeader.front() || text.front() == kOldHeader.front());
}

RegValue ParseRegFile(const std::string& bytes, const std::string& fileName) {
  return RegParser(AsAscii(bytes), fileName).Parse();
}

std::string FormatRegFile(std::span<const std::uint8_t> value) {
  constexpr std::size_t kBytesALine = 25;
  std::string text = std::string(kHeader) + "\r\n\r\n" + std::string(kKey) + "\r\n\"la\"=hex:";
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (i != 0) text += i % kBytesALine == 0 ? ",\\\r\n  " : ",";
    for (const int shift : {4, 0}) text += "0123456789abcdef"[(value[i] >> shift) & 0xf];
  }
  text += "\r\n\r\n";
  std::string utf16(kUtf16Mark);
  for (const char letter : text) utf16.append({letter, '\0'});
  return utf16;
}
