// The tables of Docs/log.md, compared with the texts in the shipped DLL, in both directions.
#include <windows.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tests/Support/TestFile.h"

namespace {

using ::testing::IsEmpty;

std::string Read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The first cells of all tables with this head: what stands between their backticks, with real line breaks and tabs.
std::vector<std::string> FirstCellsBelow(std::string_view head) {
  std::ifstream file(TestFile("Docs/log.md"), std::ios::binary);
  std::vector<std::string> cells;
  bool isInside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line == head)
      isInside = true;
    else if (!line.starts_with('|'))
      isInside = false;
    else if (isInside && !line.starts_with("|-")) {
      std::string cell = line.substr(line.find('`') + 1);
      cell.erase(cell.find('`'));
      for (const auto& [escape, letter] : {std::pair{"\\n", '\n'}, std::pair{"\\t", '\t'}})
        for (auto at = cell.find(escape); at != std::string::npos; at = cell.find(escape))
          cell.replace(at, 2, 1, letter);
      cells.push_back(cell);
    }
  }
  return cells;
}

std::vector<std::string> DocumentedLines() { return FirstCellsBelow("| Line | Severity | When | What to conclude |"); }
std::vector<std::string> DocumentedLabels() { return FirstCellsBelow("| Label | What follows |"); }

// What the DLL keeps of constants: the section for reading only.
std::string ConstantsOfLibrary() {
  const std::string image = Read(ProgramFolder() / "QeLaLib.dll");
  const auto at = [&]<typename T>(std::size_t offset, T value) {
    if (offset + sizeof value <= image.size()) std::memcpy(&value, image.data() + offset, sizeof value);
    return value;
  };
  const auto header = static_cast<std::size_t>(at(0, IMAGE_DOS_HEADER{}).e_lfanew);
  const IMAGE_FILE_HEADER file = at(header + sizeof(DWORD), IMAGE_FILE_HEADER{});
  const std::size_t sections = header + offsetof(IMAGE_NT_HEADERS, OptionalHeader) + file.SizeOfOptionalHeader;
  for (WORD i = 0; i < file.NumberOfSections; ++i) {
    const auto section = at(sections + i * sizeof(IMAGE_SECTION_HEADER), IMAGE_SECTION_HEADER{});
    if (std::memcmp(section.Name, ".rdata", sizeof ".rdata") == 0 && section.PointerToRawData <= image.size())
      return image.substr(section.PointerToRawData, std::min(section.Misc.VirtualSize, section.SizeOfRawData));
  }
  return {};
}

bool IsPrintable(unsigned unit) { return (unit >= ' ' && unit <= '~') || unit == '\n' || unit == '\t'; }

// Shorter ones are found in anything.
constexpr std::size_t kShortest = 6;

// The texts of ASCII letters, each ended by a NUL, in units of the size of `Unit`. The end of something else may look
// like a first letter; of wide texts one at most, since what goes before them ends with a NUL of its own.
template <typename Unit>
std::set<std::string> TextsIn(const std::string& constants) {
  std::set<std::string> texts;
  std::string text;
  for (std::size_t offset = 0; offset + sizeof(Unit) <= constants.size(); offset += sizeof(Unit)) {
    Unit unit = 0;
    std::memcpy(&unit, constants.data() + offset, sizeof unit);
    if (IsPrintable(unit)) {
      text += static_cast<char>(unit);
      continue;
    }
    if (unit == 0 && text.size() >= kShortest) texts.insert(text);
    text.clear();
  }
  return texts;
}

std::set<std::string> WideTexts() { return TextsIn<char16_t>(ConstantsOfLibrary()); }
std::set<std::string> NarrowTexts() { return TextsIn<unsigned char>(ConstantsOfLibrary()); }

bool IsOneOf(const std::string& text, const std::vector<std::string>& known) {
  return std::any_of(known.begin(), known.end(), [&](const std::string& other) {
    return text == other || (text.size() == other.size() + 1 && text.ends_with(other));
  });
}

