#include "Html.h"

#include <cstdio>
#include <iterator>

namespace {

// Nothing may be loaded or run, whatever a text from outside should come to: what does not stand here falls back to
// default-src, and that is nothing.
constexpr std::string_view kPolicy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

// On paper it is light, whatever the screen is. A text from outside that turns its direction turns no other.
constexpr std::string_view kStyle = R"(
:root{color-scheme:light;--text:#1b1f24;--page:#fff;--soft:#57606a;--line:#c8d0d9;--zebra:#f4f6f9;--ok:#116329;
--warn:#7d4e00;--error:#b3151f;--bar:#1f5fc4;--on-bar:#fff;--unknown:#7b8590}
@media screen and (prefers-color-scheme:dark){:root{color-scheme:dark;--text:#e6edf3;--page:#0d1117;--soft:#9ba6b2;
--line:#3a434d;--zebra:#161c24;--ok:#4cc267;--warn:#e0ad3c;--error:#ff7a72;--bar:#6ea8ff;--on-bar:#08131f;--unknown:#8b96a2}}
body{margin:0;background:var(--page);color:var(--text);font:1rem/1.5 system-ui,"Segoe UI",sans-serif}
main{max-width:75rem;margin:0 auto;padding:1rem}
h1{font-size:1.6rem;line-height:1.2}h2{font-size:1.2rem;margin:2rem 0 .5rem}
table{border-collapse:collapse;width:100%}caption{text-align:left;color:var(--soft)}
th,td{text-align:left;vertical-align:top;padding:.3rem .8rem .3rem 0;border-bottom:1px solid var(--line)}
thead th{border-bottom-width:2px}tbody tr:nth-child(even){background:var(--zebra)}
td,th,li,dd,pre,p,h1{unicode-bidi:isolate;overflow-wrap:break-word}.time{white-space:nowrap;font-variant-numeric:tabular-nums}
pre{white-space:pre-wrap;font:.85rem/1.4 ui-monospace,Consolas,monospace;background:var(--zebra);padding:.6rem}
figure{margin:1rem 0}.wide{overflow-x:auto}
.ok{color:var(--ok)}.warn{color:var(--warn)}.error{color:var(--error)}.soft{color:var(--soft)}
@media print{main{max-width:none;padding:0}.wide{overflow:visible}thead{display:table-header-group}
tr,figure{break-inside:avoid}h2{break-after:avoid}*{print-color-adjust:exact;-webkit-print-color-adjust:exact}}
)";

}  // namespace

std::string EscapeHtml(std::string_view utf8) {
  std::string html;
  for (const char character : utf8) {
    char escaped[16];
    const auto unit = static_cast<unsigned char>(character);
    if (character == '&') {
      html += "&amp;";
    } else if (character == '<') {
      html += "&lt;";
    } else if (character == '>') {
      html += "&gt;";
    } else if (character == '"') {
      html += "&quot;";
    } else if (character == '\'') {
      html += "&#39;";
    } else if ((unit < 0x20 && character != '\n' && character != '\t') || unit == 0x7f) {
      static_cast<void>(std::snprintf(escaped, std::size(escaped), "\\u%04X", static_cast<unsigned>(unit)));
      html += escaped;
    } else {
      html += character;
    }
  }
  return html;
}

std::string HtmlBeginning(std::string_view title) {
  const std::string escaped = EscapeHtml(title);
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
         std::string(kPolicy) +
         "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"referrer\" content=\"no-referrer\">\n<title>" +
         escaped + "</title>\n<style>" + std::string(kStyle) + "</style>\n</head>\n<body>\n<main>\n<h1>" + escaped +
         "</h1>\n";
}

std::string_view HtmlEnd() noexcept { return "</main>\n</body>\n</html>\n"; }
