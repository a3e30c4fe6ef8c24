// UTF-16 to UTF-8 and back, strict and lenient, against conversions by the book.
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "FwClient/Common/Utilities/LenientUtf.h"
#include "FwClient/Common/Utilities/StlStringUtfConv.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

bool IsSurrogate(wchar_t unit, wchar_t first) { return (unit & 0xFC00) == first; }

// Nothing for a surrogate without its other half.
std::optional<std::string> Encoded(const std::wstring& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t character = text[i];
    if (IsSurrogate(text[i], 0xDC00)) return std::nullopt;
    if (IsSurrogate(text[i], 0xD800)) {
      if (i + 1 == text.size() || !IsSurrogate(text[i + 1], 0xDC00)) return std::nullopt;
      character = 0x10000 + ((character & 0x3FFu) << 10 | (text[++i] & 0x3FFu));
    }
    int more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    bytes += static_cast<char>(kLead[more] | character >> (6 * more));
    while (more-- > 0) bytes += static_cast<char>(0x80u | ((character >> (6 * more)) & 0x3F));
  }
  return bytes;
}

FuzzInput BytesOf(const std::string& text) { return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; }

// Nothing where the conversion is refused, as it should be: for the text's fault.
template <typename Convert>
auto Strict(Convert convert) -> std::optional<decltype(convert())> {
  try {
    return convert();
  } catch (const StlStringUtfConv::Exception& failure) {
    if (failure.WhoseFault() != StlStringUtfConv::Exception::Cause::kText ||
        failure.Error() != ERROR_NO_UNICODE_TRANSLATION)
      FuzzFail("a text is refused for another reason than the text");
    return std::nullopt;
  }
}

void Run(FuzzInput input) {
  // As UTF-8.
  const std::string utf8(input.begin(), input.end());
  const std::string upToNul = utf8.substr(0, utf8.find('\0'));
  const std::optional<std::wstring> expected = FuzzDecodeUtf8(BytesOf(upToNul));
  const std::optional<std::wstring> wide = Strict([&] { return StlStringUtfConv::ToWide(utf8); });
  if (wide != expected) FuzzFail("UTF-8 is read as something else");
  if (wide && StlStringUtfConv::ToUtf8(*wide) != upToNul) FuzzFail("what was read is written as other UTF-8");
  const std::wstring lenient = LenientUtf::ToWide(utf8);
  if (const std::optional<std::wstring> whole = FuzzDecodeUtf8(input);
      whole ? lenient != *whole : lenient.find(L'\uFFFD') == std::wstring::npos)
    FuzzFail(whole ? "good UTF-8 is read leniently as something else" : "bad UTF-8 leaves no trace");
  if (!Encoded(lenient)) FuzzFail("leniently, UTF-8 becomes what is no text");

  // As UTF-16.
  const std::wstring text = FuzzText(input);
  const std::wstring textUpToNul = text.substr(0, text.find(L'\0'));
  const std::optional<std::string> bytes = Strict([&] { return StlStringUtfConv::ToUtf8(text); });
  if (bytes != Encoded(textUpToNul)) FuzzFail("UTF-16 is written as something else");
  if (bytes && StlStringUtfConv::ToWide(*bytes) != textUpToNul) FuzzFail("what was written is read as other UTF-16");
  const std::string lenientBytes = LenientUtf::ToUtf8(text);
  if (const std::optional<std::string> whole = Encoded(text); whole && lenientBytes != *whole)
    FuzzFail("good UTF-16 is written leniently as something else");
  if (!FuzzDecodeUtf8(BytesOf(lenientBytes))) FuzzFail("leniently, UTF-16 becomes what is no UTF-8");
  FuzzKind((wide ? 1u : 0u) + (bytes ? 2u : 0u) +
           4u * static_cast<std::uint32_t>(std::min<std::size_t>(lenient.size(), 1200) / 100));
}

const FuzzTarget g_target("utf", Run,
                          {"\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xef\xbf\xbf", "\xf0\x90\x80\x80",
                           "\xf4\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xc0\x80", "\xe0\x80\x80", "\xf0\x80\x80\x80",
                           "\xed\xa0\x80", "\xed\xb0\x80", "\xf8", "\xff", "\xc0\xd8\x3d\xc0\xde\x00", "\xc0\xd8\x00",
                           "\xc0\xdc\x00", "\xc0\x00\x00", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"});

}  // namespace
