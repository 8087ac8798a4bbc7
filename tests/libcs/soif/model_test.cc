// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <libcs/soif.h>

#include "libcs/guard.h"
#include "libcs/soif/objects.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using namespace std::string_literals;

using support::attributes_of;
using support::bytes_of;
using support::insert;
using support::value_of;

using PairPtr = std::unique_ptr<AVPair, Deleter<avpair_free>>;

class Pair : public support::HostTest {
 protected:
  static PairPtr make(const char *name, const char *value, int32_t vsize) {
    AVPair *pair = nullptr;
    EXPECT_EQ(avpair_create(name, value, vsize, &pair), 0);
    return PairPtr(pair);
  }
  static PairPtr as_pair(void *copy) { return PairPtr(static_cast<AVPair *>(copy)); }
};

TEST_F(Pair, CreationCopiesNameAndValueAndAddsANul) {
  char name[] = "title", value[] = {'a', '\0', 'b'};
  const PairPtr pair = make(name, value, 3);
  std::memset(name, 'x', 5);
  std::memset(value, 'x', 3);
  EXPECT_STREQ(pair->attribute, "title");
  EXPECT_EQ(pair->vsize, 3);
  EXPECT_EQ(std::string(pair->value, 4), "a\0b\0"s);
}

TEST_F(Pair, AValueOfSizeZeroIsOneNul) {
  for (const char *value : {static_cast<const char *>(nullptr), "text"}) {
    const PairPtr pair = make("empty", value, 0);
    EXPECT_EQ(pair->vsize, 0);
    EXPECT_EQ(pair->value[0], '\0');
  }
}

TEST_F(Pair, CreationRefusesANullNameANegativeSizeAndASizeWithoutAValue) {
  const struct {
    const char *name, *value;
    int32_t size;
  } rows[] = {{nullptr, "v", 0}, {nullptr, "v", -1}, {"name", "v", -1}, {"name", nullptr, 1}};
  for (const auto &row : rows) {
    AVPair unset{}, *out = &unset;
    EXPECT_EQ(avpair_create(row.name, row.value, row.size, &out), 1);
    EXPECT_EQ(out, nullptr);
  }
}

TEST_F(Pair, ACopyIsDeep) {
  const PairPtr pair = make("title", "Hello", 5);
  const PairPtr copy = as_pair(avpair_copy(pair.get()));
  EXPECT_NE(copy->attribute, pair->attribute);
  EXPECT_NE(copy->value, pair->value);
  EXPECT_STREQ(copy->attribute, "title");
  EXPECT_EQ(bytes_of(*copy), "Hello");
}

TEST_F(Pair, ACopyThatUsesTheValueHasTheSamePointer) {
  PairPtr pair = make("title", "Hello", 5);
  const PairPtr copy = as_pair(avpair_copy_useval(pair.get()));
  EXPECT_EQ(copy->value, pair->value);
  EXPECT_EQ(copy->vsize, 5);
  EXPECT_NE(copy->attribute, pair->attribute);
  EXPECT_STREQ(copy->attribute, "title");
  pair->value = nullptr;  // the copy owns it now
}

TEST_F(Pair, ACopyThatUsesANullValueHasNone) {
  const AVPair nothing{const_cast<char *>("title"), nullptr, 0}, no_bytes{const_cast<char *>("title"), nullptr, 5};
  const PairPtr copy = as_pair(avpair_copy_useval(&nothing));
  ASSERT_TRUE(copy);
  EXPECT_STREQ(copy->attribute, "title");
  EXPECT_EQ(copy->value, nullptr);
  EXPECT_EQ(copy->vsize, 0);
  EXPECT_EQ(avpair_copy_useval(&no_bytes), nullptr) << "a size without a value";
}

TEST_F(Pair, NamesCompareInAnyLetterCase) {
  const PairPtr pair = make("Title", "", 0);
  EXPECT_EQ(avpair_compare(pair.get(), "title"), 0);
  EXPECT_EQ(avpair_compare(pair.get(), "TITLE"), 0);
  EXPECT_LT(avpair_compare(pair.get(), "titles"), 0);
  EXPECT_GT(avpair_compare(pair.get(), "TITL"), 0);
  EXPECT_GT(avpair_compare(pair.get(), "Author"), 0);
}

TEST_F(Pair, TheHashIsThatOfTheNameAsSpelled) {
  EXPECT_EQ(avpair_hash(make("a", "", 0).get()), 0x9E3779D8u);
  EXPECT_EQ(avpair_hash(make("title", "", 0).get()), cshashtable_hf_default("title"));
  EXPECT_NE(avpair_hash(make("TITLE", "", 0).get()), cshashtable_hf_default("title"));
}

TEST_F(Pair, FreeOfNullAnswersOne) {
  EXPECT_EQ(avpair_free(nullptr), 1);
  EXPECT_EQ(avpair_free(make("name", "value", 5).release()), 0);
  EXPECT_EQ(avpair_free(host_new<AVPair>().release()), 0);
}

class Object : public support::HostTest {};

struct ObjectCase {
  const char *template_name, *url;
  int32_t buckets;
  const char *expected_template, *expected_url;
  int32_t expected_buckets;
};

