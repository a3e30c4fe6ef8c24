#include "EventLine.h"

#include <windows.h>

#include <cstring>
#include <string_view>

namespace {

// The C0 and C1 controls, DEL, and Unicode's line and paragraph separators.
bool IsControl(wchar_t unit) {
  return unit < 0x20 || (unit >= 0x7f && unit <= 0x9f) || unit == 0x2028 || unit == 0x2029;
}

std::wstring Escape(std::wstring_view text) {
  std::wstring escaped;
  escaped.reserve(text.size());
  for (const wchar_t unit : text) {
    if (unit == L'\\') {
      escaped += L"\\\\";
    } else if (unit == L'\n') {
      escaped += L"\\n";
    } else if (unit == L'\r') {
      escaped += L"\\r";
    } else if (unit == L'\t') {
      escaped += L"\\t";
    } else if (IsControl(unit)) {
      escaped += L"\\u";
      for (int shift = 12; shift >= 0; shift -= 4) escaped += L"0123456789ABCDEF"[(unit >> shift) & 0xf];
    } else {
      escaped += unit;
    }
  }
  return escaped;
}

// Source names, components and paths. Bytes that are not UTF-8 become U+FFFD.
std::wstring Widen(const char* text) {
  if (text == nullptr) return {};
  const int length = static_cast<int>(std::strlen(text));
  std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text, length, nullptr, 0)), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, text, length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string ToUtf8(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  // Without WC_ERR_INVALID_CHARS a lone surrogate is written as U+FFFD: a log keeps what can be kept.
  std::string utf8(
      static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr)),
      '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr);
  return utf8;
}

}  // namespace

std::string RenderEventLine(const LogUtils::LogRecord& record) {
  return ToUtf8(std::to_wstring(record.severity) + L'\t' + Escape(Widen(record.source)) + L'\t' +
                Escape(Widen(record.component)) + L'\t' + Escape(Widen(record.file)) + L':' +
                std::to_wstring(record.line) + L'\t' + Escape(record.text == nullptr ? L"" : record.text));
}
