// JSON, against a reader of our own that knows the rules and nothing else.
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/JsonFile.h"

namespace {

constexpr const char* kFile = "x.json";

// RFC 8259, and what the tools add: each member once, no lone surrogates, 64 levels, numbers that a double can hold.
class Grammar {
 public:
  static bool Allows(std::string_view text) {
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
    Grammar grammar(text);
    grammar.Blanks();
    if (!grammar.Value(0)) return false;
    grammar.Blanks();
    return grammar.m_rest.empty();
  }

 private:
  explicit Grammar(std::string_view text) : m_rest(text) {}

  bool Take(std::string_view what) {
    if (!m_rest.starts_with(what)) return false;
    m_rest.remove_prefix(what.size());
    return true;
  }
  void Blanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r\n"), m_rest.size())); }
  std::size_t Digits() {
    const std::size_t count = std::min(m_rest.find_first_not_of("0123456789"), m_rest.size());
    m_rest.remove_prefix(count);
    return count;
  }

  bool Value(int depth) {
    if (Take("null") || Take("true") || Take("false")) return true;
    if (m_rest.starts_with('"')) return Text().has_value();
    if (m_rest.starts_with('[')) return List(depth + 1);
    if (m_rest.starts_with('{')) return Object(depth + 1);
    return Number();
  }
  bool List(int depth) {
    m_rest.remove_prefix(1);
    if (depth > 64) return false;
    Blanks();
    if (Take("]")) return true;
    for (;;) {
      Blanks();
      if (!Value(depth)) return false;
      Blanks();
      if (Take("]")) return true;
      if (!Take(",")) return false;
    }
  }
  bool Object(int depth) {
    m_rest.remove_prefix(1);
    if (depth > 64) return false;
    std::set<std::string> names;
    Blanks();
    if (Take("}")) return true;
    for (;;) {
      Blanks();
      const auto name = Text();
      if (!name || !names.insert(*name).second) return false;
      Blanks();
      if (!Take(":")) return false;
      Blanks();
      if (!Value(depth)) return false;
      Blanks();
      if (Take("}")) return true;
      if (!Take(",")) return false;
    }
  }
  bool Number() {
    const std::string_view begin = m_rest;
    Take("-");
    if (!Take("0") && Digits() == 0) return false;
    if (Take(".") && Digits() == 0) return false;
    if (Take("e") || Take("E")) {
      if (!Take("+")) Take("-");
      if (Digits() == 0) return false;
    }
    const std::string number(begin.substr(0, begin.size() - m_rest.size()));
    return std::isfinite(std::strtod(number.c_str(), nullptr));
  }
  std::optional<unsigned> Hex4() {
    unsigned unit = 0;
    if (m_rest.size() < 4) return std::nullopt;
    for (int i = 0; i < 4; ++i) {
      const std::size_t digit = std::string_view("0123456789abcdefABCDEF").find(m_rest[static_cast<std::size_t>(i)]);
      if (digit == std::string_view::npos) return std::nullopt;
      unit = unit << 4 | static_cast<unsigned>(digit < 16 ? digit : digit - 6);
    }
    m_rest.remove_prefix(4);
    return unit;
  }
  std::optional<std::string> Text() {
    if (!Take("\"")) return std::nullopt;
    std::wstring text;
    for (;;) {
      const std::size_t plain = m_rest.find_first_of(std::string_view("\"\\"));
      if (plain == std::string_view::npos) return std::nullopt;
      const std::string_view letters = m_rest.substr(0, plain);
      for (const char byte : letters)
        if (static_cast<unsigned char>(byte) < 0x20) return std::nullopt;
      const std::wstring wide = ToWide(letters);
      if (ToUtf8(wide) != letters) return std::nullopt;
      text += wide;
      m_rest.remove_prefix(plain);
      if (Take("\"")) break;
      m_rest.remove_prefix(1);
      if (m_rest.empty()) return std::nullopt;
      const char letter = m_rest.front();
      m_rest.remove_prefix(1);
      const std::size_t simple = std::string_view("\"\\/bfnrt").find(letter);
      if (simple != std::string_view::npos) {
        text += L"\"\\/\b\f\n\r\t"[simple];
        continue;
      }
      const auto unit = letter == 'u' ? Hex4() : std::nullopt;
      if (!unit || (*unit & 0xfc00) == 0xdc00) return std::nullopt;
      text += static_cast<wchar_t>(*unit);
      if ((*unit & 0xfc00) != 0xd800) continue;
      const auto second = Take("\\u") ? Hex4() : std::nullopt;
      if (!second || (*second & 0xfc00) != 0xdc00) return std::nullopt;
      text += static_cast<wchar_t>(*second);
    }
    return ToUtf8(text);
  }

  std::string_view m_rest;
};

void Run(FuzzInput input) {
  const std::string text = FuzzBytes(input);
  const bool isAllowed = Grammar::Allows(text);
  try {
    ParseJson(text, kFile);
    if (!isAllowed) FuzzFail("what is no such JSON was read");
    FuzzKind(1);
  } catch (const CommandError& error) {
    if (isAllowed) FuzzFail("JSON was refused: " + std::string(error.what()));
    RequireRefusal(error, kFailed, "x.json: line ");
    FuzzKind(0);
  }
}

const FuzzTarget g_target("json", Run,
                          {"{",
                           "}",
                           "[",
                           "]",
                           "\"",
                           ":",
                           ",",
                           "\\u",
                           "\\ud83d\\ude00",
                           "\\ud800",
                           "\\n",
                           "\\/",
                           "-0.5e+3",
                           "1e999",
                           "18446744073709551616",
                           "true",
                           "false",
                           "null",
                           "\"a\":",
                           "\xef\xbb\xbf",
                           "\xff\xfe",
                           "[[[[[[[[[[[[[[[[",
                           "]]]]]]]]]]]]]]]]",
                           "\xc3\xa9",
                           "\xed\xa0\x80",
                           " \t\r\n"});

}  // namespace
