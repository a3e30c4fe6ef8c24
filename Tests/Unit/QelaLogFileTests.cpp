// Logs as hosts write them: what is read is what the library has said.
#include "Tools/qela/LogFile.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <format>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/UniqueName.h"
#include "Tests/Support/CommandFailure.h"
#include "Tests/Support/HostLogs.h"
#include "Tools/qela/LogMessages.h"
#include "Tools/qela/LogScan.h"
#include "Tools/qela/Text.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Texts = std::vector<std::wstring>;

// ---- What the library says

AdapterProps Adapter() {
  AdapterProps adapter;
  adapter.ifIndex = 2;
  adapter.description = L"Intel(R) Ethernet \\new";
  adapter.gateways = {L"10.20.0.1", L"fe80::1"};
  adapter.dhcpEnabled = true;
  adapter.dhcpServer = L"10.20.0.2";
  adapter.ipAddresses = {L"10.20.0.15"};
  adapter.dnsSuffix = L"corp.example";
  adapter.winsSecondary = L"10.20.0.4";
  return adapter;
}

std::wstring ReportOf(const AdapterProps& adapter) { return L"Adapter properties:\n" + RenderAdapterProps(adapter); }

// Only what a code page of Western Europe has, so that every encoding can write it.
Texts Calculation(const std::wstring& name = L"B\u00fcro \"S\u00fcd\"") {
  AdapterProps second;
  second.description = L"tunnel \u00e0 c\u00f4t\u00e9";
  return {L"The location discovery thread received an address change notification",
          L"Calculating current locations...",
          L"GetAdaptersAddresses succeeds, the return value is : 0",
          L"Adapters List :",
          ReportOf(Adapter()),
          L"//---------------------------------------------\n",
          ReportOf(second),
          L"//---------------------------------------------\n",
          L"IsCurrentLocation checking location " + name,
          L"IsCurrentLocation bZeltReachabilityCriteria 1",
          L"Matching all the location criterias with the properties of adapter with index 2 and description " +
              Adapter().description + L".",
          L"The registry key Software\\new\\u0041 specified for the location does not exist.",
          L"Unable to find the string value in the registry for C:\\tools.",
          L"All the criteria's given in location matches adapter index 2 with description " + Adapter().description +
              L". Hence this adapter will be matching.",
          L"CheckZeltReachability failed for zelt.corp.example",
          L"CheckZeltReachability failed",
          L"IsCurrentLocation returning matched criterias 0 for location " + name + L"...",
          L"Raising a location changed event..."};
}

// ---- Encodings

std::string Utf16(std::wstring_view text, bool isBigEndian) {
  std::string bytes;
  for (const wchar_t unit : text) {
    const char low = static_cast<char>(unit & 0xff);
    const char high = static_cast<char>(unit >> 8);
    bytes += isBigEndian ? high : low;
    bytes += isBigEndian ? low : high;
  }
  return bytes;
}

std::string Ansi(std::wstring_view text) {
  std::string bytes(text.size(), '\0');
  ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                        static_cast<int>(bytes.size()), nullptr, nullptr);
  return bytes;
}

struct Encoding {
  const char* name;
  std::function<std::string(std::wstring_view text)> encode;
};
const std::vector<Encoding>& Encodings() {
  static const std::vector<Encoding> encodings = {
      {"UTF-8", [](std::wstring_view text) { return ToUtf8(text); }},
      {"UTF-8 with its mark", [](std::wstring_view text) { return "\xef\xbb\xbf" + ToUtf8(text); }},
      {"UTF-16", [](std::wstring_view text) { return Utf16(text, false); }},
      {"UTF-16 with its mark", [](std::wstring_view text) { return "\xff\xfe" + Utf16(text, false); }},
      {"UTF-16 of the other order", [](std::wstring_view text) { return Utf16(text, true); }},
      {"UTF-16 of the other order with its mark",
       [](std::wstring_view text) { return "\xfe\xff" + Utf16(text, true); }},
      {"the code page", Ansi}};
  return encodings;
}

// ---- Reading

