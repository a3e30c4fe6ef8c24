// Names, addresses and the like, replaced by placeholders for a report that leaves the house.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "LocationSet.h"
#include "MachineSnapshot.h"
#include "Options.h"

// What a placeholder stands for; it begins with the name in capitals: LOCATION-1.
enum class Secret {
  kLocation,
  kNote,
  kId,
  kAdapter,
  kAddress,
  kMac,
  kLabel,    // of a DNS suffix
  kPattern,  // a label that holds "*"
  kHost,
  kKey,
  kValue,
  kData,
  kText,  // in the place of an address
  kMachine,
  kUser,
  kDomain,
  kPath,
  kUrl,
  kMail,
  kSid,
  kIssuer,
};
inline constexpr std::size_t kSecrets = static_cast<std::size_t>(Secret::kIssuer) + 1;

// Who and where this is, which no location and no adapter tells.
struct Identity {
  std::wstring machine;
  std::wstring user;
  std::wstring domain;     // of the user
  std::wstring dnsDomain;  // of the machine
  std::wstring sid;        // of the user
};

// Equal values get equal placeholders wherever they stand, so that what matched still does: the redacted locations are
// decided on the redacted machine as the real ones on the real one. Letter case does not tell values apart; where it
// counts, or an address is written in another way than adapters show it, "-SPELLING-2" follows. Labels of suffixes are
// replaced one by one. A label that holds "*" becomes one that matches the same labels of this machine's adapters.
class Redaction {
 public:
  using Level = SupportOptions::Redaction;

  Redaction(Level level, const LocationSet& set, const MachineSnapshot& machine, const Identity& identity);

  bool IsOff() const noexcept { return m_level == Level::kNone; }
  const LocationSet& Set() const noexcept { return m_set; }
  const MachineSnapshot& Machine() const noexcept { return m_machine; }

  // One value. Empty ones stay empty.
  std::wstring Replace(Secret secret, const std::wstring& text);
  std::wstring Suffix(const std::wstring& text);
  std::wstring Address(const std::wstring& text);
  std::wstring Registry(const std::wstring& criterion);
  std::wstring KeyPath(const std::wstring& path);
  std::wstring Host(const std::wstring& text);
  AdapterProps Adapter(const AdapterProps& adapter);

  // Text that anybody has written, such as a log, with its line breaks: everything that was replaced before, in any
  // letter case and escaped or not, what the library's messages name, and what looks like an address, a host, a URL, a
  // path and so on. What is known only by its meaning stays.
  std::wstring FreeText(std::wstring_view text);

  struct Count {
    Secret secret;
    std::size_t values;  // different ones
  };
  // Of those that were met, in their order.
  std::vector<Count> Counts() const;

 private:
  struct Value {
    std::size_t number;
    std::vector<std::wstring> spellings;
  };

  std::wstring Numbered(Secret secret, const std::wstring& canonical, const std::wstring& exact);
  std::wstring Label(const std::wstring& label);
  std::wstring Pattern(const std::wstring& label);
  void Know(const std::wstring& text, const std::wstring& placeholder);

  const Level m_level;
  std::vector<std::wstring> m_adapterLabels;                               // each once, in lower case
  std::array<std::unordered_map<std::wstring, Value>, kSecrets> m_values;  // by what they have in common
  std::unordered_map<std::wstring, std::wstring> m_known;  // texts in lower case, and what replaces them
  LocationSet m_set;
  MachineSnapshot m_machine;
};

const char* NameOf(Secret secret);  // "LOCATION"
// "2 locations, 1 host"; "nothing".
std::string InWords(const std::vector<Redaction::Count>& counts);
