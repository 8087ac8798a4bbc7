// SPDX-License-Identifier: MIT
/// What a document says about itself.
#ifndef RDMGATHER_ABOUT_H
#define RDMGATHER_ABOUT_H

#include <string>
#include <string_view>

namespace rdm::gather {

/// About has plain texts (plain_text.h) that are empty if the document does not say them.
struct About {
  std::string title, author, description;
  bool operator==(const About &) const = default;
};

/// about_html reads HTML from its beginning: title, the meta elements "author" (or "dc.creator") and "description";
/// without the last, the first text of the body. A document without a title has that of its first heading. Takes any
/// bytes; those that are not UTF-8 are read in the encoding that the document names, by default ISO 8859-1. Elements
/// that are nested deeper than 256 end the reading. Throws std::bad_alloc.
About about_html(std::string_view bytes);

/// about_markdown reads Markdown: the first heading is the title, the text after it the description. YAML in front may
/// say the title, the author and the description.
About about_markdown(std::string_view bytes);

/// about_text reads a text: its first line is the title, the rest the description. Takes nothing from one with NUL
/// bytes, as UTF-16 has.
About about_text(std::string_view bytes);

}  // namespace rdm::gather

#endif
