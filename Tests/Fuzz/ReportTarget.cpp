// Reports: their pages carry a machine and a set as data, which come out of every page as they were put in, and out of
// no other bytes.
#include <string>

#include "Tests/Fuzz/FuzzText.h"
#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/ReportFile.h"

namespace {

constexpr const wchar_t* kFile = L"report.html";

// A text that JSON can hold.
std::wstring Text(FuzzChoices& choices) {
  std::wstring text = ToWide(ToUtf8(FuzzText(choices.Bytes(choices.Below(24)))));
  return text.substr(0, text.find(L'\0'));
}

void RequireReadBack(FuzzChoices& choices) {
  Report report;
  report.made = "now";
  report.machine.machine = L"pc" + Text(choices);
  AdapterProps adapter;
  adapter.description = Text(choices);
  adapter.dnsSuffix = Text(choices);
  report.machine.adapters = {adapter};
  CQeLocation location = CQeLocation::ToBeRead();
  location.SetId(L"id" + Text(choices));
  location.SetName(Text(choices));
  location.SetNote(Text(choices));
  report.set = {location};
  report.logs = {{"a.log", ToUtf8(Text(choices))}};
  const std::string page = ReportPage(report);
  if (!IsReport(page)) FuzzFail("a report that does not look like one");
  RequirePage(page);
  const MachineSnapshot machine = MachineInReport(page, kFile);
  if (machine.machine != report.machine.machine || machine.adapters.size() != 1 ||
      RenderAdapterProps(machine.adapters[0]) != RenderAdapterProps(adapter))
    FuzzFail("another machine than was put in");
  if (EncodeSet(SetInReport(page, kFile)) != EncodeSet(report.set)) FuzzFail("another set than was put in");
}

template <typename Read>
bool IsRead(Read read) {
  try {
    read();
    return true;
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, "report.html: ");
    return false;
  }
}

void Run(FuzzInput input) {
  FuzzChoices choices(input);
  if (choices.Flip()) {
    RequireReadBack(choices);
    return FuzzKind(4);
  }
  const std::string bytes = FuzzBytes(choices.Rest());
  std::uint32_t kind = IsReport(bytes) ? 1 : 0;
  if (IsRead([&] { MachineInReport(bytes, kFile); })) kind += 2;
  if (IsRead([&] { SetInReport(bytes, kFile); })) kind += 8;
  FuzzKind(kind);
}

const FuzzTarget g_target("report", Run,
                          {"<script type=\"application/json\" id=\"qela-machine\">\n",
                           "<script type=\"application/json\" id=\"qela-locations\">\n", "</script>", "<!--", "]]>",
                           R"({"schema":1,"recorded":"t","adapters":[]})", R"({"schema":1,"locations":[]})", "\\u003c",
                           "&lt;", "<", "\xe2\x80\xa8", "\xed\xa0\x80"});

}  // namespace
