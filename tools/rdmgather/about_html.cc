// SPDX-License-Identifier: MIT
// libxml2's parser of HTML, through SAX: no tree is built, and reading ends as soon as enough is known.
#include <algorithm>
#include <exception>
#include <initializer_list>
#include <memory>
#include <new>

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include "qxapi/ascii.h"
#include "qxapi/guard.h"
#include "tools/rdmgather/about.h"
#include "tools/rdmgather/plain_text.h"
#include "tools/soif/json_text.h"

namespace rdm::gather {
namespace {

// libxml2 compares each attribute of an element with those before it, and each end tag with all open elements: these
// bounds keep hostile documents below a second.
constexpr size_t longest_html = 1 << 17;
constexpr int deepest_element = 256;
constexpr size_t enough_text = 1 << 13;

using HtmlParserPtr = std::unique_ptr<htmlParserCtxt, Deleter<htmlFreeParserCtxt>>;

std::string_view view_of(const xmlChar *text) {
  return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char *>(text));
}

bool is_one_of(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool is_hidden(std::string_view name) {
  return is_one_of(name, {"script", "style", "noscript", "template", "svg", "head", "title", "select", "object"});
}

/// is_within_a_word returns true for elements that do not end a word.
bool is_within_a_word(std::string_view name) {
  return is_one_of(name, {"a", "abbr", "b",     "bdi",  "bdo",    "cite", "code", "em", "font", "i",   "kbd", "mark",
                          "q", "s",    "small", "span", "strong", "sub",  "sup",  "tt", "u",    "var", "wbr"});
}

bool is_heading(std::string_view name) {
  return name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6';
}

/// HtmlReader collects what the parser reports. Names of elements and attributes are in lower case.
class HtmlReader {
 public:
  void begin(std::string_view name, const xmlChar **attributes) {
    ++depth_;
    if (is_hidden(name)) ++hidden_;
    if (name == "title" && !has_title_) is_title_ = true;
    if (name == "meta") take_meta(attributes);
    if (is_heading(name) && heading_.empty()) is_heading_ = true;
    separate(name);
  }

  void end(std::string_view name) {
    --depth_;
    if (is_hidden(name) && hidden_ > 0) --hidden_;
    if (name == "title" && is_title_) is_title_ = false, has_title_ = true;
    if (is_heading(name)) is_heading_ = false;
    separate(name);
  }

  void take(std::string_view text) {
    if (is_title_) append(title_, text);
    if (hidden_ > 0) return;
    if (is_heading_) append(heading_, text);
    append(text_, text);
  }

  bool is_done() const { return depth_ > deepest_element || text_.size() >= enough_text; }

  About about() const {
    About about{plain_text(title_, longest_title), author_, description_};
    if (about.title.empty()) about.title = plain_text(heading_, longest_title);
    if (about.description.empty()) about.description = plain_text(text_, longest_description);
    return about;
  }

 private:
  static void append(std::string &text, std::string_view more) {
    text.append(more.substr(0, enough_text - std::min(enough_text, text.size())));
  }

  void separate(std::string_view name) {
    if (is_within_a_word(name)) return;
    append(text_, " ");
    if (is_heading_) append(heading_, " ");
  }

  void take_meta(const xmlChar **attributes) {
    std::string_view name, content;
    for (; attributes != nullptr && attributes[0] != nullptr; attributes += 2) {
      const std::string_view key = view_of(attributes[0]);
      if (key == "name") name = view_of(attributes[1]);
      if (key == "content") content = view_of(attributes[1]);
    }
    const bool is_author = ascii::iequals(name, "author") || ascii::iequals(name, "dc.creator");
    if (is_author && author_.empty()) author_ = plain_text(content, longest_title);
    if (ascii::iequals(name, "description") && description_.empty())
      description_ = plain_text(content, longest_description);
  }

  int depth_ = 0, hidden_ = 0;
  bool is_title_ = false, has_title_ = false, is_heading_ = false;
  std::string title_, heading_, author_, description_, text_;
};

/// HtmlParse connects a parser with a reader. Exceptions do not pass through the parser: run throws them later.
class HtmlParse {
 public:
  HtmlParse() : parser_(htmlNewParserCtxt()) {
    if (!parser_) throw std::bad_alloc();
    *parser_->sax = {};
    parser_->sax->startElement = [](void *self, const xmlChar *name, const xmlChar **attributes) {
      of(self).guarded([&](HtmlReader &reader) { reader.begin(view_of(name), attributes); });
    };
    parser_->sax->endElement = [](void *self, const xmlChar *name) {
      of(self).guarded([&](HtmlReader &reader) { reader.end(view_of(name)); });
    };
    parser_->sax->characters = [](void *self, const xmlChar *text, int size) {
      const std::string_view view(reinterpret_cast<const char *>(text), static_cast<size_t>(size));
      of(self).guarded([&](HtmlReader &reader) { reader.take(view); });
    };
    parser_->sax->ignorableWhitespace = parser_->sax->characters;
    parser_->userData = this;
  }
  HtmlParse(const HtmlParse &) = delete;
  HtmlParse &operator=(const HtmlParse &) = delete;
  ~HtmlParse() = default;

  About run(std::string_view bytes) {
    constexpr int options = HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_NONET;
    const char *encoding = soif_tool::is_utf8(without_cut_character(bytes)) ? "UTF-8" : nullptr;
    htmlCtxtReadMemory(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr, encoding, options);
    if (thrown_) std::rethrow_exception(thrown_);
    return reader_.about();
  }

 private:
  static HtmlParse &of(void *self) { return *static_cast<HtmlParse *>(self); }

  template <typename Work>
  void guarded(Work work) {
    if (thrown_) return;
    try {
      work(reader_);
    } catch (...) {
      thrown_ = std::current_exception();
    }
    if (thrown_ || reader_.is_done()) xmlStopParser(parser_.get());
  }

  HtmlParserPtr parser_;
  HtmlReader reader_;
  std::exception_ptr thrown_;
};

/// initialize_parser initializes the library once, and in each thread turns off its messages on standard error.
void initialize_parser() {
  static const int once = (xmlInitParser(), 0);
  static_cast<void>(once);
  xmlSetStructuredErrorFunc(nullptr, [](void *, auto *) {});
}

}  // namespace

About about_html(std::string_view bytes) {
  initialize_parser();
  bytes = bytes.substr(0, longest_html);
  return bytes.empty() ? About() : HtmlParse().run(bytes);
}

}  // namespace rdm::gather
