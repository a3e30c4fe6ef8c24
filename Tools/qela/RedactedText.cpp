#include "RedactedText.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "LibraryMessages.h"
#include "Text.h"

namespace {

constexpr auto kNowhere = std::wstring_view::npos;

bool IsDigit(wchar_t unit) { return unit >= L'0' && unit <= L'9'; }
bool IsHex(wchar_t unit) { return IsDigit(unit) || (unit >= L'a' && unit <= L'f') || (unit >= L'A' && unit <= L'F'); }
// Of words in any script.
bool IsLetter(wchar_t unit) {
  return (unit >= L'a' && unit <= L'z') || (unit >= L'A' && unit <= L'Z') || (unit >= 0xc0 && unit < 0x2000) ||
         unit >= 0x2c00;
}
bool IsWord(wchar_t unit) { return IsLetter(unit) || IsDigit(unit); }
bool IsBlank(wchar_t unit) { return unit <= L' ' || unit == 0xa0; }
// What stands around names rather than in them.
bool IsQuote(wchar_t unit) { return unit == L'"' || unit == L'\'' || unit == L'<' || unit == L'>' || unit == L'|'; }

wchar_t At(std::wstring_view text, std::size_t at) { return at < text.size() ? text[at] : L'\0'; }

// A text as it stands, or with its escapes resolved, and where each unit comes from.
struct View {
  View(std::wstring_view source, bool isUnescaped) {
    for (std::size_t i = 0; i < source.size();) {
      starts.push_back(i);
      const std::size_t length = isUnescaped ? EscapeAt(source, i) : 0;
      if (length == 0)
        text += source[i++];
      else
        i += length;
    }
    starts.push_back(source.size());
  }

  std::wstring text;
  std::vector<std::size_t> starts;

 private:
  // Appends what an escape stands for, and answers with its length; 0 for none.
  std::size_t EscapeAt(std::wstring_view source, std::size_t at) {
    if (source[at] != L'\\') return 0;
    constexpr std::wstring_view kEscaped = L"\\/\"nrt";
    constexpr std::wstring_view kMeant = L"\\/\"\n\r\t";
    const wchar_t next = At(source, at + 1);
    if (const std::size_t which = kEscaped.find(next); which != kNowhere) {
      text += kMeant[which];
      return 2;
    }
    constexpr std::size_t kDigits = 4;
    if (next != L'u' || at + 2 + kDigits > source.size()) return 0;
    const std::wstring digits(source.substr(at + 2, kDigits));
    if (!std::all_of(digits.begin(), digits.end(), IsHex)) return 0;
    text += static_cast<wchar_t>(std::stoul(digits, nullptr, 16));
    return 2 + kDigits;
  }
};

struct Hit {
  std::size_t begin;
  std::size_t end;
  std::wstring placeholder;
};
using Hits = std::vector<Hit>;

// A text in pieces; placeholders are not looked at again.
class Pieces {
 public:
  explicit Pieces(std::wstring_view text) { m_pieces.push_back({std::wstring(text), false}); }

  // The hits of one piece come in the order of their beginnings; where they overlap, all of it is replaced.
  void Replace(bool isUnescaped, const std::function<Hits(const std::wstring& text)>& find) {
    std::vector<Piece> pieces;
    for (Piece& piece : m_pieces) {
      if (piece.isPlaceholder) {
        pieces.push_back(std::move(piece));
        continue;
      }
      const View view(piece.text, isUnescaped);
      std::size_t done = 0;
      for (Hit& hit : find(view.text)) {
        const std::size_t begin = std::max(view.starts[hit.begin], done);
        const std::size_t end = view.starts[hit.end];
        if (end <= begin) continue;
        if (begin > done) pieces.push_back({piece.text.substr(done, begin - done), false});
        pieces.push_back({std::move(hit.placeholder), true});
        done = end;
      }
      if (done < piece.text.size()) pieces.push_back({piece.text.substr(done), false});
    }
    m_pieces = std::move(pieces);
  }

  std::wstring Text() const {
    std::wstring text;
    for (const Piece& piece : m_pieces) text += piece.text;
    return text;
  }

