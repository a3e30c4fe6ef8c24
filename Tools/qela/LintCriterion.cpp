#include "LintCriterion.h"

#include <winsock2.h>
// After winsock2.h, which they need.
#include <ws2tcpip.h>

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <optional>
#include <string_view>

#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Common/Utilities/RegistryText.h"
#include "FwClient/Common/Utilities/SplitFields.h"
#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "FwClient/Service/QeLaLib/WildcardLabel.h"
#include "Text.h"

using namespace LintRules;

namespace {

// Below these anybody has names: the largest registries, in two labels where that is how they give names out, and what
// home routers announce unless told otherwise. The whole list of public suffixes has thousands and changes weekly;
// these are what is written by mistake.
constexpr const wchar_t* kPublicSuffixes[] = {
    L"com",    L"org",   L"net", L"edu",  L"gov",         L"info",  L"biz",      L"io",    L"de",
    L"eu",     L"fr",    L"it",  L"nl",   L"uk",          L"co.uk", L"org.uk",   L"ac.uk", L"com.au",
    L"com.br", L"co.jp", L"lan", L"home", L"localdomain", L"local", L"home.arpa"};

// Labels that nobody has, two of them, so that an expression that happens to take one of them does not count.
constexpr const wchar_t* kStrangers[] = {L"qx7zq", L"w5vk9j"};
constexpr std::size_t kMostLabels = 128;  // of a DNS name

constexpr std::size_t kMostDataCharacters = 259;
static_assert((kMostDataCharacters + 1) * sizeof(wchar_t) == RegistryText::kMaxBytes,
              "the rule's sentence gives the figure");

bool IsBlank(wchar_t unit) { return std::iswspace(unit) != 0; }

std::wstring Trimmed(const std::wstring& text) {
  const auto first = std::find_if_not(text.begin(), text.end(), IsBlank);
  const auto last = std::find_if_not(text.rbegin(), text.rend(), IsBlank).base();
  return first < last ? std::wstring(first, last) : std::wstring();
}

bool IsFramedByBlanks(const std::wstring& text) { return Trimmed(text) != text; }

std::string InQuotes(std::wstring_view text) { return "\"" + Printable(text) + "\""; }

std::string Write(std::wstring_view text) { return "write " + InQuotes(text); }

// Windows refuses these in DNS names.
bool IsNoNameCharacter(wchar_t unit) {
  return unit <= L' ' || unit == 0x7f ||
         std::wstring_view(L"{|}~[\\]^':;<=>?@!\"#$%`()+/,&").find(unit) != std::wstring_view::npos;
}

// An address as adapters show it.
struct Address {
  std::wstring text;
  bool isMapped = false;  // from IPv6
};

std::optional<Address> ReadAddress(const std::wstring& value) {
  wchar_t text[INET6_ADDRSTRLEN];
  IN_ADDR v4{};
  if (::InetPtonW(AF_INET, value.c_str(), &v4) == 1)
    return Address{::InetNtopW(AF_INET, &v4, text, std::size(text)), false};
  IN6_ADDR v6{};
  if (::InetPtonW(AF_INET6, value.c_str(), &v6) != 1) return std::nullopt;
  if (!IN6_IS_ADDR_V4MAPPED(&v6)) return Address{::InetNtopW(AF_INET6, &v6, text, std::size(text)), false};
  std::copy(std::begin(v6.u.Byte) + 12, std::end(v6.u.Byte), reinterpret_cast<unsigned char*>(&v4));
  return Address{::InetNtopW(AF_INET, &v4, text, std::size(text)), true};
}

// What is left of "[fe80::1]:80", "fe80::1%4", "10.0.0.1/24" and "10.0.0.1:53".
std::wstring WithoutSurroundings(const std::wstring& value) {
  std::wstring text = Trimmed(value);
  if (text.starts_with(L'[')) text = text.substr(1, text.find(L']') - 1);
  text.resize(std::min(text.size(), text.find_first_of(L"%/")));
  if (std::count(text.begin(), text.end(), L':') == 1) text.resize(text.find(L':'));
  return text;
}

void CheckAddress(const std::wstring& value, const CriterionLint::Report& report) {
  const std::optional<Address> address = ReadAddress(value);
  if (!address) {
    const std::optional<Address> meant = ReadAddress(WithoutSurroundings(value));
    report(kNoAddress, {}, meant ? Write(meant->text) : "write an IPv4 or IPv6 address alone");
  } else if (address->isMapped) {
    report(kMappedAddress, {}, Write(address->text));
  } else if (address->text != value) {
    report(kOtherSpelling, {}, Write(address->text));
  }
}

struct ShortHive {
  std::wstring_view text;
  std::wstring_view name;
};

// The registry text with the full name of its hive, for one that is abbreviated or in another case.
std::optional<std::wstring> WithFullHive(const std::wstring& value) {
  constexpr ShortHive kHives[] = {{L"HKLM", L"HKEY_LOCAL_MACHINE"}, {L"HKEY_LOCAL_MACHINE", L"HKEY_LOCAL_MACHINE"},
                                  {L"HKCR", L"HKEY_CLASSES_ROOT"},  {L"HKEY_CLASSES_ROOT", L"HKEY_CLASSES_ROOT"},
                                  {L"HKCU", L"HKEY_CURRENT_USER"},  {L"HKEY_CURRENT_USER", L"HKEY_CURRENT_USER"},
                                  {L"HKU", L"HKEY_USERS"},          {L"HKEY_USERS", L"HKEY_USERS"}};
  const std::wstring text = Trimmed(value);
  const std::size_t end = std::min(text.size(), text.find(L'\\'));
  std::wstring hive = Trimmed(text.substr(0, end));
  if (hive.ends_with(L':')) hive.pop_back();
  for (const ShortHive& known : kHives)
    if (EqualsIgnoringAsciiCase(known.text, hive)) return std::wstring(known.name) + text.substr(end);
  return std::nullopt;
}

void ReportMalformed(const std::wstring& value, const CriterionLint::Report& report) {
  if (SplitFields(value, L'=').size() > 2)
    return report(kMalformedRegistryText, "more than one \"=\" is never understood",
                  "ask for another value, whose data has no \"=\"");
  std::wstring slashed = value;
  std::replace(slashed.begin(), slashed.end(), L'/', L'\\');
  for (const std::wstring& meant : {value, slashed})
    if (const std::optional<std::wstring> full = WithFullHive(meant); full && ParseRegistryKeyCriterion(*full))
      return report(kMalformedRegistryText, {}, Write(*full));
  report(kMalformedRegistryText, {},
         "begin with HKEY_LOCAL_MACHINE\\, HKEY_CLASSES_ROOT\\, HKEY_CURRENT_USER\\ or HKEY_USERS\\");
}

// The data as Windows' tools would show or take them, and the library does not.
bool IsDataOfOtherForm(const std::wstring& data) {
  const bool isQuoted = data.size() > 1 && data.front() == L'"' && data.back() == L'"';
  const bool isSigned = data.size() > 1 && data.front() == L'-';
  const std::wstring digits = isSigned ? data.substr(1) : data;
  const bool isHexadecimal = digits.size() > 2 && (digits.starts_with(L"0x") || digits.starts_with(L"0X")) &&
                             digits.find_first_not_of(L"0123456789abcdefABCDEF", 2) == std::wstring::npos;
  const bool isDecimal = !digits.empty() && digits.find_first_not_of(L"0123456789") == std::wstring::npos;
  return isQuoted || isHexadecimal || (isDecimal && (isSigned || (digits.size() > 1 && digits.front() == L'0')));
}

void CheckRegistryText(const std::wstring& value, const CriterionLint::Report& report) {
  const std::optional<RegistryKeyCriterion> criterion = ParseRegistryKeyCriterion(value);
  if (!criterion) return ReportMalformed(value, report);
  const std::wstring key = value.substr(0, value.find(L'='));
  if (criterion->subkey.starts_with(L'\\')) {
    std::wstring meant;  // of a text that was written for a language in which a backslash is doubled
    for (const wchar_t unit : value)
      if (unit != L'\\' || !meant.ends_with(L'\\')) meant += unit;
    report(kBackslashInFront, {}, Write(meant));
  }
  const bool hasEquals = key.size() != value.size();
  if (hasEquals && value.ends_with(L'=') && (criterion->IsExistenceOnly() || key.size() + 1 != value.size()))
    report(kEqualsSignAtEnd,
           criterion->IsExistenceOnly() ? "it asks for the key alone"
                                        : "it asks for the data " + InQuotes(criterion->data),
           Write(value.substr(0, value.find_last_not_of(L'=') + 1)) + " if that is meant");
  if (!hasEquals && !criterion->valueName.empty()) {
    const std::wstring trimmed = Trimmed(value);
    report(kEmptyValueAsked, "it holds where " + InQuotes(criterion->valueName) + " is a value and empty",
           trimmed.ends_with(L'\\') ? Write(trimmed)
                                    : Write(trimmed + L"\\") + " for the key, or \"" + Printable(trimmed) +
                                          "=DATA\" for a value; end it with \"=\" if an empty value is meant");
  } else if (IsFramedByBlanks(criterion->valueName) || IsFramedByBlanks(criterion->data)) {
    report(kTextAsItStands, {}, Write(Trimmed(key) + L"=" + Trimmed(criterion->data)) + ", unless they belong there");
  } else if (IsDataOfOtherForm(criterion->data)) {
    report(kTextAsItStands, {},
           "for a number write its decimal digits without sign or leading zeros, for a text its characters without "
           "quotation marks");
  }
  if (criterion->data.size() > kMostDataCharacters) report(kLongData, {}, "ask for a value with shorter data");
  if (criterion->IsExistenceOnly() && criterion->subkey.empty())
    report(kHiveItself, {}, "name a key below it, and end it with a backslash");
  if (criterion->hive == HKEY_CURRENT_USER)
    report(kServiceAccount, {}, "ask for a key of HKEY_LOCAL_MACHINE, or of HKEY_USERS with the account's SID");
}

bool IsBareHost(const std::wstring& host) {
  if (ReadAddress(host)) return true;
  return std::none_of(host.begin(), host.end(), IsNoNameCharacter) && !host.starts_with(L'.') &&
         host.find(L"..") == std::wstring::npos && host.find(L'*') == std::wstring::npos;
}

void CheckHost(const std::wstring& value, const CriterionLint::Report& report) {
  if (IsBareHost(value)) return;
  std::wstring host = Trimmed(value);
  if (const std::size_t scheme = host.find(L"://"); scheme != std::wstring::npos) host.erase(0, scheme + 3);
  host.resize(std::min(host.size(), host.find_first_of(L"/\\?#")));
  host.erase(0, host.rfind(L'@') + 1);  // all of it or, without "@", nothing
  if (host.starts_with(L'['))
    host = host.substr(1, host.find(L']') - 1);
  else if (std::count(host.begin(), host.end(), L':') == 1)
    host.resize(host.find(L':'));
  report(kNoBareHost, {}, !host.empty() && IsBareHost(host) ? Write(host) : "write the name of a host");
}

}  // namespace

