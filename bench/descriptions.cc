// SPDX-License-Identifier: MIT
#include "descriptions.h"

#include <fstream>

#include "site.h"

namespace rdm::bench {
namespace {

/// prose returns text of this size that differs from record to record.
std::string prose(std::size_t record, std::size_t size) {
  static constexpr const char *words[] = {"catalog", "record", "river", "mountain", "letter", "history", "method"};
  std::string text;
  while (text.size() < size) {
    text += words[record % std::size(words)];
    text += ' ';
    record = record * 6364136223846793005U + 1442695040888963407U;
  }
  text.resize(size);
  return text;
}

void write_description(std::ostream &out, const Description &description) {
  out << "@DOCUMENT { " << description.url << '\n';
  for (const auto &[name, value] : description.attributes)
    out << name << '{' << value.size() << "}:\t" << value << '\n';
  out << "}\n\n";
}

}  // namespace

Description description(std::size_t number, std::size_t edition) {
  const std::string name = std::to_string(number);
  return {"http://host.example/documents/" + name + ".html",
          {{"title", "Document " + name + ": " + prose(number + edition, 60)},
           {"author-1", prose(number + 1, 20)},
           {"author-2", prose(number + 2, 24)},
           {"description", prose(number + 3, 400)},
           {"partial-text", prose(number + 4, 1200)},
           {"keywords", prose(number + 5, 80)},
           {"content-type", "text/html"},
           {"content-length", std::to_string(1000 + number % 9000)},
           {"content-language", "en"},
           {"classification-1", "Science:Rivers"},
           {"md5", "0123456789abcdef0123456789abcdef"},
           {"publisher", "Example Press"}}};
}

void write_descriptions(const std::string &path, std::size_t first, std::size_t count, std::size_t edition) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  for (std::size_t i = 0; i < count; ++i) write_description(out, description(first + i, edition));
  if (!out.flush()) fail("cannot write " + path);
}

}  // namespace rdm::bench
