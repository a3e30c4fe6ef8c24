#include "Tools/qela/JunitFile.h"

#include <windows.h>
#include <gmock/gmock.h>
// After windows.h, which it needs.
#include <xmllite.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ScriptedWindows/UniqueName.h"
#include "Tests/Unit/QelaMachines.h"
#include "Tools/qela/FileBytes.h"
#include "Tools/qela/Text.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A file that ends with its test.
class TemporaryFile {
 public:
  TemporaryFile() : m_path(std::filesystem::temp_directory_path() / (L"qela-" + UniqueName())) {}
  ~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  std::wstring Path() const { return m_path.wstring(); }
  std::string Content() const { return ReadFileBytes(Path()); }

 private:
  std::filesystem::path m_path;
};

// The system's own reader decides what is XML. An entry a node: "<name a=b>", "text", "</>".
std::vector<std::wstring> ReadXml(const std::string& xml) {
  const auto create = reinterpret_cast<decltype(&::CreateXmlReader)>(
      reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryW(L"xmllite.dll"), "CreateXmlReader")));
  IXmlReader* reader = nullptr;
  EXPECT_EQ(create(__uuidof(IXmlReader), reinterpret_cast<void**>(&reader), nullptr), S_OK);
  IStream* stream = nullptr;
  EXPECT_EQ(::CreateStreamOnHGlobal(nullptr, TRUE, &stream), S_OK);
  EXPECT_EQ(stream->Write(xml.data(), static_cast<ULONG>(xml.size()), nullptr), S_OK);
  EXPECT_EQ(stream->Seek({}, STREAM_SEEK_SET, nullptr), S_OK);
  EXPECT_EQ(reader->SetInput(stream), S_OK);
  std::vector<std::wstring> nodes;
  XmlNodeType type{};
  HRESULT result = S_OK;
  const auto value = [&] {
    const wchar_t* text = nullptr;
    EXPECT_EQ(reader->GetValue(&text, nullptr), S_OK);
    return std::wstring(text);
  };
  const auto name = [&] {
    const wchar_t* text = nullptr;
    EXPECT_EQ(reader->GetLocalName(&text, nullptr), S_OK);
    return std::wstring(text);
  };
  while ((result = reader->Read(&type)) == S_OK) {
    if (type == XmlNodeType_Element) {
      std::wstring node = L"<" + name();
      for (HRESULT more = reader->MoveToFirstAttribute(); more == S_OK; more = reader->MoveToNextAttribute())
        if (name() != L"time") node += L" " + name() + L"=" + value();
      nodes.push_back(node + L">");
    } else if (type == XmlNodeType_Text) {
      nodes.push_back(value());
    } else if (type == XmlNodeType_EndElement) {
      nodes.emplace_back(L"</>");
    }
  }
  EXPECT_EQ(result, S_FALSE) << "not well-formed: " << xml;
  reader->Release();
  stream->Release();
  return nodes;
}

TEST(QelaJunitFile, CasesOfEachOutcomeAreWrittenAndCounted) {
  const TemporaryFile file;
  {
    JunitFile junit(file.Path(), "new set");
    junit.Add("good", JunitFile::Outcome::kPassed, {}, {});
    junit.Add("bad", JunitFile::Outcome::kFailure, "Office is not current", "  one\n  two\n");
    junit.Add("worse", JunitFile::Outcome::kFailure, "x", "y");
    junit.Add("broken", JunitFile::Outcome::kError, "no file", "it");
    junit.Add("other", JunitFile::Outcome::kSkipped, "not asked", "for");
    junit.End();
  }
  EXPECT_THAT(ReadXml(file.Content()),
              ElementsAre(L"<testsuites>", L"<testsuite name=new set tests=5 failures=2 errors=1 skipped=1>",
                          L"<testcase classname=new set name=good>", L"<testcase classname=new set name=bad>",
                          L"<failure message=Office is not current>", L"  one\n  two\n", L"</>", L"</>",
                          L"<testcase classname=new set name=worse>", L"<failure message=x>", L"y", L"</>", L"</>",
                          L"<testcase classname=new set name=broken>", L"<error message=no file>", L"it", L"</>",
                          L"</>", L"<testcase classname=new set name=other>", L"<skipped message=not asked>", L"for",
                          L"</>", L"</>", L"</>", L"</>"));
}

TEST(QelaJunitFile, TextsMayHoldAnything) {
  std::wstring hostile = L"<a href='x'>&amp;]]>\"\u00fc\u65e5 ";
  for (wchar_t unit = 1; unit < 0x20; ++unit)
    if (unit != L'\n') hostile += unit;
  hostile += L"\x7f\xfffe\xffff\xd83d";
  const std::wstring shown =
      L"<a href='x'>&amp;]]>\"\u00fc\u65e5 "
      L"\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\u0008\\u0009\\u000B\\u000C"
      L"\\u000D\\u000E\\u000F\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001A\\u001B\\u001"
      L"C"
      L"\\u001D\\u001E\\u001F\x7f\\uFFFE\\uFFFF\ufffd";
  const TemporaryFile file;
  {
    JunitFile junit(file.Path(), ToUtf8(hostile));
    junit.Add(ToUtf8(hostile), JunitFile::Outcome::kFailure, ToUtf8(hostile), ToUtf8(hostile));
    junit.End();
  }
  const std::vector<std::wstring> nodes = ReadXml(file.Content());
  ASSERT_EQ(nodes.size(), 9u);
  EXPECT_EQ(nodes[1], L"<testsuite name=" + shown + L" tests=1 failures=1 errors=0 skipped=0>");
  EXPECT_EQ(nodes[2], L"<testcase classname=" + shown + L" name=" + shown + L">");
  EXPECT_EQ(nodes[3], L"<failure message=" + shown + L">");
  EXPECT_EQ(nodes[4], shown);
}

TEST(QelaOutputFile, AFileThatCannotBeMadeIsTold) {
  EXPECT_THAT(FailureOf([] { OutputFile(L"C:\\no folder\\x.xml"); }),
              HasSubstr("C:\\no folder\\x.xml: it cannot be written: there is no such file or folder"));
}

TEST(QelaOutputFile, PiecesAreWrittenInOrderHoweverLarge) {
  const TemporaryFile file;
  std::string expected = "HEAD";
  {
    OutputFile output(file.Path());
    output.Write("head");
    for (char letter = 'a'; letter <= 'z'; ++letter) {
      output.Write(std::string(9999, letter));
      expected += std::string(9999, letter);
    }
    output.WriteAtStart("HEAD");
    output.Flush();
  }
  EXPECT_EQ(file.Content(), expected);
}

}  // namespace