struct ReadMessage {
  std::wstring text;
  std::string time;
  std::size_t file;
  std::uint64_t line;
  bool mayBeCut;
};
std::vector<ReadMessage> Read(const std::vector<std::wstring>& files) {
  std::vector<ReadMessage> messages;
  ReadLog(files, [&](const LoggedMessage& message) {
    messages.push_back({std::wstring(message.text), message.time ? ToText(*message.time) : "", message.file,
                        message.line, message.mayBeCut});
  });
  return messages;
}
Texts TextsOf(const std::vector<ReadMessage>& messages) {
  Texts texts;
  for (const ReadMessage& message : messages) texts.push_back(message.text);
  return texts;
}
Texts ReadTexts(std::string_view bytes) {
  const LogFolder folder;
  return TextsOf(Read({folder.Write(L"a.log", bytes)}));
}
// Without files, as they are read.
Texts TextsIn(std::string_view lines) {
  LogMessages ahead([](const LoggedMessage&) {});
  ahead.Take(lines);
  Texts texts;
  LogMessages messages([&](const LoggedMessage& message) { texts.emplace_back(message.text); });
  messages.LearnFrom(ahead);
  messages.Take(lines);
  messages.End();
  return texts;
}

TEST(QelaLogFile, GivesTheSameMessagesWhateverTheHostWritesAroundThem) {
  const Texts expected = Calculation();
  for (const HostFormat& host : HostFormats())
    EXPECT_EQ(ReadTexts(ToUtf8(LogOf(host, expected))), expected) << host.name;
}

TEST(QelaLogFile, GivesTheSameMessagesInEveryEncodingAndWithEveryLineEnd) {
  const Texts expected = Calculation();
  for (const HostFormat& host : HostFormats())
    for (const Encoding& encoding : Encodings())
      for (const wchar_t* lineEnd : {L"\n", L"\r\n", L"\r"})
        EXPECT_EQ(ReadTexts(encoding.encode(LogOf(host, expected, lineEnd))), expected)
            << host.name << ", " << encoding.name << ", " << ToUtf8(Escaped(lineEnd));
}

TEST(QelaLogFile, TellsWhereAndWhenAMessageWasWritten) {
  for (const HostFormat& host : HostFormats()) {
    if (std::string_view(host.name).starts_with("the text")) continue;
    const LogFolder folder;
    const std::wstring log = LogOf(host, Calculation(), L"\r\n");
    const std::vector<ReadMessage> messages = Read({folder.Write(L"a.log", "\n"), folder.Write(L"b.log", ToUtf8(log))});
    ASSERT_EQ(messages.size(), Calculation().size()) << host.name;
    std::uint64_t line = 1;
    for (std::size_t i = 0; i < messages.size(); ++i) {
      const std::wstring record = host.write(Calculation()[i], static_cast<int>(i) + 1);
      const auto lines = static_cast<std::uint64_t>(std::ranges::count(record, L'\n')) + 1;
      const bool isSecond = std::string_view(host.name).ends_with("others between");
      EXPECT_EQ(messages[i].file, 1u) << host.name;
      EXPECT_EQ(messages[i].line, line + (isSecond ? 1 : 0)) << host.name << ToUtf8(messages[i].text);
      EXPECT_THAT(messages[i].time, HasSubstr(std::format("2025-11-21T02:44:00.{:03}", i + 1))) << host.name;
      EXPECT_FALSE(messages[i].mayBeCut) << host.name;
      line += lines;
    }
  }
}

TEST(QelaLogFile, ReadsLettersOfEveryLanguage) {
  const Texts expected = Calculation(L"\u65e5\u672c \U0001f600 \u00e9");
  for (const Encoding& encoding : Encodings()) {
    if (std::string_view(encoding.name) == "the code page") continue;
    EXPECT_EQ(ReadTexts(encoding.encode(LogOf(HostFormats().front(), expected))), expected) << encoding.name;
  }
}

TEST(QelaLogFile, DecidesOnTheEncodingOfEachLine) {
  const std::wstring line = L"IsCurrentLocation checking location B\u00fcro\n";
  EXPECT_EQ(ReadTexts(Ansi(line) + ToUtf8(line) + Ansi(line)), Texts(3, line.substr(0, line.size() - 1)));
}

TEST(QelaLogFile, ShowsBytesThatAreNoLetters) {
  EXPECT_THAT(ReadTexts("\xef\xbb\xbfIsCurrentLocation checking location a\xff\xc3(b\n"),
              ElementsAre(L"IsCurrentLocation checking location a\ufffd\ufffd(b"));
}

