#include "AdapterChanges.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "Text.h"

namespace {

using List = std::vector<std::wstring>;

struct ComparedField {
  const char* member;
  const char* title;
  enum class Form { kList, kText, kSwitch } form;
  List (*values)(const AdapterProps& adapter);
};

template <std::wstring AdapterProps::* kText>
List TextOf(const AdapterProps& adapter) {
  return (adapter.*kText).empty() ? List() : List{adapter.*kText};
}

template <List AdapterProps::* kList>
List ListOf(const AdapterProps& adapter) {
  return adapter.*kList;
}

List DhcpOf(const AdapterProps& adapter) { return adapter.dhcpEnabled ? List{L"on"} : List(); }

using Form = ComparedField::Form;
constexpr ComparedField kFields[] = {
    {"ipAddresses", "address", Form::kList, ListOf<&AdapterProps::ipAddresses>},
    {"gateways", "default gateway", Form::kList, ListOf<&AdapterProps::gateways>},
    {"dhcpEnabled", "DHCP", Form::kSwitch, DhcpOf},
    {"dhcpServer", "DHCP server", Form::kText, TextOf<&AdapterProps::dhcpServer>},
    {"dhcpV6Server", "DHCPv6 server", Form::kText, TextOf<&AdapterProps::dhcpV6Server>},
    {"dnsSuffix", "DNS suffix", Form::kText, TextOf<&AdapterProps::dnsSuffix>},
    {"dnsServers", "DNS server", Form::kList, ListOf<&AdapterProps::dnsServers>},
    {"winsPrimary", "primary WINS server", Form::kText, TextOf<&AdapterProps::winsPrimary>},
    {"winsSecondary", "secondary WINS server", Form::kText, TextOf<&AdapterProps::winsSecondary>},
};

const AdapterProps kNoAdapter;

AdapterChange Compare(AdapterChange::What what, const AdapterProps& before, const AdapterProps& after) {
  const AdapterProps& named = what == AdapterChange::What::kAppeared ? after : before;
  AdapterChange change{what, named.ifIndex, named.description, {}};
  for (const ComparedField& field : kFields) {
    List was = field.values(before);
    List is = field.values(after);
    if (was != is) change.fields.push_back({field.member, field.title, std::move(was), std::move(is)});
  }
  return change;
}

bool IsSame(const AdapterProps& left, const AdapterProps& right) {
  return left.ifIndex == right.ifIndex && left.description == right.description;
}

bool IsEqual(const AdapterProps& left, const AdapterProps& right) {
  return IsSame(left, right) && Compare(AdapterChange::What::kChanged, left, right).fields.empty();
}

// For each adapter of before the position of its successor.
std::vector<std::optional<std::size_t>> Pair(const std::vector<AdapterProps>& before,
                                             const std::vector<AdapterProps>& after) {
  std::vector<std::optional<std::size_t>> successor(before.size());
  std::vector<bool> taken(after.size());
  // Where several are called the same, those first that have stayed as they were.
  for (const auto fits : {IsEqual, IsSame})
    for (std::size_t i = 0; i < before.size(); ++i)
      for (std::size_t j = 0; j < after.size() && !successor[i]; ++j)
        if (!taken[j] && fits(before[i], after[j])) {
          successor[i] = j;
          taken[j] = true;
        }
  return successor;
}

const ComparedField& FieldOf(const AdapterChange::Field& field) {
  return *std::find_if(std::begin(kFields), std::end(kFields) - 1,
                       [&](const ComparedField& one) { return std::string_view(one.member) == field.member; });
}

std::string ValuesInWords(const ComparedField& field, const List& values) {
  if (values.empty()) return field.form == Form::kSwitch ? "off" : "none";
  std::string words;
  for (const std::wstring& value : values) words += (words.empty() ? "" : " and ") + Printable(value);
  return words;
}

Json ValuesAsJson(const ComparedField& field, const List& values) {
  if (field.form == Form::kSwitch) return !values.empty();
  if (field.form == Form::kText) return values.empty() ? std::string() : ToUtf8(values[0]);
  return Texts(values);
}

}  // namespace

std::vector<AdapterChange> ChangesBetween(const std::vector<AdapterProps>& before,
                                          const std::vector<AdapterProps>& after) {
  const auto successor = Pair(before, after);
  std::vector<AdapterChange> changes;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const std::optional<std::size_t>& j = successor[i];
    AdapterChange change = j ? Compare(AdapterChange::What::kChanged, before[i], after[*j])
                             : Compare(AdapterChange::What::kGone, before[i], kNoAdapter);
    if (!j || !change.fields.empty()) changes.push_back(std::move(change));
  }
  for (std::size_t j = 0; j < after.size(); ++j)
    if (std::find(successor.begin(), successor.end(), j) == successor.end())
      changes.push_back(Compare(AdapterChange::What::kAppeared, kNoAdapter, after[j]));
  return changes;
}

std::string InWords(const AdapterChange& change) {
  using What = AdapterChange::What;
  std::string words;
  for (const AdapterChange::Field& changed : change.fields) {
    const ComparedField& field = FieldOf(changed);
    words += (words.empty() ? "" : ", ") + std::string(field.title) + " ";
    if (change.what != What::kAppeared) words += ValuesInWords(field, changed.before);
    if (change.what == What::kChanged) words += " -> ";
    if (change.what != What::kGone) words += ValuesInWords(field, changed.after);
  }
  const char* const what = change.what == What::kGone ? " is gone" : change.what == What::kAppeared ? " appeared" : "";
  return "adapter " + std::to_string(change.ifIndex) + " (" + Printable(change.description) + ")" + what +
         (words.empty() ? "" : ": " + words);
}

Json ToJson(const std::vector<AdapterChange>& changes) {
  constexpr const char* kWhat[] = {"appeared", "gone", "changed"};
  Json list = Json::array();
  for (const AdapterChange& change : changes) {
    Json fields = Json::object();
    for (const AdapterChange::Field& changed : change.fields) {
      const ComparedField& field = FieldOf(changed);
      fields[field.member] = {{"before", ValuesAsJson(field, changed.before)},
                              {"after", ValuesAsJson(field, changed.after)}};
    }
    list.push_back({{"index", change.ifIndex},
                    {"description", ToUtf8(change.description)},
                    {"what", kWhat[static_cast<std::size_t>(change.what)]},
                    {"fields", std::move(fields)}});
  }
  return list;
}
