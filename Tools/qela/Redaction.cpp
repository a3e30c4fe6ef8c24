#include "Redaction.h"

#include <winsock2.h>
// After winsock2.h, which they need.
#include <ws2tcpip.h>
#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "CriterionKinds.h"
#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "RedactedText.h"
#include "Text.h"

namespace {

struct SecretName {
  const char* prefix;
  const char* thing;
  const char* things;
};
// In the order of Secret.
constexpr SecretName kSecretNames[] = {
    {"LOCATION", "location name", "location names"},
    {"NOTE", "note", "notes"},
    {"ID", "ID", "IDs"},
    {"ADAPTER", "adapter description", "adapter descriptions"},
    {"ADDRESS", "address", "addresses"},
    {"MAC", "physical address", "physical addresses"},
    {"LABEL", "label of DNS names", "labels of DNS names"},
    {"PATTERN", "pattern of labels", "patterns of labels"},
    {"HOST", "host", "hosts"},
    {"KEY", "registry key", "registry keys"},
    {"VALUE", "registry value", "registry values"},
    {"DATA", "registry datum", "registry data"},
    {"TEXT", "other text", "other texts"},
    {"MACHINE", "machine name", "machine names"},
    {"USER", "user name", "user names"},
    {"DOMAIN", "domain", "domains"},
    {"PATH", "path", "paths"},
    {"URL", "URL", "URLs"},
    {"MAIL", "mail address", "mail addresses"},
    {"SID", "SID", "SIDs"},
    {"ISSUER", "certificate issuer", "certificate issuers"},
};
static_assert(std::size(kSecretNames) == kSecrets);

std::wstring Prefix(Secret secret) { return ToWide(NameOf(secret)); }

struct ParsedAddress {
  std::wstring canonical;  // as adapters show it
  bool isPrivate = false;
};

bool IsPrivate(const IN_ADDR& address) {
  const auto& b = address.S_un.S_un_b;
  return b.s_b1 == 10 || (b.s_b1 == 172 && (b.s_b2 & 0xf0) == 16) || (b.s_b1 == 192 && b.s_b2 == 168) ||
         (b.s_b1 == 169 && b.s_b2 == 254);
}

// One whose second half is made of a physical address tells that.
bool IsPrivate(const IN6_ADDR& address) {
  const auto& b = address.u.Byte;
  const bool isLocal = (b[0] == 0xfe && (b[1] & 0xc0) == 0x80) || (b[0] & 0xfe) == 0xfc;
  return isLocal && !(b[11] == 0xff && b[12] == 0xfe);
}

std::optional<ParsedAddress> ParseIpv4(const IN_ADDR& address) {
  wchar_t text[INET6_ADDRSTRLEN];
  return ParsedAddress{::InetNtopW(AF_INET, &address, text, std::size(text)), IsPrivate(address)};
}

// Decimal numbers with dots; leading zeros are those of a person who has aligned them.
std::optional<IN_ADDR> ReadDotted(const std::wstring& text) {
  IN_ADDR address{};
  unsigned char* const bytes = &address.S_un.S_un_b.s_b1;
  std::size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    unsigned number = 0;
    const std::size_t start = at;
    for (; at < text.size() && text[at] >= L'0' && text[at] <= L'9' && at - start < 3; ++at)
      number = number * 10 + (text[at] - L'0');
    if (at == start || number > 255) return std::nullopt;
    bytes[i] = static_cast<unsigned char>(number);
    if (i == 3) break;
    if (at == text.size() || text[at] != L'.') return std::nullopt;
    ++at;
  }
  return at == text.size() ? std::optional(address) : std::nullopt;
}

std::optional<ParsedAddress> ParseAddress(const std::wstring& text) {
  if (const std::optional<IN_ADDR> v4 = ReadDotted(text)) return ParseIpv4(*v4);
  const std::optional<IN6_ADDR> v6 = ReadIpv6(text);
  if (!v6) return std::nullopt;
  if (IN6_IS_ADDR_V4MAPPED(&*v6)) {
    IN_ADDR v4{};
    std::copy_n(v6->u.Byte + 12, 4, &v4.S_un.S_un_b.s_b1);
    return ParseIpv4(v4);
  }
  wchar_t shown[INET6_ADDRSTRLEN];
  return ParsedAddress{::InetNtopW(AF_INET6, &*v6, shown, std::size(shown)), IsPrivate(*v6)};
}