// Two messages in one line: the second looks like what the host writes behind each, and is a message elsewhere.
TEST(QelaLogFile, TakesNothingOffAMessagesOwnBeginning) {
  EXPECT_EQ(TextsIn("Calculating current locations...Adapters List :\nAdapters List :\nIsCurrentLocation checking "
                    "location A\n"),
            (Texts{L"Calculating current locations...", L"Adapters List :", L"IsCurrentLocation checking location A"}));
  const std::string succeeds = "GetAdaptersAddresses succeeds, the return value is : 0";
  EXPECT_EQ(TextsIn("Calculating current locations..." + succeeds + "\n" + succeeds + "\n"),
            (Texts{L"Calculating current locations...", L"GetAdaptersAddresses succeeds, the return value is : 0"}));
  EXPECT_EQ(TextsIn("Calculating current locations...s\nIsCurrentLocation checking location Offices\nAdapter "
                    "properties:\\ns\n"),
            (Texts{L"Calculating current locations...", L"IsCurrentLocation checking location Office",
                   L"Adapter properties:\n"}));
}

TEST(QelaLogFile, TakesNothingOffWhereWhatStandsBehindVaries) {
  const Texts texts = ReadTexts(
      "Calculating current locations... [1]\nIsCurrentLocation checking location A [1]\n"
      "Adapters List : [2]\nIsCurrentLocation checking location B [2]\n"
      "Calculating current locations... <x>\nIsCurrentLocation checking location C <x>\n");
  EXPECT_THAT(texts, ElementsAre(L"Calculating current locations...", L"IsCurrentLocation checking location A",
                                 L"Adapters List :", L"IsCurrentLocation checking location B [2]",
                                 L"Calculating current locations...", L"IsCurrentLocation checking location C"));
}

TEST(QelaLogFile, LearnsFromWhatFollowsHowItsBeginningIsWritten) {
  for (const HostFormat& host : HostFormats()) {
    const Texts expected = Calculation();
    std::wstring log = LogOf(host, Calculation()) + LogOf(host, Calculation());
    const std::wstring cut = LogOf(host, {expected.begin(), expected.begin() + 8});
    log.erase(0, cut.size());
    Texts rest(expected.begin() + 8, expected.end());
    rest.insert(rest.end(), expected.begin(), expected.end());
    EXPECT_EQ(ReadTexts(ToUtf8(log)), rest) << host.name;
  }
}

TEST(QelaLogFile, EndsAReportThatBreaksOffWithTheNextMessage) {
  const LogFolder folder;
  const auto messages = Read({folder.Write(L"a.log",
                                           "x Adapter properties:\nx \tInterface Index:2\nx \tDescription :Get client "
                                           "certificate chain\nx \tDefault Gateways:\nx \t\tCount (2)\nx "
                                           "\t\t\t10.0.0.1\nx Adapters List :\nx Adapter properties:\nx \tInterf")});
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0].text,
            L"Adapter properties:\n\n\tInterface Index:2\n\tDescription :Get client certificate chain\n\t"
            L"Default Gateways:\n\t\tCount (2)\n\t\t\t10.0.0.1");
  EXPECT_EQ(messages[1].text, L"Adapters List :");
  EXPECT_EQ(messages[2].text, L"Adapter properties:\n");
  EXPECT_TRUE(messages[2].mayBeCut);
}

// ---- Broken logs

// The messages are the true ones up to there, and the last of them may be the beginning of one.
void ExpectBeginningOf(const Texts& texts, const Texts& whole, const std::string& what) {
  ASSERT_LE(texts.size(), whole.size()) << what;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i + 1 < texts.size())
      ASSERT_EQ(texts[i], whole[i]) << what;
    else
      ASSERT_TRUE(whole[i].starts_with(texts[i])) << what << ": " << ToUtf8(texts[i]);
  }
}

