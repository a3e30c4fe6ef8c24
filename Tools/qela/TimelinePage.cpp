#include "TimelinePage.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <limits>

#include "Html.h"
#include "Text.h"

namespace {

using Place = Timeline::Place;

// What a browser still shows at once.
constexpr std::size_t kMostRows = 200;
constexpr std::size_t kMostLines = 5000;

// The picture's own units; it is scaled to the page's width.
constexpr double kWidth = 1000;
constexpr double kLeft = 190;  // of the plot, behind the labels
constexpr double kRight = 960;
constexpr double kTop = 6;
constexpr double kRowHeight = 30;
constexpr double kBarHeight = 18;
constexpr double kAxisHeight = 44;
constexpr double kLeastBar = 2;  // a moment is seen, too

constexpr const char* kPictureStyle =
    "<style>.picture{display:block;width:100%;min-width:40rem;font:13px system-ui,\"Segoe UI\",sans-serif}"
    ".picture text{fill:var(--text)}.picture .note{fill:var(--soft);font-size:12px}.picture .bar{fill:var(--bar)}"
    ".picture .many{opacity:.6}.picture .in-bar{fill:var(--on-bar);font-size:12px}.picture .gap{fill:url(#hatch)}"
    ".picture .hatch{stroke:var(--unknown);stroke-width:2}.picture .line{stroke:var(--line)}"
    ".picture .change{fill:var(--bar)}.picture .slow{fill:var(--warn)}.picture .unreported{fill:var(--error)}"
    "@media print{.picture{min-width:0}}</style>\n";

std::string Number(double number) {
  char text[32];
  static_cast<void>(std::snprintf(text, std::size(text), "%.1f", number));
  return text;
}

std::string Attribute(const char* name, double number) {
  return std::string(" ") + name + "=\"" + Number(number) + "\"";
}

std::string TitleElement(const std::string& words) { return "<title>" + EscapeHtml(words) + "</title>"; }

// Where a place is on the axis: by its time, or where the log's times do not serve by its calculation.
class Axis {
 public:
  struct Tick {
    double x;
    std::string label;
    std::string below;
  };

  explicit Axis(const Timeline& timeline) : m_timeline(timeline) {
    if (!timeline.hasTimes || !timeline.begin.time || !timeline.end.time) return;
    m_begin = *timeline.begin.time;
    m_totalMs = LogTime::MillisecondsBetween(m_begin, *timeline.end.time);
    m_isOfTime = m_totalMs > 0;
  }

  double X(const Place& place) const {
    const double share =
        m_isOfTime ? static_cast<double>(Since(place)) / static_cast<double>(m_totalMs)
                   : static_cast<double>(place.calculation - 1) / static_cast<double>(m_timeline.calculations);
    return kLeft + (kRight - kLeft) * std::clamp(share, 0.0, 1.0);
  }

  double Length(std::chrono::milliseconds time) const {
    return m_isOfTime ? (kRight - kLeft) * static_cast<double>(time.count()) / static_cast<double>(m_totalMs) : 0;
  }

  std::vector<Tick> Ticks() const { return m_isOfTime ? TicksOfTime() : TicksOfOrder(); }

  std::string Name() const {
    if (!m_isOfTime) return "calculation";
    return m_begin.offsetMinutes ? "UTC" + ToText(m_begin).substr(kZoneAt) : "time";
  }

 private:
  static constexpr std::int64_t kMostTicks = 7;
  static constexpr std::size_t kClockAt = 11;  // in ToText
  static constexpr std::size_t kZoneAt = 23;

  std::int64_t Since(const Place& place) const {
    return place.time ? LogTime::MillisecondsBetween(m_begin, *place.time) : 0;
  }

