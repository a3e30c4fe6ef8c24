// Pages of one file: they load nothing and run nothing, so that they can be sent, kept and opened anywhere.
#pragma once

#include <string>
#include <string_view>

// For the text of an element and for an attribute in either quotes. Line breaks and tabs stay; other control
// characters, which no page may hold, are shown as \uXXXX.
std::string EscapeHtml(std::string_view utf8);

// What a page begins with, up to its heading; and what it ends with. Between them stand sections of headings,
// paragraphs and tables; a table that may be wider than the page stands in <div class="wide">. Texts from outside are
// escaped by who writes them. For colours there are the classes ok, warn, error and soft, and the variables of the
// style.
std::string HtmlBeginning(std::string_view title);
std::string_view HtmlEnd() noexcept;