TEST(QelaLogFile, OfEveryTruncationSaysOnlyTheBeginning) {
  Texts whole = Calculation();
  whole.insert(whole.end(), whole.begin(), whole.end());
  for (const HostFormat& host : HostFormats()) {
    const std::string log = ToUtf8(LogOf(host, whole));
    for (std::size_t size = 0; size < log.size(); ++size)
      ExpectBeginningOf(TextsIn(std::string_view(log).substr(0, size)), whole,
                        std::string(host.name) + ", " + std::to_string(size) + " bytes");
    if (HasFatalFailure()) return;
  }
}

TEST(QelaLogFile, OfEveryTruncationAtItsBeginningSaysOnlyTheEnd) {
  const Texts once = Calculation();
  Texts whole = once;
  whole.insert(whole.end(), once.begin(), once.end());
  for (const HostFormat& host : HostFormats()) {
    const std::string log = ToUtf8(LogOf(host, whole));
    for (std::size_t cut = 0; cut < log.size() / 2; ++cut) {
      Texts texts = TextsIn(std::string_view(log).substr(cut));
      ASSERT_LE(texts.size(), whole.size()) << host.name << ", from " << cut;
      ASSERT_EQ(texts, Texts(whole.end() - std::ssize(texts), whole.end())) << host.name << ", from " << cut;
    }
  }
}

TEST(QelaLogFile, OfUtf16ThatIsCutInALetterSaysOnlyTheBeginning) {
  const Texts whole = {L"Calculating current locations...",
                       L"IsCurrentLocation checking location \u65e5\U0001f600\u672c and more of it",
                       L"Adapters List :"};
  const LogFolder folder;
  for (const bool isBigEndian : {false, true}) {
    const std::string log = Utf16(LogOf(HostFormats().front(), whole), isBigEndian);
    // An odd number of bytes that begin with a zero is taken for the usual order without its first byte.
    for (std::size_t size = 200; size < log.size(); size += isBigEndian ? 2 : 1)
      ExpectBeginningOf(TextsOf(Read({folder.Write(L"a.log", std::string_view(log).substr(0, size))})), whole,
                        std::to_string(size) + " bytes");
  }
  const std::string log = Utf16(LogOf(HostFormats().front(), whole), false);
  EXPECT_EQ(TextsOf(Read({folder.Write(L"b.log", std::string_view(log).substr(1))})), whole);
}

TEST(QelaLogFile, SurvivesRandomBytes) {
  std::mt19937 random(4711);
  const std::string log = ToUtf8(LogOf(HostFormats().front(), Calculation()) + LogOf(HostFormats()[5], Calculation()));
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = log;
    for (int change = 0; change < 20; ++change) {
      const std::size_t at = random() % bytes.size();
      switch (random() % 3) {
        case 0:
          bytes[at] = static_cast<char>(random());
          break;
        case 1:
          bytes.erase(at, random() % 50);
          break;
        default:
          bytes.insert(at, bytes.substr(random() % bytes.size(), random() % 100));
      }
    }
    for (const std::wstring& text : TextsIn(bytes)) ASSERT_NE(FixedBeginningOfMessage(text), 0u);
  }
  const LogFolder folder;
  for (int round = 0; round < 50; ++round) {
    std::string bytes(random() % 20'000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    EXPECT_THAT(Read({folder.Write(L"a.log", bytes)}), IsEmpty());
    FindCalculation({folder.Path(L"a.log")}, {});
  }
}

TEST(QelaLogFile, ReadsLinesOfAMegabyteAndPassesOverEndlessOnes) {
  const std::wstring name(1 << 20, L'x');
  const std::string line = "IsCurrentLocation checking location ";
  const LogFolder folder;
  const std::string bytes = line + ToUtf8(name) + "\n" + line + std::string(5 << 20, 'y') + "\r\n" +
                            std::string(9 << 20, '\0') + "\r" + line + "last\n";
  const std::vector<ReadMessage> messages = Read({folder.Write(L"a.log", bytes)});
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].text, ToWide(line) + name);
  EXPECT_EQ(messages[1].text, ToWide(line) + L"last");
  EXPECT_EQ(messages[1].line, 4u);
}

