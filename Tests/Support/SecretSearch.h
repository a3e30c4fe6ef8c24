// Whether a secret is left in the memory of the process.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

// A text of which a test keeps no copy that a search could take for one of the library's: each unit, of printable
// ASCII, is computed where it is needed. Whoever writes it down wipes that, or means it to be found.
class Secret {
 public:
  // More units than processors have room for in a register, of which exceptions leave copies on the stack.
  static constexpr std::size_t kPieceUnits = 36;

  constexpr Secret(const char* name, std::size_t units) : m_name(name), m_units(units) {}

  const char* Name() const { return m_name; }
  std::size_t Units() const { return m_units; }
  wchar_t Unit(std::size_t i) const;

  // With a NUL behind it.
  void WriteTo(wchar_t* text) const;
  bool Equals(const wchar_t* text, std::size_t units) const;

 private:
  const char* m_name;
  std::size_t m_units;
};

// Every place that holds a piece of the secret, in UTF-16 or narrow, as a line that tells where: in a heap and in use,
// in a heap and freed, or elsewhere. What is searched is all memory that can be written to: every heap with what it has
// freed and keeps, the stacks, the data of the modules. Pieces do not overlap: a whole copy is Units() / kPieceUnits
// lines.
std::vector<std::string> FindInMemory(const Secret& secret);
