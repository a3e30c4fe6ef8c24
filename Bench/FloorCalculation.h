// The bare loop that a calculation is measured against.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Bench/Machine.h"
#include "Bench/PlainLocation.h"

// Does what a calculation must do and nothing else: the same Windows calls, the same log calls with the same arguments,
// the same comparisons, all in the same order, and writes the IDs of the current locations and the indexes of their
// adapters. Its texts lie in plain arrays that were made beforehand, and it allocates nothing but the buffer that
// Windows fills. Knows the kinds from the DNS suffix to the secondary WINS server; wildcard labels hold one "*" and
// nothing else that is special.
class FloorCalculation {
 public:
  FloorCalculation(const PlainSet& set, std::size_t adapters);
  ~FloorCalculation();
  FloorCalculation(const FloorCalculation&) = delete;
  FloorCalculation& operator=(const FloorCalculation&) = delete;

  // The calculation alone.
  void Calculate();
  // And what a Load does before it where nothing is stored.
  void Load();

  std::vector<std::wstring> CurrentIds() const;
  // Of the location's last match.
  std::vector<std::uint32_t> Indexes(std::size_t location) const;

 private:
  static constexpr std::size_t kShortText = 80;
  static constexpr std::size_t kMaxEntries = 4;
  static constexpr std::size_t kMaxLabels = 8;

  struct Text {
    std::uint32_t length = 0;
    wchar_t chars[kShortText] = {};

    void Clear() { length = 0, chars[0] = L'\0'; }
    void Assign(const wchar_t* text);
    void Assign(const SOCKET_ADDRESS& address);
  };
  struct Label {
    const wchar_t* chars;
    std::uint32_t length;
    std::int32_t star;  // where it stands; -1 where there is none
  };
  struct Labels {
    std::uint32_t count = 0;
    Label labels[kMaxLabels];
  };
  struct List {
    std::uint32_t count = 0;
    Text entries[kMaxEntries];

    template <typename Entry>
    void Assign(const Entry* first);
  };
  struct Adapter {
    std::uint32_t index = 0;
    bool dhcpEnabled = false;
    Text description, dhcp, dhcpV6, suffix, primaryWins, secondaryWins;
    List gateways, dnsServers, addresses;
    Text lowerSuffix;
    Labels suffixLabels;
  };
  struct Value {
    const wchar_t* chars;
    std::uint32_t length;
    std::uint32_t labels;  // in m_labels, of a suffix
  };
  struct Kind {
    LOCATION_CRITERIA_TYPE kind;
    std::uint32_t first;  // in m_values
    std::uint32_t count;
  };
  struct Location {
    const wchar_t* name;
    const wchar_t* id;
    std::uint32_t idLength;
    std::uint32_t firstKind;  // in m_kinds
    std::uint32_t kinds;
    std::uint32_t indexCount;
    bool enabled;
    bool zeltReachable;
  };

  bool TakeSnapshot();
  void ReportAdapters();
  bool IsCurrent(Location& location, std::uint32_t* indexes);
  bool Matches(const Adapter& adapter, const Kind& kind);
  const Value* Find(const Adapter& adapter, const Kind& kind) const;
  const Value* FindIn(const Kind& kind, const List& list) const;
  static bool Equal(const Value& value, const Text& text);
  static bool LabelsAgree(const Labels& criterion, const Labels& suffix);
  static void Split(const wchar_t* text, Labels& labels);

  CRITICAL_SECTION m_lock;
  DWORD m_slot = ::TlsAlloc();
  PlainSet m_texts;  // of which the rest is made
  std::vector<Location> m_locations;
  std::vector<Kind> m_kinds;
  std::vector<Value> m_values;
  std::vector<Labels> m_labels;
  std::vector<std::wstring> m_lowerSuffixes;
  std::vector<Adapter> m_adapters;
  std::size_t m_adapterCount = 0;
  std::wstring m_report;
  std::vector<std::array<wchar_t, kShortText>> m_currentIds;
  std::size_t m_current = 0;
  std::vector<std::uint32_t> m_indexes;  // a row for each location
};