// Writes to the pipe what the reader takes.
class PipeWriter {
 public:
  explicit PipeWriter(const std::vector<std::string>& parts)
      : m_pipe(::CreateNamedPipeW(m_path.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 1 << 20, 0, 0, nullptr)),
        m_thread([this, parts] {
          ::ConnectNamedPipe(m_pipe.get(), nullptr);
          for (const std::string& part : parts) {
            DWORD written = 0;
            if (!::WriteFile(m_pipe.get(), part.data(), static_cast<DWORD>(part.size()), &written, nullptr)) break;
          }
          ::FlushFileBuffers(m_pipe.get());
          m_pipe.reset();
        }) {}
  ~PipeWriter() { m_thread.join(); }
  PipeWriter(const PipeWriter&) = delete;
  PipeWriter& operator=(const PipeWriter&) = delete;

  const std::wstring& Path() const { return m_path; }

 private:
  std::wstring m_path = LR"(\\.\pipe\qela-log-)" + UniqueName();
  UniqueKernelHandle m_pipe;
  std::thread m_thread;
};

TEST(QelaLogFile, HoldsNoMoreThanAFewMegabytesHoweverMuchItReads) {
  constexpr std::size_t kMost = 8 << 20;
  std::vector<std::string> parts(64, std::string(1 << 20, 'x'));  // a line that does not end
  parts.emplace_back("\n");
  std::string messages;
  while (messages.size() < 1 << 20) messages += ToUtf8(LogOf(HostFormats().front(), Calculation()));
  parts.insert(parts.end(), 16, messages);
  const PipeWriter writer(parts);
  std::size_t count = 0;
  const HeapWatch heap(::GetModuleHandleW(nullptr));
  ReadLog({writer.Path()}, [&](const LoggedMessage& message) { count += message.line > 1 ? 1 : 0; });
  EXPECT_GT(count, 50'000u);
  EXPECT_LT(heap.BytesAskedFor(), kMost) << "all that was asked for, given back or not";
}

TEST(QelaLogFile, ReadsTheSameAcrossTheBordersOfItsBlocks) {
  constexpr std::size_t kBorder = (4 << 10) + (256 << 10);
  const LogFolder folder;
  const std::string log = ToUtf8(LogOf(HostFormats()[4], Calculation(L"\u65e5\u672c \U0001f600"), L"\r\n"));
  const std::vector<ReadMessage> expected = Read({folder.Write(L"a.log", "\r\n" + log)});
  // The border moves through what makes a line end, a letter and a line in the middle of a report.
  const std::size_t middle = log.find("Count");
  for (std::size_t before = middle; before < middle + 250; ++before) {
    const std::vector<ReadMessage> messages =
        Read({folder.Write(L"a.log", std::string(kBorder - 2 - before, '-') + "\r\n" + log)});
    ASSERT_EQ(messages.size(), expected.size()) << before;
    for (std::size_t i = 0; i < messages.size(); ++i) {
      ASSERT_EQ(messages[i].text, expected[i].text) << before;
      ASSERT_EQ(messages[i].line, expected[i].line) << before;
    }
  }
  const std::size_t beginning = log.find("Calculating");
  for (std::size_t before = beginning - 100; before < beginning + 40; ++before) {
    const auto found =
        FindCalculation({folder.Write(L"a.log", std::string(kBorder - 2 - before, '-') + "\r\n" + log)}, {});
    ASSERT_TRUE(found);
    ASSERT_EQ(found->messages.size(), expected.size()) << before;
    ASSERT_EQ(found->messages.front().line, 2u) << before;
    ASSERT_EQ(found->messages.back().line, expected.back().line) << before;
  }
}

TEST(QelaLogFile, ReadsEmptyFilesAndSaysWhyItCannotReadOthers) {
  const LogFolder folder;
  EXPECT_THAT(Read({folder.Write(L"empty.log", "")}), IsEmpty());
  EXPECT_FALSE(FindCalculation({folder.Path(L"empty.log")}, {}));
  EXPECT_THAT(FailureOf([&] { Read({folder.Path(L"")}); }), HasSubstr("it cannot be read"));
  EXPECT_THAT(FailureOf([&] { Read({folder.Path(L"none.log")}); }), HasSubstr("there is no such file"));
  EXPECT_THAT(FailureOf([&] { WithRotated(folder.Path(L"none.log")); }), HasSubstr("none.log: it cannot be read"));
}

TEST(QelaLogFile, ReadsWhatAnotherProcessGoesOnWriting) {
  const LogFolder folder;
  const std::wstring path = folder.Write(L"a.log", "Adapters List :\n");
  const HANDLE writer =
      ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(writer, INVALID_HANDLE_VALUE);
  const UniqueKernelHandle closes(writer);
  int count = 0;
  // Each message makes another line, and still the reading comes to an end.
  ReadLog({path}, [&](const LoggedMessage&) {
    DWORD written = 0;
    if (++count < 1000) ::WriteFile(writer, "Adapters List :\n", 16, &written, nullptr);
  });
  EXPECT_EQ(count, 1);
}

// ---- Rotation

TEST(QelaLogFile, ReadsRotatedFilesTheOldestFirst) {
  const LogFolder folder;
  for (const wchar_t* name : {L"s.log", L"s.log.1", L"s.log.2", L"s.log.10", L"s.log.old", L"s.log.1.gz", L"s.log.2.1",
                              L"t.log.3", L"s.log.", L"ss.log.4"})
    folder.Write(name, "");
  std::filesystem::create_directory(folder.Path(L"s.log.3"));
  EXPECT_THAT(WithRotated(folder.Path(L"s.log")), ElementsAre(folder.Path(L"s.log.10"), folder.Path(L"s.log.2"),
                                                              folder.Path(L"s.log.1"), folder.Path(L"s.log")));
}

TEST(QelaLogFile, GoesOnInTheNextFile) {
  for (const HostFormat& host : HostFormats()) {
    const LogFolder folder;
    const Texts expected = Calculation();
    const std::wstring first = LogOf(host, {expected.begin(), expected.begin() + 6});
    const std::wstring log = LogOf(host, expected);
    EXPECT_EQ(
        TextsOf(Read({folder.Write(L"a", ToUtf8(first)), folder.Write(L"b", Utf16(log.substr(first.size()), false))})),
        expected)
        << host.name;
  }
}

// ---- One calculation

Texts FoundTexts(const std::optional<FoundCalculation>& found) {
  Texts texts;
  if (found)
    for (const auto& message : found->messages) texts.push_back(message.text);
  return texts;
}

// Each a second later than the one before, the first at 02:44:01; with its own name.
std::wstring LogOfCalculations(const HostFormat& host, const std::vector<std::wstring>& names) {
  std::wstring log;
  int number = 0;
  for (const std::wstring& name : names) {
    number += 1000;
    for (const std::wstring& text : Calculation(name)) log += host.write(text, number) + L"\n";
  }
  return log;
}

TEST(QelaFindCalculation, GivesTheLastAsReadLogDoes) {
  for (const HostFormat& host : HostFormats())
    for (const Encoding& encoding : Encodings()) {
      const LogFolder folder;
      const std::wstring path =
          folder.Write(L"a", encoding.encode(LogOfCalculations(host, {L"A", L"B", L"B\u00fcro"})));
      const auto found = FindCalculation({path}, {});
      ASSERT_TRUE(found) << host.name << ", " << encoding.name;
      EXPECT_EQ(FoundTexts(found), Calculation(L"B\u00fcro")) << host.name << ", " << encoding.name;
      EXPECT_EQ(found->calculations, 3u);
      EXPECT_FALSE(found->wasSkipped);
      EXPECT_FALSE(found->isFollowed);
      const std::vector<ReadMessage> all = Read({path});
      ASSERT_GE(all.size(), found->messages.size());
      for (std::size_t i = 1; i <= found->messages.size(); ++i) {
        const auto& message = found->messages[found->messages.size() - i];
        const ReadMessage& read = all[all.size() - i];
        ASSERT_EQ(message.text, read.text);
        ASSERT_EQ(message.line, read.line) << host.name << ", " << encoding.name;
        ASSERT_EQ(message.time ? ToText(*message.time) : "", read.time);
      }
    }
}

TEST(QelaFindCalculation, GivesTheLastThatBeganByTheTime) {
  const LogFolder folder;
  const std::wstring path = folder.Write(L"a", ToUtf8(LogOfCalculations(HostFormats()[9], {L"A", L"B", L"C"})));
  const auto at = [&](const char* text) { return FindCalculation({path}, {ParseLogTime(text), {}}); };
  EXPECT_FALSE(at("2025-11-21 02:44:00.999"));
  EXPECT_EQ(FoundTexts(at("2025-11-21 02:44:01"))[1], L"Calculating current locations...");
  EXPECT_EQ(FoundTexts(at("2025-11-21 02:44:01"))[8], L"IsCurrentLocation checking location A");
  EXPECT_EQ(FoundTexts(at("2025-11-21 02:44:02.5"))[8], L"IsCurrentLocation checking location B");
  EXPECT_TRUE(at("2025-11-21 02:44:02.5")->isFollowed);
  EXPECT_EQ(FoundTexts(at("2026-01-01 00:00"))[8], L"IsCurrentLocation checking location C");
}

TEST(QelaFindCalculation, SaysSoWhenTheLogTellsNoTime) {
  const LogFolder folder;
  const std::wstring path = folder.Write(L"a", ToUtf8(LogOfCalculations(HostFormats()[1], {L"A"})));
  EXPECT_THAT(FailureOf([&] { FindCalculation({path}, {ParseLogTime("2026-01-01 00:00"), {}}); }),
              HasSubstr("tell no time"));
}

TEST(QelaFindCalculation, GivesTheLastInWhichTheLocationWasDecided) {
  const std::vector<std::wstring> names = {
      L"B\u00fcro \"S\u00fcd\" C:\\new/x", L"B", L"B\u00fcro", L"\u65e5", L"B 2", L"None"};
  for (const HostFormat& host : HostFormats()) {
    const LogFolder folder;
    const std::wstring path = folder.Write(L"a", ToUtf8(LogOfCalculations(host, names)));
    for (const std::wstring& name : names) {
      const auto found = FindCalculation({path}, {{}, name});
      // Whose line breaks are real cannot be followed by their names' quotes.
      EXPECT_EQ(FoundTexts(found).size() > 8 ? FoundTexts(found)[8] : L"",
                L"IsCurrentLocation checking location " + name)
          << host.name;
      EXPECT_EQ(found && found->isFollowed, name != L"None");
      EXPECT_FALSE(found && found->wasSkipped);
    }
    EXPECT_FALSE(FindCalculation({path}, {{}, L"Nowhere"})) << host.name;
  }
}

TEST(QelaFindCalculation, PassesOverTheLastWhenItBreaksOff) {
  const LogFolder folder;
  const std::string log = ToUtf8(LogOfCalculations(HostFormats().front(), {L"A", L"B"}));
  const std::string decision = "returning matched criterias 0 for location B";
  const auto upTo = [&](const std::string& end) {
    return FindCalculation({folder.Write(L"a", log.substr(0, log.rfind(end) + end.size()))}, {});
  };
  EXPECT_FALSE(upTo(decision + "...")->wasSkipped);
  EXPECT_EQ(FoundTexts(upTo(decision + "..."))[8], L"IsCurrentLocation checking location B");
  for (const char* end : {"returning matched criterias 0 for location B..", "IsCurrentLocation checking location B",
                          "Adapters List :", "Calculating current locations..."}) {
    const auto found = upTo(end);
    ASSERT_TRUE(found) << end;
    EXPECT_TRUE(found->wasSkipped) << end;
    EXPECT_EQ(FoundTexts(found)[8], L"IsCurrentLocation checking location A") << end;
    EXPECT_TRUE(found->isFollowed);
  }
  const auto found = FindCalculation({folder.Write(L"b", log.substr(0, log.find("CheckZelt")))}, {});
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->wasSkipped) << "there is no other";
}