  std::vector<Tick> TicksOfTime() const {
    constexpr std::int64_t kSecond = 1000;
    constexpr std::int64_t kMinute = 60 * kSecond;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    constexpr std::int64_t kSteps[] = {1,
                                       2,
                                       5,
                                       10,
                                       20,
                                       50,
                                       100,
                                       200,
                                       500,
                                       kSecond,
                                       2 * kSecond,
                                       5 * kSecond,
                                       10 * kSecond,
                                       15 * kSecond,
                                       30 * kSecond,
                                       kMinute,
                                       2 * kMinute,
                                       5 * kMinute,
                                       10 * kMinute,
                                       15 * kMinute,
                                       30 * kMinute,
                                       kHour,
                                       2 * kHour,
                                       3 * kHour,
                                       6 * kHour,
                                       12 * kHour,
                                       kDay,
                                       2 * kDay,
                                       7 * kDay,
                                       14 * kDay};
    const auto found = std::find_if(std::begin(kSteps), std::end(kSteps),
                                    [&](std::int64_t step) { return m_totalMs / step <= kMostTicks; });
    std::int64_t step = found == std::end(kSteps) ? kSteps[std::size(kSteps) - 1] : *found;
    while (m_totalMs / step > kMostTicks) step *= 2;

    std::vector<Tick> ticks;
    const std::int64_t begin = m_begin.localMs;
    std::string day;
    for (std::int64_t ms = (begin + step - 1) / step * step; ms <= begin + m_totalMs; ms += step) {
      const std::string time = ToText(LogTime{ms, std::nullopt});
      const std::string date = time.substr(0, kClockAt - 1);
      const double x = kLeft + (kRight - kLeft) * static_cast<double>(ms - begin) / static_cast<double>(m_totalMs);
      if (step >= kDay)
        ticks.push_back({x, date, ""});
      else
        ticks.push_back({x,
                         time.substr(kClockAt, step < kSecond   ? 12
                                               : step < kMinute ? 8
                                                                : 5),
                         date == day ? "" : date});
      day = date;
    }
    return ticks;
  }

  std::vector<Tick> TicksOfOrder() const {
    std::uint64_t step = 1;
    for (std::uint64_t power = 1; m_timeline.calculations / step > kMostTicks; power *= 10)
      for (const std::uint64_t factor : {2U, 5U, 10U})
        if (m_timeline.calculations / step > kMostTicks) step = factor * power;
    std::vector<Tick> ticks;
    for (std::uint64_t calculation = step; calculation <= m_timeline.calculations; calculation += step) {
      Place place;
      place.calculation = calculation;
      ticks.push_back({X(place), std::to_string(calculation), ""});
    }
    return ticks;
  }

  const Timeline& m_timeline;
  LogTime m_begin;
  std::int64_t m_totalMs = 0;
  bool m_isOfTime = false;
};

class Picture {
 public:
  Picture(const Timeline& timeline, const FileNames& files) : m_timeline(timeline), m_files(files), m_axis(timeline) {}

  std::string Draw() {
    DrawMarks();
    const double locations = m_y;
    std::size_t shown = 0;
    for (const Timeline::Location& location : m_timeline.locations) {
      if (++shown > kMostRows) break;
      DrawLocation(location);
    }
    if (m_timeline.locations.empty()) Row("no location current", "No location is current in the log");
    const std::string behind = Gaps(locations) + Ticks();
    std::string picture = "<svg class=\"picture\" viewBox=\"0 0 " + Number(kWidth) + " " + Number(m_y + kAxisHeight) +
                          "\" role=\"img\" aria-labelledby=\"picture-title picture-text\">\n"
                          "<title id=\"picture-title\">When which location was current</title>\n"
                          "<desc id=\"picture-text\">" +
                          EscapeHtml(InOneSentence()) + "</desc>\n" + kPictureStyle +
                          "<defs><pattern id=\"hatch\" width=\"8\" height=\"8\" patternUnits=\"userSpaceOnUse\" "
                          "patternTransform=\"rotate(45)\"><line class=\"hatch\" y2=\"8\"/></pattern></defs>\n";
    return picture + behind + m_front + "</svg>\n";
  }

 private:
  // A label with the room of the first column, cut off where it is longer. Returns the row's middle.
  double Row(const std::string& label, const std::string& title) {
    m_front += "<svg x=\"0\"" + Attribute("y", m_y) + Attribute("width", kLeft - 10) + Attribute("height", kRowHeight) +
               "><text class=\"label\" x=\"2\"" + Attribute("y", kRowHeight / 2 + 4) + ">" + EscapeHtml(label) +
               TitleElement(title) + "</text></svg>\n";
    m_y += kRowHeight;
    return m_y - kRowHeight / 2;
  }