CriterionLint::CriterionLint() {
  for (const wchar_t* const stranger : kStrangers) {
    std::wstring name = stranger;
    for (std::size_t i = 1; i < kMostLabels; ++i) name += std::wstring(L".") + stranger;
    m_strangers.emplace_back().Assign(name);
  }
  for (const wchar_t* const suffix : kPublicSuffixes) {
    Below& below = m_belowPublic.emplace_back(Below{suffix, {}});
    for (const wchar_t* const stranger : kStrangers)
      below.names.emplace_back().Assign(std::wstring(stranger) + L"." + suffix);
  }
}

void CriterionLint::Check(LOCATION_CRITERIA_TYPE kind, const std::wstring& value, const Report& report) {
  if (std::all_of(value.begin(), value.end(), IsBlank)) {
    // What an adapter has nothing of is an empty text, but for gateways and DNS servers a list without entries.
    const bool isNoneOnAdapters =
        kind == LCT_DNS_SUFFIX || kind == LCT_DHCP_SERVER || kind == LCT_PRIMARY_WINS || kind == LCT_SECONDARY_WINS;
    return report(value.empty() && isNoneOnAdapters ? kEmptyMatchesNone : kBlank, {}, "write a value, or remove it");
  }
  switch (kind) {
    case LCT_DNS_SUFFIX:
      return CheckSuffix(value, report);
    case LCT_REGISTRY_KEY:
      return CheckRegistryText(value, report);
    case LCT_DOMAIN_REACHABLE:
      return CheckHost(value, report);
    default:
      return CheckAddress(value, report);
  }
}