TEST(QelaFindCalculation, PassesOverOneThatBreaksOffInTheMiddle) {
  const LogFolder folder;
  const std::string whole = ToUtf8(LogOfCalculations(HostFormats().front(), {L"A"}));
  const std::string cut = whole.substr(0, whole.find("CheckZelt"));
  const auto at = ParseLogTime("2026-01-01 00:00");
  EXPECT_TRUE(FindCalculation({folder.Write(L"a", whole + cut)}, {at, {}})->wasSkipped);
  EXPECT_FALSE(FindCalculation({folder.Write(L"b", whole + cut + "\n" + whole)}, {at, {}})->wasSkipped);

  std::string log = ToUtf8(LogOfCalculations(HostFormats().front(), {L"A", L"B", L"C"}));
  const std::size_t decision = log.find("IsCurrentLocation returning matched criterias 0 for location B");
  log.erase(decision, log.find('\n', decision) - decision);
  const auto found = FindCalculation({folder.Write(L"c", log)}, {ParseLogTime("2025-11-21 02:44:02.5+01:00"), {}});
  EXPECT_EQ(FoundTexts(found)[8], L"IsCurrentLocation checking location A");
  EXPECT_TRUE(found->wasSkipped);
}

TEST(QelaFindCalculation, FollowsACalculationIntoTheNextFile) {
  const LogFolder folder;
  const std::string log = ToUtf8(LogOfCalculations(HostFormats().front(), {L"A", L"B"}));
  const std::size_t middle = log.find('\n', log.rfind("CheckZelt")) + 1;
  const auto found =
      FindCalculation({folder.Write(L"a", log.substr(0, middle)), folder.Write(L"b", log.substr(middle))}, {{}, L"B"});
  EXPECT_EQ(FoundTexts(found), Calculation(L"B"));
  EXPECT_EQ(found->messages.front().file, 0u);
  EXPECT_EQ(found->messages.back().file, 1u);
  EXPECT_EQ(found->messages.back().line, 2u);
}