std::vector<std::wstring> SplitAt(const std::wstring& text, wchar_t delimiter) {
  std::vector<std::wstring> pieces(1);
  for (const wchar_t unit : text)
    if (unit == delimiter)
      pieces.emplace_back();
    else
      pieces.back() += unit;
  return pieces;
}

template <typename Replace>
std::wstring Joined(const std::vector<std::wstring>& pieces, wchar_t delimiter, Replace replace) {
  std::wstring joined;
  for (std::size_t i = 0; i < pieces.size(); ++i)
    joined += (i == 0 ? L"" : std::wstring(1, delimiter)) + replace(pieces[i]);
  return joined;
}

}  // namespace

const char* NameOf(Secret secret) { return kSecretNames[static_cast<std::size_t>(secret)].prefix; }

bool IsHive(const std::wstring& text) {
  constexpr std::wstring_view kHives[] = {L"HKEY_LOCAL_MACHINE",
                                          L"HKEY_CLASSES_ROOT",
                                          L"HKEY_CURRENT_USER",
                                          L"HKEY_USERS",
                                          L"HKEY_CURRENT_CONFIG",
                                          L"HKLM",
                                          L"HKCR",
                                          L"HKCU",
                                          L"HKU"};
  return std::any_of(std::begin(kHives), std::end(kHives),
                     [&](std::wstring_view hive) { return EqualsIgnoringAsciiCase(hive, text); });
}

// The system reads an IPv4 address at the end, too, but not behind every beginning: it is put into groups first.
std::optional<IN6_ADDR> ReadIpv6(const std::wstring& text) {
  std::wstring groups = text;
  if (const std::size_t start = text.rfind(L':') + 1; text.find(L'.', start) != std::wstring::npos) {
    const std::optional<IN_ADDR> v4 = ReadDotted(text.substr(start));
    if (!v4) return std::nullopt;
    const auto& b = v4->S_un.S_un_b;
    wchar_t hex[16];
    static_cast<void>(std::swprintf(hex, std::size(hex), L"%x%02x:%x%02x", b.s_b1, b.s_b2, b.s_b3, b.s_b4));
    groups = text.substr(0, start) + hex;
  }
  IN6_ADDR address{};
  return ::InetPtonW(AF_INET6, groups.c_str(), &address) == 1 ? std::optional(address) : std::nullopt;
}

std::wstring InLowerCase(std::wstring_view text) {
  std::wstring lower(text);
  const int size = static_cast<int>(text.size());
  if (size != 0 && ::LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, text.data(), size, lower.data(), size,
                                   nullptr, nullptr, 0) != size) {
    lower = text;
    LowerAscii(lower);
  }
  return lower;
}

std::string InWords(const std::vector<Redaction::Count>& counts) {
  std::string words;
  for (const Redaction::Count& count : counts) {
    const SecretName& name = kSecretNames[static_cast<std::size_t>(count.secret)];
    words += (words.empty() ? "" : ", ") + std::to_string(count.values) + " " +
             (count.values == 1 ? name.thing : name.things);
  }
  return words.empty() ? "nothing" : words;
}