  // Marks, and bars too narrow to be seen, that stand so close that they could not be told apart are drawn as one. So a
  // row has a few hundred at most, and its end is shown like its beginning.
  struct Mark {
    double x;
    double end;
    std::string title;
    std::size_t count = 1;
  };
  static void AddMark(std::vector<Mark>& marks, Mark mark, double room) {
    if (marks.empty() || mark.x - marks.back().x >= room) {
      marks.push_back(std::move(mark));
    } else {
      ++marks.back().count;
      marks.back().end = std::max(marks.back().end, mark.end);
    }
  }
  static std::string TitleOf(const Mark& mark) {
    return TitleElement(mark.title +
                        (mark.count > 1 ? " (and " + std::to_string(mark.count - 1) + " more there)" : ""));
  }

  std::string At(const Place& place) const { return InWords(place) + " (" + LineInWords(place, m_files) + "): "; }

  // Three rows for what is no location; those that have nothing to show are left out.
  void DrawMarks() {
    DrawMarkedChanges(
        "adapters changed", [](const auto& change) { return !change.adapters.empty() || change.hasFailed; },
        [](const auto& change) {
          std::string words;
          for (const AdapterChange& adapter : change.adapters) words += (words.empty() ? "" : "; ") + InWords(adapter);
          return change.hasFailed ? std::string("no adapter was found") : words;
        },
        "m0-7l7 7-7 7-7-7z", "change");
    DrawMarkedChanges(
        "host not called", [](const auto& change) { return change.wasReported == false; },
        [](const auto&) { return std::string("the list of current locations changed, and the host was not called"); },
        "m-2-7h4v9h-4zm0 11h4v3h-4z", "unreported");
    if (m_timeline.slow.empty()) return;
    const double y = Row("slow calculation", "Calculations that took more than 2 s");
    std::vector<Mark> marks;
    for (const Timeline::Slow& slow : m_timeline.slow) {
      const double x = m_axis.X(slow.at);
      AddMark(marks, {x, x + m_axis.Length(slow.took), At(slow.at) + InWords(slow)}, kLeastBar);
    }
    for (const Mark& mark : marks) Bar("slow", mark, y);
  }

  void DrawMarkedChanges(const char* label, bool (*isShown)(const Timeline::Change&),
                         std::string (*words)(const Timeline::Change&), const char* shape, const char* name) {
    constexpr double kRoom = 5;
    std::vector<Mark> marks;
    for (const Timeline::Change& change : m_timeline.changes) {
      if (!isShown(change)) continue;
      const double x = m_axis.X(change.at);
      AddMark(marks, {x, x, At(change.at) + words(change)}, kRoom);
    }
    if (marks.empty()) return;
    const double y = Row(label, label);
    for (const Mark& mark : marks)
      m_front += std::string("<path class=\"") + name + "\" d=\"M" + Number(mark.x) + " " + Number(y) + shape + "\">" +
                 TitleOf(mark) + "</path>\n";
  }

  void Bar(const char* name, const Mark& mark, double y) {
    m_front += std::string("<rect class=\"") + name + "\" rx=\"2\"" + Attribute("x", mark.x) +
               Attribute("y", y - kBarHeight / 2) +
               Attribute("width", std::clamp(mark.end - mark.x, kLeastBar, kWidth - mark.x)) +
               Attribute("height", kBarHeight) + ">" + TitleOf(mark) + "</rect>\n";
  }

  void DrawLocation(const Timeline::Location& location) {
    constexpr std::size_t kMostLetters = 26;
    const std::string name = Printable(location.name);
    const double y = Row(
        location.name.size() > kMostLetters ? Printable(location.name.substr(0, kMostLetters - 1)) + "\u2026" : name,
        name);
    for (std::size_t i = 0; i < location.periods.size();) {
      const Timeline::Period& first = location.periods[i];
      Mark mark{m_axis.X(first.from), m_axis.X(first.to), name + " " + InWords(first)};
      const bool isNarrow = mark.end - mark.x < kLeastBar;
      std::size_t next = i + 1;
      for (; next < location.periods.size() && isNarrow; ++next) {
        const double end = m_axis.X(location.periods[next].to);
        const double begin = m_axis.X(location.periods[next].from);
        if (begin - mark.end >= kLeastBar || end - begin >= kLeastBar) break;
        mark.end = end;
      }
      mark.count = next - i;
      i = next;
      const Timeline::Period& last = location.periods[next - 1];
      Bar(mark.count > 1 ? "bar many" : "bar", mark, y);
      if (last.end == Timeline::Period::End::kOpen)
        m_front += "<path class=\"bar-end change\" d=\"M" + Number(std::max(mark.end, mark.x + kLeastBar)) + " " +
                   Number(y) + "m0-9l9 9-9 9z\">" + TitleElement(name + " " + InWords(last)) + "</path>\n";
      if (mark.count == 1) NameAdapters(first, mark, y);
    }
  }

