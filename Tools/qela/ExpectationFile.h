// What machines are expected to be at: a CSV file (RFC 4180) with the header line "machine,locations", whose second
// field holds names or IDs, separated by ";".
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "TestSet.h"

struct Expectation {
  std::size_t line = 0;         // where it stands in the file
  std::vector<bool> isCurrent;  // of each location of the set
};
using Expectations = std::map<std::wstring, Expectation>;  // by machine

// Throws CommandError (kFailed) that names the file and the line.
Expectations ReadExpectations(const std::wstring& path, const TestSet& set);
// `fileName` stands in the messages.
Expectations ParseExpectations(const std::string& text, const std::string& fileName, const TestSet& set);
