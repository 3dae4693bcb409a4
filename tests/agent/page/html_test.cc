#include "agent/page/html.h"

#include <gtest/gtest.h>

using agent::element;
using agent::Html;
using agent::plain;

namespace {

TEST(Html, TextIsEscapedWhereverItBecomesAPart) {
  const std::string evil = "</p><b a='1' c=\"2\">&amp;";
  const std::string harmless = "&lt;/p&gt;&lt;b a=&#39;1&#39; c=&quot;2&quot;&gt;&amp;amp;";
  EXPECT_EQ(Html(evil).markup(), harmless);
  EXPECT_EQ(plain("p", evil).markup(), "<p>" + harmless + "</p>");
  EXPECT_EQ((plain("p", "a") + evil).markup(), "<p>a</p>" + harmless);
  EXPECT_EQ(element("p", {{"title", evil}}, "").markup(), "<p title=\"" + harmless + "\"></p>");
  EXPECT_EQ(agent::linesOf("a\n" + evil).markup(), "a<br>" + harmless);
}

TEST(Html, ElementsNestAndAreNotEscapedAgain) {
  EXPECT_EQ(plain("ul", plain("li", "a") + plain("li", "&")).markup(),
            "<ul><li>a</li><li>&amp;</li></ul>");
}

TEST(Html, WhatHasNoContentHasNoEnd) {
  EXPECT_EQ(element("meta", {{"charset", "utf-8"}}).markup(), "<meta charset=\"utf-8\">");
}

TEST(Html, WhatCannotBeSeenIsShownAndWhatIsNoTextIs) {
  EXPECT_EQ(Html("a\x1b[2J\xff\xe2\x80\xae z\n").markup(), "a\\x1b[2J\\xff\\u{202e} z\\n");
  EXPECT_EQ(Html("Entwürfe").markup(), "Entwürfe");
}

TEST(Html, LongTextsAreNotCut) {
  EXPECT_EQ(Html(std::string(300000, '\xff')).markup().size(), 4 * 300000u);
}

}  // namespace
