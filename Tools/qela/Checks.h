// What is said of the machine, by facts that were gathered before.
#pragma once

#include <string>
#include <vector>

#include "Json.h"
#include "MachineFacts.h"

struct Check {
  enum class Result { kOk, kWarn, kError };
  const char* name;
  Result result = Result::kOk;
  std::string found;   // a sentence
  std::string advice;  // what to do; may be empty where all is well
};

// All of them, always in the same order.
std::vector<Check> Judge(const MachineFacts& facts);

const char* NameOf(Check::Result result);  // "ok", "warn" or "error"
std::size_t CountOf(const std::vector<Check>& checks, Check::Result result);
Json ToJson(const std::vector<Check>& checks);
