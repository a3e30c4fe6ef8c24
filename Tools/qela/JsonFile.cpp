#include "JsonFile.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "Closest.h"
#include "CommandError.h"
#include "Text.h"

namespace {

constexpr std::size_t kDeepest = 64;

[[noreturn]] void FailFile(const std::string& fileName, const std::string& message) {
  throw CommandError(kFailed, fileName + ": " + message);
}

// A text of the file within a message: short, and without what a console would act upon.
std::string Shown(std::string_view text) {
  constexpr std::size_t kMostUnits = 100;
  const std::wstring wide = ToWide(text.substr(0, 4 * kMostUnits));
  return wide.size() <= kMostUnits ? Printable(wide) : Printable(wide.substr(0, kMostUnits)) + "…";
}

// As a member's name stands in a JSON pointer.
std::string Escaped(const std::string& name) {
  std::string escaped;
  for (const char letter : name) escaped += letter == '~' ? "~0" : letter == '/' ? "~1" : std::string(1, letter);
  return escaped;
}

// Both from 1; columns count characters.
std::string Place(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::size_t start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  const auto isFirstByte = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; };
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const auto column = std::count_if(before.begin() + static_cast<std::ptrdiff_t>(start), before.end(), isFirstByte) + 1;
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// Lets the callback know how far the parser is.
class TrackedByte {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  TrackedByte(const char* at, const char*& reached) : m_at(at), m_reached(&reached) {}
  reference operator*() const { return *m_at; }
  TrackedByte& operator++() {
    *m_reached = ++m_at;
    return *this;
  }
  TrackedByte operator++(int) {
    const TrackedByte before = *this;
    ++*this;
    return before;
  }
  bool operator==(const TrackedByte& other) const { return m_at == other.m_at; }

 private:
  const char* m_at;
  const char** m_reached;
};

// "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ...; last read: '...'" without the
// number, the place, which counts bytes, and what was read, which may be megabytes and no text.
std::string Reason(const nlohmann::json::exception& error) {
  std::string_view reason = error.what();
  reason.remove_prefix(std::min(reason.size(), reason.find("] ") + 2));
  if (reason.starts_with("parse error at ")) reason.remove_prefix(reason.find(": ") + 2);
  return Shown(reason.substr(0, reason.find("; last read")));
}

}  // namespace

JsonDocument ParseJson(const std::string& text, const std::string& fileName) {
  if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff"))
    FailFile(fileName, "line 1, column 1: the file is UTF-16; save it as UTF-8");
  const auto content = std::make_shared<JsonNode::Content>();
  content->fileName = fileName;
  const char* reached = text.data();
  const auto fail = [&](const std::string& wrong) {
    // Behind the bracket or the name that is wrong.
    FailFile(fileName, Place(text, static_cast<std::size_t>(reached - text.data()) - 1) + ": " + wrong);
  };
  std::vector<std::unordered_set<std::string>> open;  // the members of the objects and arrays that are being read
  const auto check = [&](int, nlohmann::json::parse_event_t event, nlohmann::json& parsed) {
    using Event = nlohmann::json::parse_event_t;
    if (event == Event::object_start || event == Event::array_start) {
      if (open.size() == kDeepest) fail("nested deeper than " + std::to_string(kDeepest) + " levels");
      open.emplace_back();
    } else if (event == Event::object_end || event == Event::array_end) {
      open.pop_back();
    } else if (event == Event::key && !open.back().insert(parsed.get<std::string>()).second) {
      fail("the member \"" + Shown(parsed.get<std::string>()) + "\" stands here a second time; write it once");
    }
    return true;
  };
  try {
    content->value = nlohmann::json::parse(TrackedByte(text.data(), reached),
                                           TrackedByte(text.data() + text.size(), reached), check);
  } catch (const nlohmann::json::parse_error& error) {
    FailFile(fileName, Place(text, std::min(text.size(), error.byte - std::min<std::size_t>(error.byte, 1))) + ": " +
                           Reason(error));
  } catch (const nlohmann::json::exception& error) {
    fail(Reason(error));
  }
  // The parser takes it for the end, and whatever stands behind it for nothing.
  if (const std::size_t nul = text.find('\0'); nul != std::string::npos)
    FailFile(fileName, Place(text, nul) +
                           ": the character U+0000 stands here; leave it out, and what does not belong behind the end");
  return JsonDocument(content);
}

void JsonNode::Fail(const std::string& wrong, const std::string& instead) const {
  FailFile(m_content->fileName, "at " + (m_pointer.empty() ? "the root" : m_pointer) + ": " + wrong + "; " + instead);
}

void JsonNode::Fail(const std::string& instead) const {
  const std::string value = m_value->is_array()    ? "an array"
                            : m_value->is_object() ? "an object"
                            : m_value->is_string() ? "the text \"" + Shown(m_value->get<std::string>()) + "\""
                                                   : m_value->dump();
  Fail(value + " stands here", "write " + instead);
}

std::wstring JsonNode::Text() const {
  if (!m_value->is_string()) Fail("a text");
  const std::string& text = m_value->get_ref<const std::string&>();
  if (text.find('\0') != std::string::npos) Fail("a text without the character U+0000");
  return ToWide(text);
}

bool JsonNode::Bool() const {
  if (!m_value->is_boolean()) Fail("true or false");
  return m_value->get<bool>();
}

std::uint32_t JsonNode::UInt32() const {
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  if (!m_value->is_number_unsigned() || m_value->get<std::uint64_t>() > kMost)
    Fail("a whole number from 0 to " + std::to_string(kMost));
  return m_value->get<std::uint32_t>();
}

std::vector<JsonNode> JsonNode::Elements() const {
  if (!m_value->is_array()) Fail("an array");
  std::vector<JsonNode> elements;
  elements.reserve(m_value->size());
  for (std::size_t i = 0; i < m_value->size(); ++i)
    elements.push_back(JsonNode(m_content, (*m_value)[i], m_pointer + "/" + std::to_string(i)));
  return elements;
}

JsonNode JsonNode::Member(const std::string& name) const {
  auto member = FindMember(name);
  if (!member) Fail("the member \"" + name + "\" is missing", "add it");
  return *std::move(member);
}

std::optional<JsonNode> JsonNode::FindMember(const std::string& name) const {
  if (!m_value->is_object()) Fail("an object");
  const auto member = m_value->find(name);
  if (member == m_value->end()) return std::nullopt;
  return JsonNode(m_content, *member, m_pointer + "/" + Escaped(name));
}

void JsonNode::RequireOnly(const std::vector<std::string>& names) const {
  if (!m_value->is_object()) Fail("an object");
  for (const auto& [name, value] : m_value->items()) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    const auto closest = Closest(name, names);
    std::string instead = "leave it out, or write ";
    if (closest) {
      instead = "write \"" + *closest + "\"";
    } else {
      for (const std::string& known : names) instead += (&known == &names.front() ? "\"" : "\", \"") + known;
      instead += "\"";
    }
    Fail("the member \"" + Shown(name) + "\" is unknown", instead);
  }
}