 private:
  struct Piece {
    std::wstring text;
    bool isPlaceholder;
  };
  std::vector<Piece> m_pieces;
};

// Where the library's messages name something. What stands between the two texts, or else up to the end of the line.
struct Phrase {
  std::wstring_view before;
  std::wstring_view after;
  enum class Names { kSecret, kSuffix, kAddress, kHost, kServers, kKeyPath } names;
  Secret secret = Secret::kText;  // of kSecret
};
using Names = Phrase::Names;
constexpr Phrase kPhrases[] = {
    {L"checking location ", {}, Names::kSecret, Secret::kLocation},
    {L"Adding current location ID ", {}, Names::kSecret, Secret::kId},
    {L" for location ", L"...", Names::kSecret, Secret::kLocation},
    {L" with description ", L". Hence this adapter", Names::kSecret, Secret::kAdapter},
    {L" and description ", L". Hence this adapter", Names::kSecret, Secret::kAdapter},
    {L" and description ", {}, Names::kSecret, Secret::kAdapter},
    {L"The Adapter ", L" has Media Type", Names::kSecret, Secret::kAdapter},
    {L"Description :", {}, Names::kSecret, Secret::kAdapter},
    {L"DNS Domain:", {}, Names::kSuffix},
    {L"DNS suffix : ", L" matched for adapter", Names::kSuffix},
    {L"Default gateway : ", L" matched for adapter", Names::kAddress},
    {L"DHCP server : ", L" matched for adapter", Names::kAddress},
    {L"DNS server : ", L" matched for adapter", Names::kAddress},
    {L"Primary WINS : ", L" matched for adapter", Names::kAddress},
    {L"Secondary WINS : ", L" matched for adapter", Names::kAddress},
    {L"able to match domain ", {}, Names::kHost},
    {L"calling DnsQuery on ", {}, Names::kHost},
    {L"CheckZeltReachability failed for ", {}, Names::kHost},
    {L"CheckZeltReachability succeeded for ", {}, Names::kHost},
    {L"found ZeltServerList value ", L" at the alternate", Names::kServers},
    {L"found ZeltServerList value ", {}, Names::kServers},
    {L"The registry key ", L" specified for the location", Names::kKeyPath},
    {L"The registry value ", L" does NOT match", Names::kSecret, Secret::kValue},
    {L"The registry value ", L" matches the specified", Names::kSecret, Secret::kValue},
    {L"awareness group value of ", {}, Names::kSecret, Secret::kData},
    {L"value in the registry for ", {}, Names::kSecret, Secret::kValue},
    {L"Send Request failed for ", L" errorCode", Names::kHost},
    {L"status code for ", L" ", Names::kHost},
    {L"Issuer id of required certifcate :", {}, Names::kSecret, Secret::kIssuer},
};

// Words of the messages tell nobody anything, even where a location has one as its name.
bool IsOfMessages(const std::wstring& text) {
  static const std::unordered_set<std::wstring> kWords = [] {
    std::unordered_set<std::wstring> words;
    for (const LibraryMessage& message : LibraryMessages()) {
      std::wstring word;
      for (const wchar_t unit : InLowerCase(ToWide(message.format)) + L" ") {
        if (IsWord(unit))
          word += unit;
        else if (!word.empty())
          words.insert(std::exchange(word, {}));
      }
    }
    return words;
  }();
  return kWords.contains(text);
}

class FreeText {
 public:
  FreeText(Redaction& redaction, const std::unordered_map<std::wstring, std::wstring>& known, std::wstring_view text)
      : m_redaction(redaction), m_known(known), m_isEscaped(text.find(L"\\n\\t") != kNowhere), m_pieces(text) {}

  std::wstring Redacted() {
    m_pieces.Replace(false, [this](const std::wstring& text) { return Arguments(text); });
    for (const bool isUnescaped : {true, false}) {
      // What begins with a backslash is an escape or the end of a path; only one of them in the same log.
      if (isUnescaped == m_isEscaped)
        m_pieces.Replace(isUnescaped, [this](const std::wstring& text) { return Paths(text); });
      m_pieces.Replace(isUnescaped, [this](const std::wstring& text) { return UrlsAndMail(text); });
    }
    IndexKnown();
    for (const bool isUnescaped : {true, false}) {
      m_pieces.Replace(isUnescaped, [this](const std::wstring& text) { return KnownTexts(text); });
      m_pieces.Replace(isUnescaped, [this](const std::wstring& text) { return Numbers(text); });
      m_pieces.Replace(isUnescaped, [this](const std::wstring& text) { return Hosts(text); });
    }
    return m_pieces.Text();
  }

