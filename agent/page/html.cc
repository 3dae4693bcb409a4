#include "agent/page/html.h"

#include "host/text.h"
#include "host/visible.h"

namespace agent {

namespace {

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

// Each byte becomes four characters at most, and nothing is cut.
std::string shown(std::string_view text) {
  return escaped(host::visibleLine(text, 16 + 12 * text.size()));
}

}  // namespace

Html::Html(std::string_view text) : markup_(shown(text)) {}

Html& Html::operator+=(const Html& more) {
  markup_ += more.markup_;
  return *this;
}

Html element(MarkupName name, const std::vector<Attribute>& attributes, const Html& content) {
  Html html;
  std::string& markup = html.markup_;
  markup = "<" + std::string(name.text());
  for (const Attribute& attribute : attributes) {
    markup += " " + std::string(attribute.name.text()) + "=\"" + shown(attribute.value) + "\"";
  }
  markup += ">";
  // These have no content, and no end.
  if (name.text() == "br" || name.text() == "meta") return html;
  markup += content.markup_ + "</" + std::string(name.text()) + ">";
  return html;
}

Html styleElement(StyleSheet sheet) {
  Html html;
  html.markup_ = "<style>" + std::string(sheet.text()) + "</style>";
  return html;
}

Html linesOf(std::string_view text) {
  Html html;
  for (const std::string_view line : host::splitLines(text)) {
    if (!html.empty()) html += plain("br");
    html += line;
  }
  return html;
}

}  // namespace agent
