#include "FwClient/Common/Utilities/StlStringUtfConv.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"

namespace {

using StlStringUtfConv::ToUtf8;
using StlStringUtfConv::ToWide;
using namespace std::string_view_literals;

// The error of the exception, or 0 when the text was converted.
unsigned long ErrorOf(const std::function<void()>& convert) {
  try {
    convert();
  } catch (const StlStringUtfConv::Exception& exception) {
    return exception.Error();
  }
  return 0;
}

using Cause = StlStringUtfConv::Exception::Cause;

// Whose fault it was that the text could not be converted; nothing when it was.
std::optional<Cause> CauseOf(const std::function<void()>& convert) {
  try {
    convert();
  } catch (const StlStringUtfConv::Exception& exception) {
    return exception.WhoseFault();
  }
  return std::nullopt;
}

// Every character but NUL, once, in both forms.
void AppendCharacter(std::uint32_t character, std::wstring& wide, std::string& utf8) {
  const auto byte = [&](std::uint32_t value) { utf8 += static_cast<char>(value); };
  const auto unit = [&](std::uint32_t value) { wide += static_cast<wchar_t>(value); };
  if (character < 0x10000) {
    unit(character);
  } else {
    unit(0xd800 + ((character - 0x10000) >> 10));
    unit(0xdc00 + ((character - 0x10000) & 0x3ff));
  }
  if (character < 0x80) {
    byte(character);
  } else if (character < 0x800) {
    byte(0xc0 | (character >> 6));
    byte(0x80 | (character & 0x3f));
  } else {
    if (character < 0x10000) {
      byte(0xe0 | (character >> 12));
    } else {
      byte(0xf0 | (character >> 18));
      byte(0x80 | ((character >> 12) & 0x3f));
    }
    byte(0x80 | ((character >> 6) & 0x3f));
    byte(0x80 | (character & 0x3f));
  }
}

TEST(StlStringUtfConv, ConvertsEveryCharacterOfEveryPlane) {
  for (std::uint32_t plane = 0; plane <= 0x10; ++plane) {
    std::wstring wide;
    std::string utf8;
    for (std::uint32_t low = 0; low <= 0xffff; ++low) {
      const std::uint32_t character = plane * 0x10000 + low;
      const bool surrogate = character >= 0xd800 && character <= 0xdfff;
      if (character != 0 && !surrogate) AppendCharacter(character, wide, utf8);
    }
    EXPECT_TRUE(ToUtf8(wide) == utf8) << "plane " << plane;
    EXPECT_TRUE(ToWide(utf8) == wide) << "plane " << plane;
  }
}

TEST(StlStringUtfConv, EmptyTextNeedsNoConversion) {
  static int calls;
  calls = 0;
  const HMODULE program = ThisProgram();
  const ImportPatch narrow(
      program, "WideCharToMultiByte",
      +[](UINT, DWORD, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL) { return ++calls, 0; });
  const ImportPatch wide(
      program, "MultiByteToWideChar", +[](UINT, DWORD, LPCSTR, int, LPWSTR, int) { return ++calls, 0; });
  EXPECT_EQ(ToUtf8(L""), "");
  EXPECT_EQ(ToWide(""), L"");
  EXPECT_EQ(ToUtf8(L"\0abc"sv), "");
  EXPECT_EQ(ToWide("\0abc"sv), L"");
  EXPECT_EQ(calls, 0);
}

TEST(StlStringUtfConv, CutsAtTheFirstNulAndLooksAtNothingBehindIt) {
  EXPECT_EQ(ToUtf8(L"ab\0\xd800z"sv), "ab");
  EXPECT_EQ(ToWide("ab\0\xff\xfe"sv), L"ab");
  EXPECT_EQ(ToUtf8(L"\xe4\0\xd800z"sv), "\xc3\xa4");
  EXPECT_EQ(ToWide("\xc3\xa4\0\xff\xfe"sv), L"\xe4");
}

TEST(StlStringUtfConv, TakesTheFirstCharacterBehindAsciiForNone) {
  EXPECT_EQ(ToUtf8(L"\x80"), "\xc2\x80");
  EXPECT_EQ(ToUtf8(L"\x7f"), "\x7f");
}

TEST(StlStringUtfConv, RefusesLoneSurrogates) {
  for (const std::wstring_view text : {L"\xd800"sv, L"\xdbff"sv, L"\xdc00"sv, L"\xdfff"sv,  //
                                       L"name \xd83d"sv, L"\xd83d name"sv, L"\xde00 name"sv,
                                       L"\xde00\xd83d"sv,           // a pair the wrong way round
                                       L"\xd83d\xd83d\xde00"sv,     // one too many before a pair
                                       L"\xd83d\xde00\xde00"sv}) {  // and behind it
    EXPECT_EQ(ErrorOf([&] { ToUtf8(text); }), ERROR_NO_UNICODE_TRANSLATION) << testing::PrintToString(text);
  }
}

TEST(StlStringUtfConv, RefusesWhatIsNoUtf8) {
  for (const std::string_view text : {"\x80"sv,
                                      "\xbf"sv,
                                      "a\x80"sv,  // continuation without a start
                                      "\xc3"sv,
                                      "\xe2\x82"sv,
                                      "\xf0\x9f\x98"sv,  // cut at the end
                                      "\xc3z"sv,
                                      "\xe2\x82z"sv,
                                      "\xf0\x9f\x98z"sv,  // cut in the middle
                                      "\xc0\x80"sv,
                                      "\xc1\xbf"sv,
                                      "\xe0\x9f\xbf"sv,
                                      "\xf0\x8f\xbf\xbf"sv,  // overlong
                                      "\xed\xa0\x80"sv,
                                      "\xed\xbf\xbf"sv,              // surrogates
                                      "\xed\xa0\xbd\xed\xb8\x80"sv,  // a pair of them
                                      "\xf4\x90\x80\x80"sv,
                                      "\xf5\x80\x80\x80"sv,  // beyond the last plane
                                      "\xf8\x88\x80\x80\x80"sv,
                                      "\xfe"sv,
                                      "\xff"sv,
                                      "M\xfcnchen"sv}) {  // an 8-bit code page
    EXPECT_EQ(ErrorOf([&] { ToWide(text); }), ERROR_NO_UNICODE_TRANSLATION) << testing::PrintToString(text);
  }
}

// U+00E4 has two bytes, so that the system is needed.
constexpr wchar_t kWideUmlaut = 0xe4;
constexpr char kUmlaut[] = "\xc3\xa4";

TEST(StlStringUtfConv, ConvertsTextsOfEveryLengthAroundTheStackBuffer) {
  for (const std::size_t length : {1u, 511u, 512u, 513u, 1023u, 1024u, 1025u, 100'000u}) {
    EXPECT_EQ(ToUtf8(std::wstring(length, L'x')), std::string(length, 'x'));
    EXPECT_EQ(ToWide(std::string(length, 'x')), std::wstring(length, L'x'));
    EXPECT_EQ(ToUtf8(std::wstring(length, L'x') + kWideUmlaut), std::string(length, 'x') + kUmlaut);
    EXPECT_EQ(ToWide(std::string(length, 'x') + kUmlaut), std::wstring(length, L'x') + kWideUmlaut);
  }
}

// A text of so many of one byte, the same pages again and again. Empty where there is no room for it.
class LongText {
 public:
  LongText(char byte, std::size_t bytes)
      : m_section(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kViewBytes, nullptr)) {
    const std::size_t views = (bytes + kViewBytes - 1) / kViewBytes;
    void* const room = ::VirtualAlloc(nullptr, views * kViewBytes, MEM_RESERVE, PAGE_NOACCESS);
    ::VirtualFree(room, 0, MEM_RELEASE);
    for (std::size_t i = 0; i < views; ++i) {
      void* const view =
          ::MapViewOfFileEx(m_section.get(), FILE_MAP_WRITE, 0, 0, 0, static_cast<char*>(room) + i * kViewBytes);
      if (view == nullptr) return;
      m_views.push_back(static_cast<char*>(view));
    }
    std::fill_n(m_views[0], kViewBytes, byte);
    m_text = {m_views[0], bytes};
  }
  ~LongText() {
    for (char* const view : m_views) ::UnmapViewOfFile(view);
  }
  LongText(const LongText&) = delete;
  LongText& operator=(const LongText&) = delete;

  std::string_view Text() const { return m_text; }

 private:
  static constexpr DWORD kViewBytes = 16 << 20;
  UniqueKernelHandle m_section;
  std::vector<char*> m_views;
  std::string_view m_text;
};

// Lengths are ints to the system.
TEST(StlStringUtfConv, TextsOfTwoGigabytesAreRefusedAndOneByteLessIsNot) {
  static int length;
  const ImportPatch convert(
      ThisProgram(), "MultiByteToWideChar", +[](UINT, DWORD, const char*, int bytes, wchar_t*, int) -> int {
        length = bytes;
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
      });
  const LongText text('\xe4', std::size_t{INT_MAX} + 1);
  ASSERT_FALSE(text.Text().empty());
  length = 0;
  EXPECT_EQ(ErrorOf([&] { ToWide(text.Text().substr(1)); }), ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(length, INT_MAX);
  length = 0;
  EXPECT_EQ(ErrorOf([&] { ToWide(text.Text()); }), ERROR_BUFFER_OVERFLOW);
  EXPECT_EQ(length, 0);
}

TEST(StlStringUtfConv, TextsOf1024BytesNeedNoAllocationButTheResults) {
  const auto wide = [](std::size_t bytes) { return std::wstring(bytes - 2, L'x') + kWideUmlaut; };
  const auto narrow = [](std::size_t units) { return std::string(units - 1, 'x') + kUmlaut; };
  const std::wstring wideFits = wide(1024), wideBeyond = wide(1025);
  const std::string fits = narrow(512), beyond = narrow(513);
  const auto allocations = [](auto convert) {
    const HeapWatch heap(ThisProgram());
    convert();
    return heap.Allocations();
  };
  EXPECT_EQ(allocations([&] { ToUtf8(wideFits); }), 1u);
  EXPECT_EQ(allocations([&] { ToUtf8(wideBeyond); }), 2u);
  EXPECT_EQ(allocations([&] { ToWide(fits); }), 1u);
  EXPECT_EQ(allocations([&] { ToWide(beyond); }), 2u);
}

// ASCII, up to the first NUL: it is the same in both forms, and the most frequent text by far.
TEST(StlStringUtfConv, AsciiNeedsNeitherTheSystemNorMemoryButTheResults) {
  static int calls;
  calls = 0;
  const HMODULE program = ThisProgram();
  const ImportPatch toNarrow(
      program, "WideCharToMultiByte",
      +[](UINT, DWORD, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL) { return ++calls, 0; });
  const ImportPatch toWide(
      program, "MultiByteToWideChar", +[](UINT, DWORD, LPCSTR, int, LPWSTR, int) { return ++calls, 0; });
  std::string narrow;
  std::wstring wide;
  for (char unit = 1; unit > 0; ++unit) {
    narrow += unit;
    wide += static_cast<wchar_t>(unit);
    if (unit == 0x7f) break;
  }
  EXPECT_EQ(ToUtf8(wide), narrow);
  EXPECT_EQ(ToWide(narrow), wide);
  EXPECT_EQ(ToUtf8(wide + L'\0' + kWideUmlaut), narrow);
  EXPECT_EQ(ToWide(narrow + '\0' + kUmlaut), wide);
  const HeapWatch heap(ThisProgram());
  EXPECT_EQ(ToUtf8(wide).size(), 127u);
  EXPECT_EQ(heap.Allocations(), 1u);
  EXPECT_EQ(calls, 0);
}

// ---- failing system calls ----

DWORD g_error;
int g_goodCalls;

// Fails with g_error once g_goodCalls calls have told that 3 units are needed or written.
int Answer() {
  if (g_goodCalls-- > 0) return 3;
  ::SetLastError(g_error);
  return 0;
}

class StlStringUtfConvFailure : public testing::TestWithParam<int> {
 protected:
  StlStringUtfConvFailure()
      : m_narrow(
            ThisProgram(), "WideCharToMultiByte",
            +[](UINT, DWORD, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL) { return Answer(); }),
        m_wide(ThisProgram(), "MultiByteToWideChar", +[](UINT, DWORD, LPCSTR, int, LPWSTR, int) { return Answer(); }) {}

  // The conversion's error when its system call number GetParam() fails with `error`.
  unsigned long Fail(DWORD error, const std::function<void()>& convert) {
    g_error = error;
    g_goodCalls = GetParam();
    return ErrorOf(convert);
  }

 private:
  ImportPatch m_narrow;
  ImportPatch m_wide;
};

TEST_P(StlStringUtfConvFailure, CarriesTheSystemsError) {
  EXPECT_EQ(Fail(ERROR_NO_UNICODE_TRANSLATION, [] { ToUtf8(L"\xe4"); }), 1113u);
  EXPECT_EQ(Fail(ERROR_INVALID_FLAGS, [] { ToWide("\xc3\xa4"); }), 1004u);
}

TEST_P(StlStringUtfConvFailure, CarriesError1WhenTheSystemNamesNone) {
  EXPECT_EQ(Fail(0, [] { ToUtf8(L"\xe4"); }), 1u);
  EXPECT_EQ(Fail(0, [] { ToWide("\xc3\xa4"); }), 1u);
}

TEST_P(StlStringUtfConvFailure, IsTheTextsFaultWithOneErrorOnly) {
  const auto causes = [&](DWORD error) {
    std::vector<std::optional<Cause>> found;
    for (const std::function<void()>& convert :
         {std::function<void()>([] { ToUtf8(L"\xe4"); }), std::function<void()>([] { ToWide("\xc3\xa4"); })}) {
      g_error = error;
      g_goodCalls = GetParam();
      found.push_back(CauseOf(convert));
    }
    return found;
  };
  using Causes = std::vector<std::optional<Cause>>;
  EXPECT_EQ(causes(ERROR_NO_UNICODE_TRANSLATION), (Causes{Cause::kText, Cause::kText}));
  for (const DWORD error : {0u, 1u, 8u, 14u, 87u, 111u, 122u, 1004u, 1112u, 1114u})
    EXPECT_EQ(causes(error), (Causes{Cause::kSystem, Cause::kSystem})) << error;
}

// The thread's last error is still that of another text.
TEST(StlStringUtfConv, AFailureWithoutAnErrorIsNotTakenForTheLastOne) {
  const ImportPatch wide(
      ThisProgram(), "MultiByteToWideChar", +[](UINT, DWORD, LPCSTR, int, LPWSTR, int) { return 0; });
  ::SetLastError(ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_EQ(CauseOf([] { ToWide("\xc3\xa4"); }), Cause::kSystem);
}

INSTANTIATE_TEST_SUITE_P(WhenMeasuringOrWhenConverting, StlStringUtfConvFailure, testing::Values(0, 1));

TEST(StlStringUtfConv, AsksForStrictConversion) {
  static DWORD flags[2];
  static UINT pages[2];
  const HMODULE program = ThisProgram();
  const ImportPatch narrow(
      program, "WideCharToMultiByte", +[](UINT page, DWORD flag, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL) {
        pages[0] = page;
        flags[0] = flag;
        return 0;
      });
  const ImportPatch wide(
      program, "MultiByteToWideChar", +[](UINT page, DWORD flag, LPCSTR, int, LPWSTR, int) {
        pages[1] = page;
        flags[1] = flag;
        return 0;
      });
  ErrorOf([] { ToUtf8(L"\xe4"); });
  ErrorOf([] { ToWide("\xc3\xa4"); });
  EXPECT_EQ(pages[0], UINT{CP_UTF8});
  EXPECT_EQ(pages[1], UINT{CP_UTF8});
  EXPECT_EQ(flags[0], DWORD{WC_ERR_INVALID_CHARS});
  EXPECT_EQ(flags[1], DWORD{MB_ERR_INVALID_CHARS});
}

TEST(StlStringUtfConv, ExceptionIsAStandardOne) {
  const StlStringUtfConv::Exception exception(87);
  EXPECT_EQ(exception.Error(), 87u);
  EXPECT_STRNE(static_cast<const std::exception&>(exception).what(), "");
}

// ---- a text of 2^31 units ----

// One block of memory, filled with 'x', seen again and again at consecutive addresses: a long text for little memory.
class RepeatedText {
 public:
  explicit RepeatedText(std::size_t bytes) {
    m_section = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kBlockBytes, nullptr);
    m_begin = static_cast<char*>(::VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS));
    if (m_section == nullptr || m_begin == nullptr) return;
    ::VirtualFree(m_begin, 0, MEM_RELEASE);  // another thread could take the addresses; there is none
    for (; m_blocks < bytes / kBlockBytes; ++m_blocks)
      if (::MapViewOfFileEx(m_section, FILE_MAP_WRITE, 0, 0, 0, m_begin + m_blocks * kBlockBytes) == nullptr) return;
    for (std::size_t i = 0; i < kBlockBytes; ++i) m_begin[i] = 'x';
    m_size = bytes;
  }
  ~RepeatedText() {
    while (m_blocks > 0) ::UnmapViewOfFile(m_begin + --m_blocks * kBlockBytes);
    if (m_section != nullptr) ::CloseHandle(m_section);
  }
  RepeatedText(const RepeatedText&) = delete;
  RepeatedText& operator=(const RepeatedText&) = delete;

  // Empty when the memory could not be had.
  std::string_view Text() const { return {m_begin, m_size}; }

 private:
  static constexpr DWORD kBlockBytes = 64 * 1024 * 1024;

  HANDLE m_section = nullptr;
  char* m_begin = nullptr;
  std::size_t m_blocks = 0;
  std::size_t m_size = 0;
};

TEST(StlStringUtfConv, TellsTheBadTextFromTheSystemThatCannotConvert) {
  using StlStringUtfConv::Exception;
  EXPECT_STREQ(Exception(1113).what(), "text is not valid UTF-16 or UTF-8");
  EXPECT_STREQ(Exception(8, Cause::kSystem).what(), "text could not be converted");
}

TEST(StlStringUtfConv, RefusesTextsOf2To31Units) {
  const RepeatedText text(std::size_t{1} << 31);
  ASSERT_EQ(text.Text().size(), std::size_t{1} << 31);
  EXPECT_EQ(ErrorOf([&] { ToWide(text.Text()); }), 111u);
  EXPECT_EQ(CauseOf([&] { ToWide(text.Text()); }), Cause::kText);
}

TEST(StlStringUtfConv, RefusesWideTextsOf2To31Units) {
  const RepeatedText text(std::size_t{1} << 32);
  ASSERT_EQ(text.Text().size(), std::size_t{1} << 32);
  const std::wstring_view wide(reinterpret_cast<const wchar_t*>(text.Text().data()), std::size_t{1} << 31);
  EXPECT_EQ(ErrorOf([&] { ToUtf8(wide); }), 111u);
}

}  // namespace