TEST_F(Object, CreationFillsInDefaults) {
  for (const ObjectCase &c :
       {ObjectCase{nullptr, "", 0, "OBJECT", "-", 23}, ObjectCase{"", nullptr, -4, "OBJECT", "-", 23},
        ObjectCase{"FILE", "/docs/a.html", 1, "FILE", "/docs/a.html", 1},
        ObjectCase{"FILE", "-", 100, "FILE", "-", 100}}) {
    SOIF *object = nullptr;
    EXPECT_EQ(soif_create(c.template_name, c.url, c.buckets, &object), 0);
    const SoifPtr owner(object);
    EXPECT_STREQ(object->template_name, c.expected_template);
    EXPECT_STREQ(object->url, c.expected_url);
    EXPECT_EQ(object->attrs->nbuckets, c.expected_buckets);
    EXPECT_EQ(object->attrs->copy, avpair_copy);
    EXPECT_EQ(object->attrs->compare, avpair_compare);
    EXPECT_EQ(object->attr_count, 0);
    EXPECT_EQ(object->value_bytes, 0);
  }
}

TEST_F(Object, CreationKeepsCopiesOfItsTexts) {
  char template_name[] = "FILE", url[] = "/a";
  const SoifPtr object = make_soif(template_name, url);
  template_name[0] = url[0] = 'x';
  EXPECT_STREQ(object->template_name, "FILE");
  EXPECT_STREQ(object->url, "/a");
}

TEST_F(Object, FreeIgnoresNull) { EXPECT_EQ(soif_free(nullptr), 0); }

TEST_F(Object, UrlsCompareWithLetterCase) {
  const SoifPtr object = make_soif("FILE", "/Docs");
  EXPECT_EQ(soif_compare(object.get(), "/Docs"), 0);
  EXPECT_GT(soif_compare(object.get(), "/DOCS"), 0);
  EXPECT_LT(soif_compare(object.get(), "/docs"), 0);
}

TEST_F(Object, AnAttributeIsFoundAsItIsSpelled) {
  const SoifPtr object = make_soif("FILE", "/a");
  EXPECT_EQ(insert(object, "title", "Hello"), 0);
  EXPECT_STREQ(soif_findval(object.get(), "title"), "Hello");
  EXPECT_STREQ(soif_find(object.get(), "title")->attribute, "title");
  EXPECT_EQ(soif_find(object.get(), "author"), nullptr);
  EXPECT_EQ(soif_findval(object.get(), "author"), nullptr);
}

TEST_F(Object, AnotherSpellingIsFoundOnlyInTheSameBucket) {
  const SoifPtr many = make_soif("FILE", "/a"), one = make_soif("FILE", "/a", 1);
  ASSERT_NE(cshashtable_hf_default("title") % 23, cshashtable_hf_default("TITLE") % 23);
  insert(many, "title", "Hello");
  insert(one, "title", "Hello");
  EXPECT_EQ(soif_find(many.get(), "TITLE"), nullptr);
  EXPECT_STREQ(soif_findval(one.get(), "TITLE"), "Hello");
}

TEST_F(Object, EqualNamesAreAllKeptAndTheFirstIsFound) {
  const SoifPtr object = make_soif("FILE", "/a");
  insert(object, "title", "one");
  insert(object, "title", "three");
  EXPECT_EQ(attributes_of(object.get()).count("title"), 2u);
  EXPECT_EQ(value_of(object, "title"), "one");
  EXPECT_EQ(soif_delete(object.get(), "title"), 0);
  EXPECT_EQ(value_of(object, "title"), "three");
  EXPECT_EQ(object->attr_count, 2);
  EXPECT_EQ(object->value_bytes, 8);
  EXPECT_EQ(soif_delete(object.get(), "title"), 0);
  EXPECT_EQ(soif_delete(object.get(), "title"), 1);
  EXPECT_EQ(soif_find(object.get(), "title"), nullptr);
}

TEST_F(Object, AnEmptyValueIsKept) {
  const SoifPtr object = make_soif("FILE", "/a");
  EXPECT_EQ(insert(object, "empty", ""), 0);
  EXPECT_EQ(soif_find(object.get(), "empty")->vsize, 0);
  EXPECT_STREQ(soif_findval(object.get(), "empty"), "");
}

TEST_F(Object, InsertionWithoutACopyOwnsTheValue) {
  const SoifPtr object = make_soif("FILE", "/a");
  char name[] = "title", *value = host_strdup("Hello");
  EXPECT_EQ(soif_insert_nocopy(object.get(), name, value, 5), 0);
  name[0] = 'x';
  EXPECT_EQ(soif_findval(object.get(), "title"), value);
  EXPECT_EQ(object->attr_count, 1);
  EXPECT_EQ(object->value_bytes, 5);
  EXPECT_EQ(object->attrs->copy, avpair_copy);
  EXPECT_EQ(object->attrs->buckets[0]->copy, avpair_copy);
}