TEST(QelaFindCalculation, CutsACalculationThatIsTooLarge) {
  const LogFolder folder;
  const std::string line = "IsCurrentLocation checking location " + std::string(1 << 20, 'x') + "\n";
  std::string log = "Calculating current locations...\n";
  for (int i = 0; i < 70; ++i) log += line;
  log += "Calculating current locations...\nIsCurrentLocation checking location A\n";
  const auto found = FindCalculation({folder.Write(L"a", log)}, {});
  ASSERT_TRUE(found);
  EXPECT_EQ(found->calculations, 2u);
  log.erase(log.rfind("Calculating"));
  const auto cut = FindCalculation({folder.Write(L"a", log)}, {});
  ASSERT_TRUE(cut);
  EXPECT_GT(cut->messages.size(), 60u);
  EXPECT_LT(cut->messages.size(), 67u);
}

TEST(QelaFindCalculation, DoesNotTakeAnotherMessageForABeginning) {
  const LogFolder folder;
  const std::wstring name = L"Calculating current locations...";
  const auto found =
      FindCalculation({folder.Write(L"a", ToUtf8(LogOfCalculations(HostFormats().front(), {name})))}, {});
  EXPECT_EQ(found->calculations, 1u);
  EXPECT_EQ(FoundTexts(found), Calculation(name));
}