 private:
  Hits Arguments(const std::wstring& text) {
    Hits hits;
    for (const Phrase& phrase : kPhrases)
      for (std::size_t at = text.find(phrase.before); at != kNowhere;) {
        const std::size_t begin = at + phrase.before.size();
        const std::size_t line = EndOfLine(text, begin);
        const std::size_t size = SizeOfArgument(text.substr(begin, line - begin), phrase);
        if (size != 0) hits.push_back({begin, begin + size, Argument(phrase, text.substr(begin, size))});
        at = text.find(phrase.before, line);
      }
    // Of two phrases with one beginning the first decides.
    std::stable_sort(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) { return a.begin < b.begin; });
    hits.erase(std::unique(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) { return a.begin == b.begin; }),
               hits.end());
    return hits;
  }

  // Of the message's own line, which a host may have escaped.
  static std::size_t EndOfLine(const std::wstring& text, std::size_t begin) {
    const std::size_t end = std::min(text.find_first_of(L"\r\n", begin), text.size());
    const std::wstring_view line = std::wstring_view(text).substr(begin, end - begin);
    return begin + std::min({line.size(), line.find(L"\\n\\t"), line.find(L"\\r\\n")});
  }

  // In what is left of the line; 0 for none.
  std::size_t SizeOfArgument(const std::wstring& rest, const Phrase& phrase) const {
    if (!phrase.after.empty()) {
      // What is named may hold the text that follows it; but a blank may come again.
      const std::size_t end = phrase.after == L" " ? rest.find(phrase.after) : rest.rfind(phrase.after);
      return end == kNowhere ? 0 : end;
    }
    // A host may write something behind the message.
    if (phrase.names == Names::kSecret)
      if (const std::optional<std::size_t> known = EndOfKnown(rest, phrase.secret)) return *known;
    return rest.ends_with(L'.') ? rest.size() - 1 : rest.size();
  }

  // Of the longest known text of the kind that the argument begins with.
  std::optional<std::size_t> EndOfKnown(const std::wstring& argument, Secret secret) const {
    constexpr std::size_t kMostUnits = 512;
    const std::wstring prefix = ToWide(NameOf(secret)) + L"-";
    for (std::size_t size = std::min(argument.size(), kMostUnits); size > 0; --size) {
      if (IsWord(At(argument, size)) && IsWord(argument[size - 1])) continue;
      const auto known = m_known.find(InLowerCase(Plain(argument.substr(0, size))));
      if (known != m_known.end() && known->second.starts_with(prefix)) return size;
    }
    return std::nullopt;
  }

  // An argument as it was logged.
  static std::wstring Plain(const std::wstring& argument) {
    return argument.find(L"\\\\") != kNowhere || argument.find(L"\\u") != kNowhere ? View(argument, true).text
                                                                                   : argument;
  }

  std::wstring Argument(const Phrase& phrase, const std::wstring& raw) {
    const std::wstring text = Plain(raw);
    switch (phrase.names) {
      case Names::kSuffix:
        return m_redaction.Suffix(text);
      case Names::kAddress:
        return m_redaction.Address(text);
      case Names::kHost:
        return m_redaction.Host(text);
      case Names::kKeyPath:
        return m_redaction.KeyPath(text);
      case Names::kServers:
        return Servers(text);
      case Names::kSecret:
        break;
    }
    return m_redaction.Replace(phrase.secret, text);
  }

  // Names and addresses between ";" and "|". What is a number is a port.
  std::wstring Servers(const std::wstring& text) {
    std::wstring replaced;
    std::wstring piece;
    for (const wchar_t unit : text + L";") {
      if (unit != L';' && unit != L'|') {
        piece += unit;
        continue;
      }
      const std::wstring server = std::exchange(piece, {});
      replaced += (std::all_of(server.begin(), server.end(), IsDigit) ? server : m_redaction.Host(server)) + unit;
    }
    replaced.pop_back();
    return replaced;
  }

  Hits UrlsAndMail(const std::wstring& text) {
    Hits hits;
    for (std::size_t i = 0; i < text.size(); ++i) {
      std::size_t begin = i;
      std::size_t end = i;
      Secret secret = Secret::kUrl;
      if (text.compare(i, 3, L"://") == 0) {
        while (begin > 0 && IsWord(text[begin - 1])) --begin;
        while (end < text.size() && !IsBlank(text[end]) && !IsQuote(text[end])) ++end;
      } else if (text[i] == L'@') {
        secret = Secret::kMail;
        const auto isOfMail = [](wchar_t unit) { return IsWord(unit) || (unit != 0 && std::wcschr(L".-_+%", unit)); };
        while (begin > 0 && isOfMail(text[begin - 1])) --begin;
        for (++end; isOfMail(At(text, end));) ++end;
        if (begin == i || end == i + 1) continue;
      } else {
        continue;
      }
      while (end > i + 1 && std::wcschr(L".,;:)", text[end - 1]) != nullptr) --end;
      if (!hits.empty()) begin = std::max(begin, hits.back().end);
      hits.push_back({begin, end, m_redaction.Replace(secret, text.substr(begin, end - begin))});
      i = end - 1;
    }
    return hits;
  }

  // Of a drive, a server, a hive, or "domain\user". One goes on over a blank when a backslash follows before it can
  // have ended: users' folders have their names.
  Hits Paths(const std::wstring& text) {
    constexpr std::size_t kFarthest = 64;
    Hits hits;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != L'\\' && !(text[i] == L'/' && IsDriveBefore(text, i))) continue;
      std::size_t begin = i;
      const std::size_t least = hits.empty() ? 0 : hits.back().end;
      if (i >= 2 && IsDriveBefore(text, i))
        begin = i - 2;
      else
        while (begin > least && IsOfPath(text[begin - 1])) --begin;
      std::size_t end = i;
      for (;;) {
        while (end < text.size() && (IsOfPath(text[end]) || text[end] == L'/')) ++end;
        std::size_t next = end;
        while (next < text.size() && next < end + kFarthest && (text[next] == L' ' || IsOfPath(text[next])) &&
               text[next] != L'\\')
          ++next;
        if (At(text, next) != L'\\' || next >= end + kFarthest) break;
        end = next;
      }
      while (end > begin && text[end - 1] == L'.') --end;
      const std::wstring path = text.substr(begin, end - begin);
      i = std::max(i, end - 1);
      if (std::any_of(path.begin(), path.end(), IsWord)) hits.push_back({begin, end, Path(path)});
    }
    return hits;
  }

  static bool IsOfPath(wchar_t unit) {
    return !IsBlank(unit) && !IsQuote(unit) && std::wcschr(L",;()=:[]{}*?/", unit) == nullptr;
  }
  static bool IsDriveBefore(const std::wstring& text, std::size_t at) {
    return at >= 2 && text[at - 1] == L':' && IsLetter(text[at - 2]) && (at < 3 || !IsWord(text[at - 3]));
  }

  std::wstring Path(const std::wstring& path) {
    return IsHive(path.substr(0, path.find(L'\\'))) ? m_redaction.Registry(path)
                                                    : m_redaction.Replace(Secret::kPath, path);
  }

  // By their first two units, the longest first. Addresses are found by their form, in every spelling.
  void IndexKnown() {
    for (const auto& [text, placeholder] : m_known) {
      const bool isNumber = std::all_of(text.begin(), text.end(), IsDigit);
      constexpr std::size_t kLeastDigits = 5;
      if (text.size() < 2 || (isNumber && text.size() < kLeastDigits) || IsOfMessages(text) ||
          placeholder.starts_with(L"ADDRESS-"))
        continue;
      m_index[{text[0], text[1]}].push_back({&text, &placeholder});
    }
    for (auto& [start, texts] : m_index)
      std::sort(texts.begin(), texts.end(),
                [](const Known& a, const Known& b) { return a.text->size() > b.text->size(); });
  }

  // Short ones only as words: they are in every text.
  Hits KnownTexts(const std::wstring& text) const {
    constexpr std::size_t kLongEnough = 6;
    const std::wstring lower = InLowerCase(text);
    Hits hits;
    std::size_t done = 0;
    for (std::size_t i = 0; i + 1 < lower.size(); ++i) {
      const auto texts = m_index.find({lower[i], lower[i + 1]});
      if (texts == m_index.end()) continue;
      for (const Known& known : texts->second) {
        const std::size_t end = i + known.text->size();
        if (end <= done || lower.compare(i, known.text->size(), *known.text) != 0) continue;
        const auto goesOn = [&](wchar_t edge, wchar_t neighbour) {
          return known.text->size() < kLongEnough ? IsWord(edge) && IsWord(neighbour)
                                                  : IsDigit(edge) && IsDigit(neighbour);
        };
        if ((i > 0 && goesOn(lower[i], lower[i - 1])) || goesOn(lower[end - 1], At(lower, end))) continue;
        hits.push_back({i, end, *known.placeholder});
        done = end;
        break;
      }
    }
    return hits;
  }

  // Physical addresses, UUIDs, SIDs and addresses.
  Hits Numbers(const std::wstring& text) {
    Hits hits;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (!IsHex(text[i]) && text[i] != L':' && text[i] != L'S' && text[i] != L's') continue;
      const bool isStart = i == 0 || !(IsWord(text[i - 1]) || text[i - 1] == L':');
      std::size_t end = i;
      std::wstring placeholder;
      const auto take = [&](std::size_t size, const auto& replace) {
        if (size == 0 || !placeholder.empty()) return;
        placeholder = replace(text.substr(i, size));
        end = i + size;
      };
      const auto as = [&](Secret secret) {
        return [this, secret](const std::wstring& found) { return m_redaction.Replace(secret, found); };
      };
      const auto asAddress = [this](const std::wstring& found) { return m_redaction.Address(found); };
      if (isStart) {
        take(SizeOfUuid(text, i), as(Secret::kId));
        take(SizeOfMac(text, i), as(Secret::kMac));
        take(SizeOfSid(text, i), as(Secret::kSid));
        take(SizeOfIpv6(text, i), asAddress);
      }
      if (IsDigit(text[i])) take(SizeOfIpv4(text, i), asAddress);
      if (end == i) continue;
      hits.push_back({i, end, std::move(placeholder)});
      i = end - 1;
    }
    return hits;
  }

  static std::size_t SizeOfUuid(const std::wstring& text, std::size_t at) {
    std::size_t size = 0;
    for (const std::size_t digits : {8U, 4U, 4U, 4U, 12U}) {
      if (size != 0) {
        if (At(text, at + size) != L'-') return 0;
        ++size;
      }
      for (std::size_t i = 0; i < digits; ++i)
        if (!IsHex(At(text, at + size++))) return 0;
    }
    return IsWord(At(text, at + size)) ? 0 : size;
  }

  static std::size_t SizeOfMac(const std::wstring& text, std::size_t at) {
    constexpr std::size_t kFewest = 6;
    constexpr std::size_t kMost = 8;
    const wchar_t separator = At(text, at + 2);
    if (separator == L'-' || separator == L':') {
      std::size_t bytes = 0;
      std::size_t size = 0;
      while (bytes <= kMost && IsHex(At(text, at + size)) && IsHex(At(text, at + size + 1))) {
        ++bytes;
        size += 2;
        if (At(text, at + size) != separator || !IsHex(At(text, at + size + 1))) break;
        ++size;
      }
      return bytes >= kFewest && bytes <= kMost && !IsWord(At(text, at + size)) ? size : 0;
    }
    // As network devices write it: 001a.2b3c.4d5e
    for (std::size_t i = 0; i < 14; ++i)
      if (i % 5 == 4 ? At(text, at + i) != L'.' : !IsHex(At(text, at + i))) return 0;
    return IsWord(At(text, at + 14)) ? 0 : 14;
  }

  static std::size_t SizeOfSid(const std::wstring& text, std::size_t at) {
    if (InLowerCase(text.substr(at, 4)) != L"s-1-") return 0;
    std::size_t end = at + 4;
    while (IsDigit(At(text, end)) || (At(text, end) == L'-' && IsDigit(At(text, end + 1)))) ++end;
    return end > at + 4 ? end - at : 0;
  }

  static std::size_t SizeOfIpv4(const std::wstring& text, std::size_t at) {
    if (at > 0 && (IsDigit(text[at - 1]) || (text[at - 1] == L'.' && at > 1 && IsDigit(text[at - 2])))) return 0;
    std::size_t end = at;
    for (int i = 0; i < 4; ++i) {
      if (i > 0 && At(text, end++) != L'.') return 0;
      const std::size_t start = end;
      while (IsDigit(At(text, end))) ++end;
      if (end == start || end - start > 3 || std::stoul(text.substr(start, end - start)) > 255) return 0;
    }
    return At(text, end) == L'.' && IsDigit(At(text, end + 1)) ? 0 : end - at;
  }

  // The longest address at this place; times and C++ names have colons, too.
  std::size_t SizeOfIpv6(const std::wstring& text, std::size_t at) {
    constexpr std::size_t kLongest = 45;
    std::size_t end = at;
    while (end < text.size() && end - at < kLongest && (IsHex(text[end]) || text[end] == L':' || text[end] == L'.'))
      ++end;
    if (std::count(text.begin() + static_cast<std::ptrdiff_t>(at), text.begin() + static_cast<std::ptrdiff_t>(end),
                   L':') < 2)
      return 0;
    for (; end > at + 2; --end) {
      const wchar_t next = At(text, end);
      const bool goesOn = IsWord(next) || next == L':' || (next == L'.' && IsDigit(At(text, end + 1)));
      if (!goesOn && ReadIpv6(text.substr(at, end - at))) return end - at;
    }
    return 0;
  }

  Hits Hosts(const std::wstring& text) {
    Hits hits;
    const auto isOfHost = [](wchar_t unit) { return IsWord(unit) || unit == L'.' || unit == L'-' || unit == L'_'; };
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (!isOfHost(text[i])) continue;
      std::size_t begin = i;
      while (i < text.size() && isOfHost(text[i])) ++i;
      std::size_t end = i;
      while (begin < end && !IsWord(text[begin])) ++begin;
      while (end > begin && !IsWord(text[end - 1])) --end;
      const std::wstring host = text.substr(begin, end - begin);
      if (LooksLikeHost(host)) hits.push_back({begin, end, m_redaction.Host(host)});
    }
    return hits;
  }

  // With a top-level domain, which the names of source files and programs do not have.
  static bool LooksLikeHost(const std::wstring& text) {
    constexpr std::wstring_view kEndsOfFiles[] = {L"cpp", L"h",   L"dll", L"exe",  L"log",  L"txt",
                                                  L"sys", L"pdb", L"ini", L"json", L"html", L"xml"};
    const std::size_t dot = text.rfind(L'.');
    if (dot == kNowhere || text.find(L"..") != kNowhere) return false;
    const std::wstring last = InLowerCase(text.substr(dot + 1));
    const bool isName = last.starts_with(L"xn--") || std::all_of(last.begin(), last.end(), IsLetter);
    return last.size() > 1 && isName &&
           std::find(std::begin(kEndsOfFiles), std::end(kEndsOfFiles), last) == std::end(kEndsOfFiles);
  }

  struct Known {
    const std::wstring* text;
    const std::wstring* placeholder;
  };
  struct PairHash {
    std::size_t operator()(const std::pair<wchar_t, wchar_t>& pair) const noexcept {
      return std::hash<std::uint32_t>()((std::uint32_t{pair.first} << 16) | pair.second);
    }
  };

  Redaction& m_redaction;
  const std::unordered_map<std::wstring, std::wstring>& m_known;
  const bool m_isEscaped;
  Pieces m_pieces;
  std::unordered_map<std::pair<wchar_t, wchar_t>, std::vector<Known>, PairHash> m_index;
};

}  // namespace

std::wstring RedactedText(Redaction& redaction, const std::unordered_map<std::wstring, std::wstring>& known,
                          std::wstring_view text) {
  return FreeText(redaction, known, text).Redacted();
}