  void NameAdapters(const Timeline::Period& period, const Mark& mark, double y) {
    constexpr double kLeastForText = 40;
    const double length = mark.end - mark.x;
    if (length < kLeastForText) return;
    std::string adapters;
    for (const Timeline::Adapter& adapter : period.adapters)
      adapters +=
          (adapters.empty() ? "" : ", ") + std::to_string(adapter.ifIndex) + " " + Printable(adapter.description);
    m_front += "<svg" + Attribute("x", mark.x) + Attribute("y", y - kBarHeight / 2) + Attribute("width", length - 4) +
               Attribute("height", kBarHeight) + "><text class=\"in-bar\" x=\"5\" y=\"13\">" + EscapeHtml(adapters) +
               TitleOf(mark) + "</text></svg>\n";
  }

  std::string Gaps(double top) {
    std::vector<Mark> marks;
    for (const Timeline::Gap& gap : m_timeline.gaps)
      AddMark(marks, {m_axis.X(gap.from), m_axis.X(gap.to), "not known, what else was current, " + InWords(gap)},
              kLeastBar);
    std::string gaps;
    for (const Mark& mark : marks)
      gaps += "<rect class=\"gap\"" + Attribute("x", mark.x) + Attribute("y", top) +
              Attribute("width", std::max(mark.end - mark.x, kLeastBar)) + Attribute("height", m_y - top) + ">" +
              TitleOf(mark) + "</rect>\n";
    return gaps;
  }

  std::string Ticks() const {
    std::string text = "<line class=\"axis line\"" + Attribute("x1", kLeft) + Attribute("x2", kRight) +
                       Attribute("y1", m_y) + Attribute("y2", m_y) + "/>\n<text class=\"note\" x=\"2\"" +
                       Attribute("y", m_y + 18) + ">" + m_axis.Name() + "</text>\n";
    for (const Axis::Tick& tick : m_axis.Ticks()) {
      const auto label = [&](double down, const std::string& words) {
        return "<text class=\"note\" text-anchor=\"middle\"" + Attribute("x", tick.x) + Attribute("y", m_y + down) +
               ">" + words + "</text>\n";
      };
      text += "<line class=\"line\"" + Attribute("x1", tick.x) + Attribute("x2", tick.x) + Attribute("y1", kTop) +
              Attribute("y2", m_y + 5) + "/>\n" + label(18, tick.label);
      if (!tick.below.empty()) text += label(34, tick.below);
    }
    return text;
  }

  std::string InOneSentence() const {
    constexpr std::size_t kMostNames = 20;
    std::string names;
    for (const Timeline::Location& location : m_timeline.locations) {
      if (&location - m_timeline.locations.data() == kMostNames) {
        names += " and others";
        break;
      }
      names += (names.empty() ? "" : ", ") + Printable(location.name) + " (" +
               Counted(location.periods.size(), "time") + ")";
    }
    return "A row for each location, with a bar for each time in which it was current: " +
           (names.empty() ? "none" : names) + ". All of it stands in the tables below.";
  }

  const Timeline& m_timeline;
  const FileNames& m_files;
  const Axis m_axis;
  std::string m_front;
  double m_y = kTop;
};

std::string LegendOf(const Timeline& timeline, const std::string& picture) {
  std::string legend =
      "Each bar is a time in which the location was current, with its adapters; an arrow ends those of the "
      "log's end.";
  if (!timeline.gaps.empty()) legend += " Where it is hatched, the log does not tell what else was current.";
  if (picture.find("\"bar many\"") != std::string::npos)
    legend += " A pale one stands for several that are too narrow to be drawn apart.";
  if (timeline.locations.size() > kMostRows)
    legend += " The picture shows the first " + std::to_string(kMostRows) + " locations only.";
  return legend;
}

// A table whose cells are HTML; its first column is a time and does not break.
class Table {
 public:
  Table(const char* heading, std::initializer_list<const char*> columns) {
    m_html = "<h2>" + std::string(heading) + "</h2>\n<div class=\"wide\"><table>\n<thead><tr>";
    for (const char* column : columns) m_html += "<th scope=\"col\">" + std::string(column) + "</th>";
    m_html += "</tr></thead>\n<tbody>\n";
  }