// One look at each line, not at each of the texts in it.
TEST(QelaFindCalculation, IsQuickWhereALineHoldsWhatIsLookedForAgainAndAgain) {
  const LogFolder folder;
  const auto line = [](const std::string& beginning, const std::string& text) {
    std::string bytes = beginning;
    while (bytes.size() < (4 << 20) - 200) bytes += text;
    return bytes + "\n";
  };
  const std::string whole = ToUtf8(LogOfCalculations(HostFormats().front(), {L"A"}));
  const std::string decision = "IsCurrentLocation returning matched criterias 0 for location A.. ";
  const std::wstring path =
      folder.Write(L"a", whole + line("IsCurrentLocation checking location ", "Calculating current locations...") +
                             line("", decision));
  EXPECT_EQ(FindCalculation({path}, {{}, L"A"})->calculations, 1u);
  EXPECT_FALSE(FindCalculation({path}, {{}, L"A.."}));
}

// ---- Searches

TEST(QelaLogScan, CountsAndFindsAsOneLetterAfterTheOther) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 9000, '\0');
    for (char& letter : text) letter = "\r\nab"[random() % 4];
    std::size_t lines = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
      lines += text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n')) ? 1U : 0U;
    ASSERT_EQ(LogScan::CountLineEnds(text), lines);
    const std::size_t from = text.empty() ? 0 : random() % text.size();
    ASSERT_EQ(LogScan::FindLineEnd(text, from), std::min(text.find_first_of("\r\n", from), text.size()));
    for (const char* what : {"ab", "abba\nb", "abbabaabbabaabbaba"}) {
      ASSERT_EQ(LogScan::Find(text, what, from), text.find(what, from));
      ASSERT_EQ(LogScan::FindLast(text, what), text.rfind(what));
    }
  }
}

}  // namespace