Redaction::Redaction(Level level, const LocationSet& set, const MachineSnapshot& machine, const Identity& identity)
    : m_level(level), m_set(set), m_machine(machine) {
  if (IsOff()) return;
  // First of all what patterns are replaced by.
  for (const AdapterProps& adapter : machine.adapters) {
    std::wstring suffix = adapter.dnsSuffix;
    LowerAscii(suffix);
    for (std::wstring& label : SplitAt(suffix, L'.'))
      if (std::find(m_adapterLabels.begin(), m_adapterLabels.end(), label) == m_adapterLabels.end())
        m_adapterLabels.push_back(std::move(label));
  }

  for (AdapterProps& adapter : m_machine.adapters) adapter = Adapter(adapter);
  for (CQeLocation& location : m_set) {
    location.SetName(Replace(Secret::kLocation, location.Name()));
    location.SetId(Replace(Secret::kId, location.Id()));
    location.SetNote(Replace(Secret::kNote, location.Note()));
    CQeLocationCriterias criteria = location.Criterias();
    for (const CriterionKind& kind : kCriterionKinds) {
      std::vector<std::wstring> texts = criteria.Texts(kind.kind);
      for (std::wstring& text : texts)
        text = kind.kind == LCT_DNS_SUFFIX         ? Suffix(text)
               : kind.kind == LCT_REGISTRY_KEY     ? Registry(text)
               : kind.kind == LCT_DOMAIN_REACHABLE ? Host(text)
                                                   : Address(text);
      criteria.SetTexts(kind.kind, std::move(texts));
    }
    location.SetCriterias(std::move(criteria));
  }
  const auto answers = [](const MachineSnapshot::Answers& given, const auto& replace) {
    MachineSnapshot::Answers replaced;
    for (const auto& [text, answer] : given) replaced.emplace(replace(text), answer);
    return replaced;
  };
  m_machine.registry = answers(machine.registry, [this](const std::wstring& text) { return Registry(text); });
  m_machine.httpsHosts = answers(machine.httpsHosts, [this](const std::wstring& text) { return Host(text); });
  // What is known of a host's answer names nothing; of the others it names values and servers.
  m_machine.notes.clear();
  for (const auto& [asked, note] : machine.notes) {
    const auto& [kind, text] = asked;
    if (kind == LCT_DOMAIN_REACHABLE)
      m_machine.notes[{kind, Host(text)}] = note;
    else
      m_machine.notes[{kind, kind == LCT_REGISTRY_KEY ? Registry(text) : text}] = {note.took, {}, {}};
  }
  m_machine.machine = Replace(Secret::kMachine, machine.machine);

  Replace(Secret::kMachine, identity.machine);
  Replace(Secret::kUser, identity.user);
  Replace(Secret::kDomain, identity.domain);
  Replace(Secret::kSid, identity.sid);
  Suffix(identity.dnsDomain);
}

// What is compared without regard to letter case or spelling has one number. Exact texts never get the same
// placeholder, since what is compared exactly must stay different.
std::wstring Redaction::Numbered(Secret secret, const std::wstring& canonical, const std::wstring& exact) {
  auto& values = m_values[static_cast<std::size_t>(secret)];
  Value& value = values.try_emplace(canonical, Value{values.size() + 1, {}}).first->second;
  // An address that adapters show is the one without a spelling, whichever comes first.
  if (value.spellings.empty() && secret == Secret::kAddress) value.spellings.push_back(canonical);
  auto spelling = std::find(value.spellings.begin(), value.spellings.end(), exact);
  if (spelling == value.spellings.end()) spelling = value.spellings.insert(spelling, exact);
  const auto place = spelling - value.spellings.begin() + 1;
  std::wstring placeholder = Prefix(secret) + L"-" + std::to_wstring(value.number);
  if (place > 1) placeholder += L"-SPELLING-" + std::to_wstring(place);
  Know(exact, placeholder);
  return placeholder;
}

void Redaction::Know(const std::wstring& text, const std::wstring& placeholder) {
  m_known.try_emplace(InLowerCase(text), placeholder);
}

std::wstring Redaction::Replace(Secret secret, const std::wstring& text) {
  if (IsOff() || text.empty()) return text;
  if (secret != Secret::kMac) return Numbered(secret, InLowerCase(text), text);
  std::wstring digits;
  for (const wchar_t unit : InLowerCase(text))
    if (unit != L'-' && unit != L':' && unit != L'.') digits += unit;
  const std::wstring placeholder = Numbered(secret, digits, digits);
  Know(text, placeholder);
  return placeholder;
}

std::wstring Redaction::Suffix(const std::wstring& text) {
  if (IsOff() || text.empty()) return text;
  std::wstring replaced = Joined(SplitAt(text, L'.'), L'.', [this](const std::wstring& label) { return Label(label); });
  Know(text, replaced);
  return replaced;
}

// As the library compares them: without regard to the case of ASCII letters alone.
std::wstring Redaction::Label(const std::wstring& label) {
  if (label.empty() || label == L"*") return label;
  std::wstring lower = label;
  LowerAscii(lower);
  return lower.find(L'*') != std::wstring::npos ? Pattern(lower) : Numbered(Secret::kLabel, lower, lower);
}