  // False when there is no more room.
  bool Add(std::initializer_list<std::string> cells) {
    if (++m_lines > kMostLines) return false;
    m_html += "<tr>";
    for (const std::string& cell : cells) m_html += "<td>" + cell + "</td>";
    m_html += "</tr>\n";
    return true;
  }

  std::string End() {
    m_html += "</tbody>\n</table></div>\n";
    if (m_lines > kMostLines)
      m_html += "<p class=\"warn\">More than " + std::to_string(kMostLines) +
                " lines: the rest is left out here. qela timeline --json tells all.</p>\n";
    return std::move(m_html);
  }

 private:
  std::string m_html;
  std::size_t m_lines = 0;
};

std::string Unbroken(const std::string& words) { return "<span class=\"time\">" + EscapeHtml(words) + "</span>"; }

std::string TimeCell(const Place& place) { return Unbroken(InWords(place)); }

std::string Lines(const std::vector<std::string>& lines) {
  std::string html;
  for (const std::string& line : lines) html += (html.empty() ? "" : "<br>") + EscapeHtml(line);
  return html;
}

std::string Tables(const Timeline& timeline, const FileNames& files) {
  const auto line = [&](const Place& place) { return Unbroken(LineInWords(place, files)); };
  std::string html;
  if (!timeline.locations.empty()) {
    constexpr const char* kEnds[] = {"", "", " (then on other adapters)", " (at least)"};
    Table table("Current locations", {"Location", "From", "To", "Time", "On"});
    for (const Timeline::Location& location : timeline.locations)
      for (const Timeline::Period& period : location.periods) {
        const bool isOpen = period.end == Timeline::Period::End::kOpen;
        if (!table.Add(
                {EscapeHtml(Printable(location.name)), TimeCell(period.from),
                 isOpen ? "the end of the log" : TimeCell(period.to) + kEnds[static_cast<std::size_t>(period.end)],
                 Unbroken(TimeBetween(period.from, period.to)), EscapeHtml(InWords(period.adapters))}))
          break;
      }
    html += table.End();
  }
  if (!timeline.gaps.empty()) {
    Table table("Not known, what else was current", {"From", "To", "Why"});
    for (const Timeline::Gap& gap : timeline.gaps)
      if (!table.Add({TimeCell(gap.from), gap.isOpen ? "the end of the log" : TimeCell(gap.to), EscapeHtml(gap.why)}))
        break;
    html += table.End();
  }
  Table changes("Changes", {"When", "Where", "What"});
  for (const Timeline::Change& change : timeline.changes) {
    std::vector<std::string> lines = InWords(change);
    if (change.cause == LoggedCalculation::Cause::kAddressChange) lines.insert(lines.begin(), "an address had changed");
    if (!changes.Add({TimeCell(change.at), line(change.at), Lines(lines)})) break;
  }
  html += changes.End();
  if (!timeline.slow.empty()) {
    Table table("Calculations that took more than 2 s", {"When", "Where", "What took the time"});
    for (const Timeline::Slow& slow : timeline.slow)
      if (!table.Add({TimeCell(slow.at), line(slow.at), EscapeHtml(InWords(slow))})) break;
    html += table.End();
  }
  if (!timeline.clockSetBack.empty()) {
    Table table("The log's clock", {"Where", "What"});
    for (const Timeline::ClockSetBack& back : timeline.clockSetBack)
      if (!table.Add({line(back.at), EscapeHtml(InWords(back))})) break;
    html += table.End();
  }
  return html;
}

}  // namespace

std::string TimelinePage(const Timeline& timeline, const FileNames& files) {
  const std::string picture = Picture(timeline, files).Draw();
  return HtmlBeginning("Timeline of " + files.back()) + "<p>" + EscapeHtml(Summary(timeline, files)) +
         "</p>\n<figure>\n<div class=\"wide\" role=\"region\" aria-label=\"Picture\" tabindex=\"0\">\n" + picture +
         "</div>\n<figcaption class=\"soft\">" + LegendOf(timeline, picture) + "</figcaption>\n</figure>\n" +
         Tables(timeline, files) + std::string(HtmlEnd());
}
