// HTML that is escaped by its type: text becomes a part of a page only by being escaped,
// and names of elements and attributes are written in the source.
#ifndef QX_AGENT_PAGE_HTML_H
#define QX_AGENT_PAGE_HTML_H

#include <string>
#include <string_view>
#include <vector>

namespace agent {

/// The name of an element or an attribute. What is not known when this is compiled cannot
/// be one, nor what would load something or run a script.
class MarkupName {
 public:
  template <size_t size>
  consteval MarkupName(const char (&name)[size]) : name_(name, size - 1) {
    for (const char c : name_) {
      const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      if (!letter && !(c >= '0' && c <= '9') && c != '-')
        throw "no name of an element or attribute";
    }
    for (const std::string_view active : {"href", "src", "srcset", "style", "script"}) {
      if (name_ == active) throw "it would load something or run a script";
    }
    if (name_.starts_with("on")) throw "it would run a script";
  }
  std::string_view text() const { return name_; }

 private:
  std::string_view name_;
};

/// A style sheet that is written in the source.
class StyleSheet {
 public:
  template <size_t size>
  consteval StyleSheet(const char (&text)[size]) : text_(text, size - 1) {
    if (text_.find('<') != text_.npos) throw "a style sheet has no '<'";
  }
  std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

struct Attribute {
  MarkupName name;
  std::string value;
};

/// A part of a page. Any text is turned into one: characters that mean something to HTML
/// are escaped, and what a server could have put there to look like something else is made
/// visible (host/visible.h). Line ends in a text are shown as "\n": see linesOf.
class Html {
 public:
  Html() = default;
  Html(std::string_view text);
  Html(const std::string& text) : Html(std::string_view(text)) {}
  Html(const char* text) : Html(std::string_view(text)) {}

  Html& operator+=(const Html& more);
  friend Html operator+(Html first, const Html& second) { return first += second; }

  bool empty() const { return markup_.empty(); }
  const std::string& markup() const { return markup_; }

 private:
  friend Html element(MarkupName name, const std::vector<Attribute>& attributes,
                      const Html& content);
  friend Html styleElement(StyleSheet sheet);
  std::string markup_;
};

Html element(MarkupName name, const std::vector<Attribute>& attributes, const Html& content = {});
/// Without attributes.
inline Html plain(MarkupName name, const Html& content = {}) { return element(name, {}, content); }

Html styleElement(StyleSheet sheet);

/// A text of several lines.
Html linesOf(std::string_view text);

}  // namespace agent

#endif
