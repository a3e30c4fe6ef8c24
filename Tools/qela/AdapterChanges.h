// What is different between two pictures of a machine's adapters, in what the library matches and its log tells.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "Json.h"

struct AdapterChange {
  enum class What { kAppeared, kGone, kChanged };
  struct Field {
    const char* member;                // of JSON, as AdapterDetails names it
    const char* title;                 // in sentences
    std::vector<std::wstring> before;  // none where the field was empty, one where it is no list
    std::vector<std::wstring> after;
  };

  What what{};
  std::uint32_t ifIndex = 0;
  std::wstring description;
  std::vector<Field> fields;  // of kChanged: those that differ; otherwise those that are not empty
};

// Media types and physical addresses are not compared: the log does not tell them. An adapter is the same where index
// and description are; an adapter without IPv4 has the index 0, as others of its kind have.
std::vector<AdapterChange> ChangesBetween(const std::vector<AdapterProps>& before,
                                          const std::vector<AdapterProps>& after);

// One line, such as: adapter 2 (eth0): default gateway 10.20.0.1 -> 10.20.0.2, DNS suffix corp.example -> none
std::string InWords(const AdapterChange& change);
Json ToJson(const std::vector<AdapterChange>& changes);