void CriterionLint::CheckSuffix(const std::wstring& value, const Report& report) {
  if (value.ends_with(L'.')) {
    const std::wstring meant = value.substr(0, value.find_last_not_of(L'.') + 1);
    return report(kDotAtEnd, {}, meant.empty() ? "write a suffix" : Write(meant));
  }
  m_labels.Assign(value);
  if (!CheckLabels(value, report)) return;

  m_criterion.Assign(value);
  const auto holdsFor = [this](const DnsLabels& name) { return m_matcher.Matches(m_criterion, name); };
  DnsLabels none;
  none.Assign({});
  if (std::all_of(m_strangers.begin(), m_strangers.end(), holdsFor))
    return report(kAnySuffix, {}, "name the domain, or remove it");
  if (holdsFor(none)) return report(kOpenEnd, {}, "write the domain to its end, such as \"corp.example\"");
  const auto covered = std::find_if(m_belowPublic.begin(), m_belowPublic.end(), [&](const Below& below) {
    return std::all_of(below.names.begin(), below.names.end(), holdsFor);
  });
  if (covered != m_belowPublic.end())
    report(kPublicSuffix, "for every name below " + InQuotes(covered->suffix), "name the organisation's own domain");
  else if (m_labels.Count() == 1)
    report(kPublicSuffix, "for every name below " + InQuotes(value), "name a domain of at least two labels");
}

