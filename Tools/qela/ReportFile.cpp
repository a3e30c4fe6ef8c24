#include "ReportFile.h"

#include <string_view>

#include "CommandError.h"
#include "FileBytes.h"
#include "Html.h"
#include "LocationSetFile.h"
#include "Text.h"

namespace {

constexpr std::string_view kMachine = "qela-machine";
constexpr std::string_view kLocations = "qela-locations";
constexpr std::string_view kDataEnd = "</script>";

std::string DataBeginning(std::string_view id) {
  return "<script type=\"application/json\" id=\"" + std::string(id) + "\">";
}

// No text of the data ends the element: it holds no "<".
std::string Data(std::string_view id, const std::string& json) {
  std::string html = DataBeginning(id) + "\n";
  for (const char letter : json)
    if (letter == '<')
      html += "\\u003c";
    else
      html += letter;
  return html + std::string(kDataEnd) + "\n";
}

std::string DataIn(const std::string& bytes, std::string_view id, const std::wstring& path) {
  const std::string beginning = DataBeginning(id);
  const std::size_t begin = bytes.find(beginning);
  const std::size_t end = begin == std::string::npos ? begin : bytes.find(kDataEnd, begin);
  if (end == std::string::npos || bytes.find(beginning, begin + 1) != std::string::npos)
    throw CommandError(kFailed,
                       ShownFileName(path) + ": it is no whole report of qela's; write it again with \"qela report\"");
  return bytes.substr(begin + beginning.size(), end - begin - beginning.size());
}

std::string Paragraph(const std::string& text) { return "<p>" + EscapeHtml(text) + "</p>\n"; }

std::string Row(const std::vector<std::string>& cells) {
  std::string row = "<tr>";
  for (const std::string& cell : cells) row += "<td>" + cell + "</td>";
  return row + "</tr>\n";
}

std::string Table(const std::vector<std::string>& heads, const std::string& rows) {
  std::string head;
  for (const std::string& each : heads) head += "<th scope=\"col\">" + each + "</th>";
  return "<div class=\"wide\"><table><thead><tr>" + head + "</tr></thead><tbody>\n" + rows + "</tbody></table></div>\n";
}

std::string Classed(const std::string& className, const std::string& text) {
  return "<span class=\"" + className + "\">" + EscapeHtml(text) + "</span>";
}

std::string Replaced(const std::vector<Redaction::Count>& counts) {
  std::string rows;
  for (const Redaction::Count& count : counts)
    rows += Row({std::string(NameOf(count.secret)) + "-1 …", EscapeHtml(InWords({count}))});
  return counts.empty() ? Paragraph("Nothing was replaced.") : Table({"Placeholder", "In the place of"}, rows);
}

std::string Checks(const std::vector<Check>& checks) {
  std::string rows;
  for (const Check& check : checks)
    rows += Row({Classed(NameOf(check.result), NameOf(check.result)), EscapeHtml(check.name), EscapeHtml(check.found),
                 EscapeHtml(check.advice)});
  return Table({"Result", "Check", "Found", "What to do"}, rows);
}

std::string Verdicts(const std::vector<LocationExplanation>& locations) {
  std::string rows;
  std::string texts;
  for (const LocationExplanation& location : locations) {
    const std::string verdict = !location.isEnabled                        ? Classed("soft", "disabled")
                                : location.verdict == Verdict::kCurrent    ? Classed("ok", "current")
                                : location.verdict == Verdict::kNotCurrent ? Classed("error", "not current")
                                                                           : Classed("warn", "unknown");
    rows += Row({EscapeHtml(Printable(location.name)), verdict, EscapeHtml(location.sentence)});
    texts += "<pre>" + EscapeHtml(ToText(location)) + "</pre>\n";
  }
  return locations.empty() ? Paragraph("No location is stored.") : Table({"Location", "Now", "Why"}, rows) + texts;
}

}  // namespace

std::string ReportPage(const Report& report) {
  std::string html = HtmlBeginning("qela report, " + report.made);
  for (const std::string& sentence : report.about) html += Paragraph(sentence);
  html += "<h2>Checks</h2>\n" + Checks(report.checks);
  html += "<h2>Locations</h2>\n" + Verdicts(report.locations);
  html += "<h2>Machine</h2>\n<pre>";
  for (const AdapterProps& adapter : report.machine.adapters) {
    std::string text = ToUtf8(RenderAdapterProps(adapter));
    text.erase(0, text.find_first_not_of('\n'));
    html += EscapeHtml(text) + "\n";
  }
  html += "</pre>\n";
  for (const Report::Log& log : report.logs)
    html += "<h2>End of " + EscapeHtml(log.name) + "</h2>\n<pre>" + EscapeHtml(log.text) + "</pre>\n";
  html += "<h2>What was replaced</h2>\n" + Replaced(report.replaced);
  html += Data(kMachine, MachineAsJson(report.machine, false)) + Data(kLocations, SetAsJson(report.set));
  return html + std::string(HtmlEnd());
}

bool IsReport(const std::string& bytes) { return bytes.find(DataBeginning(kMachine)) != std::string::npos; }

MachineSnapshot MachineInReport(const std::string& bytes, const std::wstring& path) {
  return ParseMachine(DataIn(bytes, kMachine, path), path);
}

LocationSet SetInReport(const std::string& bytes, const std::wstring& path) {
  return ParseSetFile(DataIn(bytes, kLocations, path), ShownFileName(path));
}
