// .reg files as people, editors and other programs write them: the same bytes come out, however they are written down.
#include <cstdint>
#include <string>
#include <vector>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/RegFile.h"

namespace {

constexpr const char* kFile = "set.reg";

std::string InAnotherCase(std::string text, FuzzChoices& choices) {
  const std::uint8_t which = choices.Byte();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isLetter = (text[i] >= 'a' && text[i] <= 'z') || (text[i] >= 'A' && text[i] <= 'Z');
    if (isLetter && ((which >> (i % 8)) & 1) != 0) text[i] = static_cast<char>(text[i] ^ 0x20);
  }
  return text;
}

// A value in a form that is allowed.
std::string Written(const std::vector<std::uint8_t>& value, FuzzChoices& choices) {
  static const std::string kHeaders[] = {"Windows Registry Editor Version 5.00", "REGEDIT4"};
  static const std::string kLineEnds[] = {"\r\n", "\n"};
  static const std::string kBlanks[] = {"", " ", "\t", "  \t"};
  static const std::string kBetween[] = {"", "; a comment \"la\"=hex:00", ";"};
  const std::string header = choices.Pick(kHeaders);
  const std::string lineEnd = choices.Pick(kLineEnds);
  const auto line = [&](const std::string& text) {
    return choices.Pick(kBlanks) + text + choices.Pick(kBlanks) + lineEnd;
  };
  std::string text = line(header) + line(choices.Pick(kBetween));
  text += line(InAnotherCase("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]", choices));
  text += line(choices.Pick(kBetween));
  if (choices.Flip()) text += line("\"la.former\"=hex:01,\\") + line("02");
  const std::string type = choices.Flip() ? "hex:" : "hex(3):";
  std::string bytes = InAnotherCase("\"la\"=", choices) + type;
  const std::size_t aLine = 1 + choices.Below(40);
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (i != 0) bytes += ',';
    if (i != 0 && i % aLine == 0) {
      text += line(bytes + '\\');
      bytes.clear();
    }
    const bool isLarge = choices.Flip();
    for (const int shift : {4, 0})
      bytes += (isLarge ? "0123456789ABCDEF" : "0123456789abcdef")[value[i] >> shift & 0xf];
  }
  text += line(bytes) + line(choices.Pick(kBetween));
  if (choices.Flip()) text.resize(text.size() - lineEnd.size());
  switch (choices.Below(4)) {
    case 0:
      return text;
    case 1:
      return "\xef\xbb\xbf" + text;
    default: {
      std::string utf16 = "\xff\xfe";
      for (const char letter : text) utf16.append({letter, '\0'});
      return utf16;
    }
  }
}

void Run(FuzzInput input) {
  FuzzChoices choices(input);
  if (choices.Flip()) {
    const FuzzInput size = choices.Bytes(1);
    const FuzzInput bytes = choices.Bytes(size.empty() ? 0 : size[0]);
    const std::vector<std::uint8_t> value(bytes.begin(), bytes.end());
    if (ParseRegFile(Written(value, choices), kFile).bytes != value) FuzzFail("other bytes than were written down");
    if (ParseRegFile(FormatRegFile(value), kFile).bytes != value) FuzzFail("other bytes than were formatted");
    return FuzzKind(1);
  }
  const std::string text = FuzzBytes(choices.Rest());
  try {
    const RegValue value = ParseRegFile(text, kFile);
    if (!LooksLikeRegFile(text)) FuzzFail("it was read and does not look like one");
    if (value.line < 3) FuzzFail("a value in front of its key");
    if (ParseRegFile(FormatRegFile(value.bytes), kFile).bytes != value.bytes) FuzzFail("other bytes after writing");
    FuzzKind(2);
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, "set.reg: line ");
    FuzzKind(0);
  }
}

const FuzzTarget g_target("reg-file", Run,
                          {"Windows Registry Editor Version 5.00\r\n", "REGEDIT4\n",
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA]\r\n",
                           "\"la\"=", "\"la.former\"=", "hex:", "hex(3):", "00,", "ff", "\\\r\n", "\r\n", "\xff\xfe",
                           "\xef\xbb\xbf", ";", "[", "]"});

}  // namespace