// Whether it is worth asking what the suffix matches.
bool CriterionLint::CheckLabels(const std::wstring& value, const Report& report) {
  constexpr std::size_t kLongestLabel = 63;
  bool canMatch = true;
  bool hasEmpty = false;
  for (std::size_t i = 0; i < m_labels.Count(); ++i) {
    const std::wstring label(m_labels.FromRight(i));
    if (label.empty()) {
      hasEmpty = true;
      continue;
    }
    const bool hasStar = label.find(L'*') != std::wstring::npos;
    const auto bad = std::find_if(label.begin(), label.end(), [hasStar](wchar_t unit) {
      return hasStar ? unit <= L' ' || unit == 0x7f : IsNoNameCharacter(unit);
    });
    if (bad != label.end()) {
      canMatch = false;
      if (*bad <= L' ' || *bad == 0x7f)
        report(kNoSuffixText, "a blank or control character is in " + InQuotes(label), "write it without");
      else
        report(kNoSuffixText,
               InQuotes({&*bad, 1}) + " is in " + InQuotes(label) +
                   "; only in a label that holds \"*\" it is part of an expression",
               "write one suffix for each name that is meant");
    } else if (!hasStar && label.size() > kLongestLabel) {
      canMatch = false;
      report(kNoSuffixText, "a label has more than 63 characters", "write it as adapters show it");
    } else if (hasStar && label != L"*" && WildcardLabel(label).MatchesNothing()) {
      canMatch = false;
      if (SurveyExpression(WildcardToRegex(label)).isValid)
        report(kBrokenExpression, InQuotes(label) + " is too large", "write several suffixes");
      else
        report(kBrokenExpression, InQuotes(label) + " is no valid expression",
               "write only letters, digits and one \"*\" for any text; other marks are those of regular expressions");
    } else if (std::count(label.begin(), label.end(), L'*') > 1) {
      report(kSecondStar, InQuotes(label) + " is the expression " + InQuotes(WildcardToRegex(label)),
             "write one \"*\" in the label, or several suffixes");
    }
  }
  if (hasEmpty) {
    std::wstring withoutEmpty;
    for (const wchar_t unit : value)
      if (unit != L'.' || (!withoutEmpty.empty() && withoutEmpty.back() != L'.')) withoutEmpty += unit;
    report(kEmptyLabel, {}, Write(withoutEmpty));
  }
  return canMatch;
}
