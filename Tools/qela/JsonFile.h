// JSON files that people and other programs have written: nothing in them is taken on trust, and every error names the
// file, the place and what to write instead.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "FileBytes.h"

class JsonDocument;

// A value of a document that was read, and its place. Each accessor throws CommandError (kFailed) when the value is not
// what was asked for.
class JsonNode {
 public:
  std::wstring Text() const;  // without NUL, at which stored texts end
  bool Bool() const;
  std::uint32_t UInt32() const;
  std::vector<JsonNode> Elements() const;
  JsonNode Member(const std::string& name) const;
  std::optional<JsonNode> FindMember(const std::string& name) const;  // none when it is missing
  bool IsNull() const { return m_value->is_null(); }

  // An unknown member would be a setting without effect: it is an error that names the known one that is close.
  void RequireOnly(const std::vector<std::string>& names) const;

  // FILE: at /locations/3/enabled: 5 stands here; write <instead>
  [[noreturn]] void Fail(const std::string& instead) const;
  // FILE: at /locations/3: <wrong>; <instead>
  [[noreturn]] void Fail(const std::string& wrong, const std::string& instead) const;

 private:
  friend class JsonDocument;
  friend JsonDocument ParseJson(const std::string& text, const std::string& fileName);
  struct Content {
    nlohmann::json value;
    std::string fileName;
  };

  JsonNode(std::shared_ptr<const Content> content, const nlohmann::json& value, std::string pointer)
      : m_content(std::move(content)), m_value(&value), m_pointer(std::move(pointer)) {}

  std::shared_ptr<const Content> m_content;
  const nlohmann::json* m_value;
  std::string m_pointer;  // RFC 6901
};

class JsonDocument {
 public:
  JsonNode Root() const { return {m_content, m_content->value, {}}; }

 private:
  friend JsonDocument ParseJson(const std::string& text, const std::string& fileName);
  explicit JsonDocument(std::shared_ptr<const JsonNode::Content> content) : m_content(std::move(content)) {}

  std::shared_ptr<const JsonNode::Content> m_content;
};

// Throws CommandError (kFailed) with line and column. Strict: UTF-8 (a byte order mark may stand in front) without lone
// surrogates, each member once, no more than 64 levels.
JsonDocument ParseJson(const std::string& text, const std::string& fileName);
