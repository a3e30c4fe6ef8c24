#include <gtest/gtest.h>

#include "Tools/qela/Html.h"

namespace {

TEST(QelaHtml, TextsCannotLeaveTheirElementOrAttribute) {
  EXPECT_EQ(EscapeHtml("<script>alert('a' & \"b\")</script>"),
            "&lt;script&gt;alert(&#39;a&#39; &amp; &quot;b&quot;)&lt;/script&gt;");
  EXPECT_EQ(EscapeHtml("&lt;"), "&amp;lt;");
}

TEST(QelaHtml, ControlCharactersAreShownAndLineBreaksStay) {
  EXPECT_EQ(EscapeHtml(std::string_view("a\0b\x1b\r\n\tc\x7f", 9)), "a\\u0000b\\u001B\\u000D\n\tc\\u007F");
}

TEST(QelaHtml, OtherLettersStay) {
  EXPECT_EQ(EscapeHtml("B\u00fcro \u65e5 \U0001F600"), "B\u00fcro \u65e5 \U0001F600");
}

TEST(QelaHtml, APageForbidsItselfToLoadAndToRunAnything) {
  const std::string page = HtmlBeginning("x") + std::string(HtmlEnd());
  const std::size_t policy = page.find("<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none';");
  ASSERT_NE(policy, std::string::npos);
  EXPECT_LT(policy, page.find("<title>"));  // it holds for what follows
  for (const char* foreign : {"<script", "<link", "<img", "src=", "href=", "@import", "url(", "script-src"})
    EXPECT_EQ(page.find(foreign), std::string::npos) << foreign;
}

TEST(QelaHtml, ATitleIsEscaped) {
  const std::string page = HtmlBeginning("a <b> & c");
  EXPECT_NE(page.find("<title>a &lt;b&gt; &amp; c</title>"), std::string::npos);
  EXPECT_NE(page.find("<h1>a &lt;b&gt; &amp; c</h1>"), std::string::npos);
}

}  // namespace