// "(PATTERN-1-*|LABEL-2)" agrees with LABEL-2 and with no other placeholder, and holds a "*" as every pattern does.
std::wstring Redaction::Pattern(const std::wstring& label) {
  const std::wstring none = Numbered(Secret::kPattern, label, label) + L"-*";
  std::wstring alternatives;
  bool agreesWithNone = false;
  for (const std::wstring& shown : m_adapterLabels) {
    if (!DnsSuffixMatches(label, shown)) continue;
    if (shown.empty())
      agreesWithNone = true;
    else
      alternatives += L"|" + Label(shown);
  }
  if (agreesWithNone) return L"(" + none + alternatives + L")?";
  return alternatives.empty() ? none : L"(" + none + alternatives + L")";
}

std::wstring Redaction::Address(const std::wstring& text) {
  if (IsOff() || text.empty()) return text;
  const std::size_t percent = std::min(text.find(L'%'), text.size());
  const std::wstring zone = text.substr(percent);
  const bool isZone = zone.size() != 1 && zone.find_first_not_of(L"0123456789", 1) == std::wstring::npos;
  const std::wstring bare = text.substr(0, percent);
  const std::optional<ParsedAddress> address = isZone ? ParseAddress(bare) : std::nullopt;
  if (!address) return Numbered(Secret::kText, InLowerCase(text), text);
  if (m_level == Level::kNames && address->isPrivate) return text;
  return Numbered(Secret::kAddress, address->canonical, bare) + zone;
}

std::wstring Redaction::Host(const std::wstring& text) {
  if (IsOff() || text.empty()) return text;
  return ParseAddress(text) ? Address(text) : Numbered(Secret::kHost, InLowerCase(text), text);
}

std::wstring Redaction::KeyPath(const std::wstring& path) {
  return Joined(SplitAt(path, L'\\'), L'\\', [this](const std::wstring& key) { return Replace(Secret::kKey, key); });
}

// The form stays: hive, backslashes and equals signs.
std::wstring Redaction::Registry(const std::wstring& criterion) {
  if (IsOff()) return criterion;
  std::vector<std::wstring> fields = SplitAt(criterion, L'=');
  const std::wstring key = fields.front();
  fields.erase(fields.begin());
  std::wstring replaced;
  const std::size_t first = key.find(L'\\');
  if (first == std::wstring::npos) {
    replaced = IsHive(key) ? key : Replace(Secret::kKey, key);
  } else {
    const std::size_t last = key.rfind(L'\\');
    const std::wstring hive = key.substr(0, first);
    replaced = (IsHive(hive) ? hive : Replace(Secret::kKey, hive)) + L"\\";
    if (last > first) replaced += KeyPath(key.substr(first + 1, last - first - 1)) + L"\\";
    replaced += Replace(Secret::kValue, key.substr(last + 1));
  }
  for (const std::wstring& data : fields) replaced += L"=" + Replace(Secret::kData, data);
  return replaced;
}

AdapterProps Redaction::Adapter(const AdapterProps& adapter) {
  AdapterProps replaced = adapter;
  if (IsOff()) return replaced;
  replaced.description = Replace(Secret::kAdapter, adapter.description);
  replaced.dnsSuffix = Suffix(adapter.dnsSuffix);
  for (std::wstring& mac : replaced.macAddresses) mac = Replace(Secret::kMac, mac);
  for (auto* const list : {&replaced.gateways, &replaced.ipAddresses, &replaced.dnsServers})
    for (std::wstring& address : *list) address = Address(address);
  for (std::wstring* const address :
       {&replaced.dhcpServer, &replaced.dhcpV6Server, &replaced.winsPrimary, &replaced.winsSecondary})
    *address = Address(*address);
  return replaced;
}

std::wstring Redaction::FreeText(std::wstring_view text) {
  return IsOff() ? std::wstring(text) : RedactedText(*this, m_known, text);
}

std::vector<Redaction::Count> Redaction::Counts() const {
  std::vector<Count> counts;
  for (std::size_t i = 0; i < kSecrets; ++i)
    if (!m_values[i].empty()) counts.push_back({static_cast<Secret>(i), m_values[i].size()});
  return counts;
}