// What the library's code says in wide texts without logging it, and what its run time does.
const std::vector<std::string> kNoLogLines = {
    "virtual", "0123456789ABCDEF", "0000:0000:0000:0000:0000:ffff:", "^$\\+?()[]{}|", " Location",
    // registry
    "SOFTWARE\\Corvane\\Tessel\\Firewall\\LA", "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon",
    "SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework", "ZeltServerList", "HKEY_LOCAL_MACHINE",
    "HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_USERS",
    // other programs and libraries
    "https://", "WinHTTPS request", "kernel32.dll", "ntdll.dll", "\\tasklist.exe", " /FI \"IMAGENAME eq ",
    "\" /FO CSV /NH", "explorer.exe", "userName", "password", "proxyCredentials",
    // the run time's
    "%m/%d/%y", "%H:%M:%S", "%a %b %e %T %Y", "%I:%M:%S %p", "(null)", "Sunday", "Monday", "Tuesday", "Wednesday",
    "Thursday", "Friday", "Saturday", "January", "February", "August", "September", "October", "November", "December"};

// Narrow formats that are not logged: what the error printer is given, and the run time's, which name pointers and
// sizes or begin with blanks.
bool IsKnownNarrowFormat(const std::string& text) {
  static constexpr std::string_view kMarks[] = {
      "UCD SerializeToBytes", "UCD DeserializeFromBytes", "%p",        "%zu",
      "runtime error %d",     "Assertion failed: (",      "spin_keys", "Unknown pseudo relocation",
      "VirtualProtect failed"};
  return std::any_of(std::begin(kMarks), std::end(kMarks),
                     [&](std::string_view mark) { return text.find(mark) != std::string::npos; });
}

// Whether it has a place for a value, and words.
bool LooksLikeFormat(const std::string& text) {
  constexpr std::size_t kWord = 4;
  std::size_t letters = 0;
  bool hasWord = false;
  for (const char letter : text) {
    letters = letter >= 'a' && letter <= 'z' ? letters + 1 : 0;
    hasWord = hasWord || letters >= kWord;
  }
  static constexpr std::string_view kPlaces[] = {"%d", "%s", "%S", "%u", "%x", "%l", "%i", "%w", "%c", "%0"};
  return hasWord && std::any_of(std::begin(kPlaces), std::end(kPlaces),
                                [&](std::string_view place) { return text.find(place) != std::string::npos; });
}

TEST(LogDocument, EveryLineStandsInTheLibrary) {
  const std::set<std::string> wide = WideTexts();
  const std::set<std::string> narrow = NarrowTexts();
  const std::vector<std::string> lines = DocumentedLines();
  EXPECT_EQ(lines.size(), 78U);
  for (const std::string& line : lines) {
    const auto isIt = [&](const std::string& text) { return IsOneOf(text, {line}); };
    EXPECT_TRUE(std::any_of(wide.begin(), wide.end(), isIt) || narrow.contains(line)) << line;
  }
  const std::vector<std::string> labels = DocumentedLabels();
  EXPECT_EQ(labels.size(), 12U);
  for (const std::string& label : labels) EXPECT_TRUE(wide.contains(label)) << label;
}

TEST(LogDocument, NoLineIsThereTwice) {
  const std::vector<std::string> lines = DocumentedLines();
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size());
}

TEST(LogDocument, EveryTextOfTheLibraryIsDocumentedOrKnownToBeNoLine) {
  std::vector<std::string> known = DocumentedLines();
  const std::vector<std::string> labels = DocumentedLabels();
  known.insert(known.end(), labels.begin(), labels.end());
  known.insert(known.end(), kNoLogLines.begin(), kNoLogLines.end());
  std::vector<std::string> strange;
  for (const std::string& text : WideTexts())
    if (!IsOneOf(text, known)) strange.push_back(text);
  EXPECT_THAT(strange, IsEmpty()) << "a log line belongs into Docs/log.md, another text into kNoLogLines";
}

TEST(LogDocument, EveryNarrowFormatOfTheLibraryIsDocumentedOrKnownToBeNoLine) {
  const std::vector<std::string> known = DocumentedLines();
  std::vector<std::string> strange;
  for (const std::string& text : NarrowTexts())
    if (LooksLikeFormat(text) && !IsOneOf(text, known) && !IsKnownNarrowFormat(text)) strange.push_back(text);
  EXPECT_THAT(strange, IsEmpty()) << "a log line belongs into Docs/log.md, another text into IsKnownNarrowFormat";
}

}  // namespace
