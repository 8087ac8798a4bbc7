// SPDX-License-Identifier: MIT
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/soif.h>

#include "libcs/guard.h"
#include "libcs/soif/objects.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::attributes_of;
using support::insert;

/// Generator makes objects that survive printing: names in lower case and without "{", no empty values.
class Generator {
 public:
  SoifPtr object() {
    SoifPtr object = make_soif(word(12).c_str(), word(60).c_str(), number(0, 30));
    for (int left = number(0, 40); left > 0; --left) insert(object, name().c_str(), value());
    return object;
  }

 private:
  int number(int from, int to) { return std::uniform_int_distribution<int>(from, to)(engine_); }
  char pick(std::string_view characters) {
    return characters[static_cast<size_t>(number(0, static_cast<int>(characters.size()) - 1))];
  }
  /// word returns a text without white space and opening braces.
  std::string word(int longest) {
    std::string text;
    for (int left = number(1, longest); left > 0; --left) text += pick("abcXYZ0189/.:-_%@}\xC3\xA4\x01\x7F");
    return text;
  }
  std::string name() {
    std::string text(1, pick("abcdefgh"));
    for (int left = number(0, 8); left > 0; --left) text += pick("abcd-_019:@}\t \n\xE9");
    return text;
  }
  std::string value() {
    std::string bytes;
    const int longest = number(0, 9) == 0 ? 20000 : 40;
    for (int left = number(1, longest); left > 0; --left) bytes += static_cast<char>(number(0, 255));
    return bytes;
  }

  std::mt19937 engine_{20260401};
};

class RoundTrip : public support::HostTest {
 protected:
  static SoifBufferPtr print(const SOIF *object) {
    SOIFBuffer *buffer = nullptr;
    const int stream = soif_print_init_string(&buffer);
    soif_print(stream, object);
    soif_print_finish(stream);
    return SoifBufferPtr(buffer);
  }
  static std::string_view text_of(const SoifBufferPtr &b) { return {b->data, static_cast<size_t>(b->length)}; }

  static void expect_equal(const SOIF *parsed, const SOIF *original) {
    ASSERT_NE(parsed, nullptr);
    EXPECT_STREQ(parsed->template_name, original->template_name);
    EXPECT_STREQ(parsed->url, original->url);
    EXPECT_EQ(attributes_of(parsed), attributes_of(original));
  }
};

TEST_F(RoundTrip, PrintedTextParsesToTheSameObjectWhichPrintsTheSameTextAgain) {
  Generator random;
  for (int i = 0; i < 200; ++i) {
    const SoifPtr original = random.object();
    const SoifBufferPtr text = print(original.get());
    SoifReader reader(text_of(text));
    const SoifPtr parsed = reader.next();
    expect_equal(parsed.get(), original.get());
    EXPECT_FALSE(reader.next());
    if (HasFailure()) FAIL() << "object " << i << ": " << text_of(text);
    // Both parsed objects have the same number of buckets, hence the same order.
    const SoifBufferPtr printed = print(parsed.get());
    const SoifPtr again = SoifReader(text_of(printed)).next();
    EXPECT_EQ(text_of(print(again.get())), text_of(printed));
  }
}

TEST_F(RoundTrip, ObjectsPrintedToAFileParseToTheSameObjects) {
  Generator random;
  const StdioPtr file(std::tmpfile());
  std::vector<SoifPtr> originals;
  const int stream = soif_print_init_file(file.get());
  for (int i = 0; i < 100; ++i) soif_print(stream, originals.emplace_back(random.object()).get());
  soif_print_finish(stream);
  std::rewind(file.get());
  SoifReader reader(file.get());
  for (const SoifPtr &original : originals) expect_equal(reader.next().get(), original.get());
  EXPECT_FALSE(reader.next());
  EXPECT_TRUE(reader.at_end());
}

/// Damaged text must neither crash the parser nor make the two kinds of input differ.
TEST_F(RoundTrip, DamagedTextIsReadTheSameFromAStringAndFromAFile) {
  Generator random;
  std::mt19937 damage{7};
  for (int i = 0; i < 200; ++i) {
    const SoifPtr original = random.object();
    const SoifBufferPtr buffer = print(original.get());
    std::string text(text_of(buffer));
    for (int hits = 3; hits > 0; --hits) text[damage() % text.size()] = "@{}:\t\n 9-\xFF"[damage() % 10];
    const StdioPtr file(std::tmpfile());
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
    SoifReader from_file(file.get()), from_string{std::string_view(text)};
    for (;;) {
      const SoifPtr a = from_file.next(), b = from_string.next();
      if (!a && !b && from_string.at_end()) break;
      // They may differ for a value that the end of input cuts.
      if (b && !a && from_file.at_end()) break;
      ASSERT_EQ(a == nullptr, b == nullptr) << text;
      if (a) expect_equal(a.get(), b.get());
    }
  }
}

}  // namespace