TEST_F(Object, InsertionWithoutACopyTakesANullValueOfSizeZero) {
  const SoifPtr object = make_soif("FILE", "/a");
  EXPECT_EQ(soif_insert_nocopy(object.get(), "title", nullptr, 0), 0);
  ASSERT_NE(soif_find(object.get(), "title"), nullptr);
  EXPECT_EQ(soif_findval(object.get(), "title"), nullptr);
  EXPECT_EQ(object->attr_count, 1);
}

void *copy_in_capitals(const void *item) {
  const AVPair shouted{const_cast<char *>("SHOUTED"), static_cast<const AVPair *>(item)->value,
                       static_cast<const AVPair *>(item)->vsize};
  return avpair_copy(&shouted);
}

TEST_F(Object, InsertionGoesThroughTheTablesCopyFunction) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  cshashtable_set_copy(object->attrs, copy_in_capitals);
  insert(object, "title", "Hello");
  EXPECT_EQ(value_of(object, "SHOUTED"), "Hello");
  EXPECT_EQ(object->attrs->copy, copy_in_capitals);
  EXPECT_EQ(soif_insert_nocopy(object.get(), "author", host_strdup("Me"), 2), 0);
  EXPECT_EQ(value_of(object, "author"), "Me");
  EXPECT_EQ(object->attrs->copy, copy_in_capitals);
}

TEST_F(Object, InsertionHashesTheNameThatWasGiven) {
  const SoifPtr object = make_soif("FILE", "/a");
  const uint32_t given = cshashtable_hf_default("title"), stored = cshashtable_hf_default("SHOUTED");
  ASSERT_NE(given % 23, stored % 23);
  cshashtable_set_copy(object->attrs, copy_in_capitals);
  EXPECT_EQ(insert(object, "title", "Hello"), 0);
  EXPECT_NE(cshashtable_findhv(object->attrs, "SHOUTED", given), nullptr);
  EXPECT_EQ(cshashtable_findhv(object->attrs, "SHOUTED", stored), nullptr);
}

void *copy_nothing(const void *) { return nullptr; }

TEST_F(Object, AnInsertionWhoseCopyFailsStoresNothing) {
  const SoifPtr object = make_soif("FILE", "/a");
  cshashtable_set_copy(object->attrs, copy_nothing);
  EXPECT_EQ(insert(object, "title", "Hello"), 1);
  EXPECT_TRUE(attributes_of(object.get()).empty());
  EXPECT_EQ(object->attrs->copy, copy_nothing);
}

TEST_F(Object, AFailedInsertionIsCountedAllTheSame) {
  const SoifPtr object = make_soif("FILE", "/a");
  EXPECT_EQ(soif_insert(object.get(), nullptr, "v", 1), 1);
  EXPECT_EQ(soif_insert(object.get(), "name", nullptr, 10), 1);
  EXPECT_EQ(soif_insert_nocopy(object.get(), "name", nullptr, 100), 1);
  const HostText value(host_strdup("v"));
  EXPECT_EQ(soif_insert_nocopy(object.get(), nullptr, value.get(), 1000), 1);
  EXPECT_EQ(object->attr_count, 4);
  EXPECT_EQ(object->value_bytes, 1111);
  EXPECT_TRUE(attributes_of(object.get()).empty());
}

TEST_F(Object, WithABucketMissingRefusesItsAttributes) {
  host.fail_allocation = 6;  // the only bucket
  const SoifPtr object = make_soif("FILE", "/a", 1);
  ASSERT_TRUE(object);
  EXPECT_EQ(insert(object, "name", "value"), 1);
  EXPECT_EQ(soif_find(object.get(), "name"), nullptr);
  EXPECT_EQ(soif_delete(object.get(), "name"), 1);
}

TEST_F(Object, CountersStayAtTheirLimits) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  object->attr_count = object->value_bytes = INT32_MAX;
  EXPECT_EQ(insert(object, "name", "value"), 0);
  EXPECT_EQ(object->attr_count, INT32_MAX);
  EXPECT_EQ(object->value_bytes, INT32_MAX);
}

struct InstanceCase {
  const char *base, *attribute;
  int is_instance;
};

TEST(Instance, IsTheBaseAHyphenAndDigits) {
  constexpr InstanceCase cases[] = {
      {"author", "author-1", 1},
      {"author", "author-12", 1},
      {"author", "Author-3", 1},
      {"AUTHOR", "author-3", 1},
      {"author", "author-0123456789", 1},
      {"author", "author", 0},
      {"author", "author-", 0},
      {"author", "author-1a", 0},
      {"author", "author-a1", 0},
      {"author", "author--1", 0},
      {"author", "author_1", 0},
      {"author", "authors-1", 0},
      {"author", "autho-1", 0},
      {"author", "editor-1", 0},
      {"author", "", 0},
      {"author-1", "author-1-2", 1},
      {"author", "author-1-2", 0},
      {"", "-1", 1},
      {"", "1", 0},
      {"a", "a-\xB2", 0},
  };
  for (const InstanceCase &c : cases)
    EXPECT_EQ(soif_multivalue_attrcmp(c.base, c.attribute), c.is_instance) << c.base << " " << c.attribute;
}

}  // namespace
