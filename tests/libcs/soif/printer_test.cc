// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/soif.h>

#include "libcs/guard.h"
#include "libcs/soif/borrowed.h"
#include "libcs/soif/objects.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using support::insert;
using Calls = std::vector<std::string>;

int record_call(void *calls, const void *bytes, int32_t length) {
  static_cast<Calls *>(calls)->emplace_back(static_cast<const char *>(bytes), static_cast<size_t>(length));
  return -1;  // ignored
}

class Print : public support::HostTest {
 protected:
  /// calls returns the bytes of each call of the output function.
  static Calls calls(const SoifPtr &object) {
    Calls calls;
    SoifWriter(record_call, &calls).print(object.get());
    return calls;
  }
  static std::string text(const SoifPtr &object) {
    std::string all;
    for (const std::string &call : calls(object)) all += call;
    return all;
  }
};

TEST_F(Print, WritesAnObjectWithoutAttributes) {
  EXPECT_EQ(text(make_soif("FILE", "/a")), "@FILE { /a\n}\n");
  EXPECT_EQ(text(make_soif(nullptr, nullptr)), "@OBJECT { -\n}\n");
}

TEST_F(Print, WritesABorrowedObjectAsOneThatOwnsItsTexts) {
  soif::BorrowedObject<3> object("FILE", "/a");
  const auto text_of = [&] {
    std::string all;
    Calls calls;
    SoifWriter(record_call, &calls).print(object.get());
    for (const std::string &call : calls) all += call;
    return all;
  };
  EXPECT_EQ(text_of(), "@FILE { /a\n}\n");
  const long before = host.allocations;
  for (const auto &[name, value] : {std::pair{"z", "1"}, {"empty", ""}, {"absent", nullptr}, {"a", "two"}})
    object.add(name, value);
  EXPECT_EQ(text_of(), "@FILE { /a\nz{1}:\t1\na{3}:\ttwo\n}\n");
  EXPECT_EQ(host.allocations, before);
}

TEST_F(Print, LeavesEmptyValuesOut) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "one", "1");
  insert(object, "empty", "");
  insert(object, "two", "2");
  EXPECT_EQ(text(object), "@FILE { /a\none{1}:\t1\ntwo{1}:\t2\n}\n");
}

TEST_F(Print, PassesOverABucketThatIsMissing) {
  host.fail_allocation = 6;  // the only bucket
  const SoifPtr object = make_soif("FILE", "/a", 1);
  ASSERT_EQ(object->attrs->buckets[0], nullptr);
  EXPECT_EQ(text(object), "@FILE { /a\n}\n");
}

TEST_F(Print, WritesNamesAndValuesAsTheyAre) {
  const SoifPtr object = make_soif("FILE", "%s", 1);
  insert(object, "Title-%d", "a\n}\n@X { y\0z\xFF%n"sv);
  EXPECT_EQ(text(object), "@FILE { %s\nTitle-%d{15}:\ta\n}\n@X { y\0z\xFF%n\n}\n"s);
}

TEST_F(Print, TakesOneCallPerPiece) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "title", "Hello");
  insert(object, "author", "Me");
  EXPECT_EQ(calls(object), (Calls{"@FILE { /a\n", "title{5}:\t", "Hello", "\n", "author{2}:\t", "Me", "\n", "}\n"}));
}

TEST_F(Print, DoesNotCopyValues) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "title", "Hello");
  const void *seen[3] = {};
  struct Seen {
    const void **next;
  } argument{seen};
  const int stream = soif_print_init_fn(
      [](void *a, const void *bytes, int32_t) {
        *static_cast<Seen *>(a)->next++ = bytes;
        return 0;
      },
      &argument);
  EXPECT_EQ(soif_print_body(stream, object.get()), 0);
  soif_print_finish(stream);
  EXPECT_EQ(seen[1], soif_findval(object.get(), "title"));
}

TEST_F(Print, GoesBucketByBucketAndByInsertionInABucket) {
  const SoifPtr one = make_soif("FILE", "/a", 1), many = make_soif("FILE", "/a");
  const Calls names{"title", "author", "last-modified", "title", "description", "a", "b", "x"};
  Calls in_buckets[23];
  for (const std::string &name : names) {
    insert(one, name.c_str(), "v");
    insert(many, name.c_str(), "v");
    in_buckets[cshashtable_hf_default(name.c_str()) % 23].push_back(name);
  }
  std::string in_order, by_bucket;
  for (const std::string &name : names) in_order += name + "{1}:\tv\n";
  for (const Calls &bucket : in_buckets)
    for (const std::string &name : bucket) by_bucket += name + "{1}:\tv\n";
  EXPECT_EQ(text(one), "@FILE { /a\n" + in_order + "}\n");
  EXPECT_EQ(text(many), "@FILE { /a\n" + by_bucket + "}\n");
}

TEST_F(Print, WritesHeadersAndLabelsOfAnyLengthInOneCall) {
  for (size_t length : {1000, 1018, 1019, 1020, 4095, 4096, 100000}) {
    const std::string name(length, 'n');
    const SoifPtr object = make_soif(name.c_str(), name.c_str(), 1);
    insert(object, name.c_str(), "v");
    EXPECT_EQ(calls(object), (Calls{std::string("@").append(name).append(" { ").append(name).append("\n"),
                                    name + "{1}:\t", "v", "\n", "}\n"}))
        << length;
  }
}

TEST_F(Print, WritesLongHeadersEvenWhenMemoryFails) {
  const std::string name(5000, 'n');
  const SoifPtr object = make_soif("FILE", name.c_str());
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(text(object), "@FILE { " + name + "\n}\n");
  EXPECT_GE(host.allocations, host.fail_allocation);
}

TEST_F(Print, ThePiecesAreOperationsOfTheirOwn) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "t", "v");
  Calls calls;
  const int stream = soif_print_init_fn(record_call, &calls);
  EXPECT_EQ(soif_print_trailer(stream), 0);
  EXPECT_EQ(soif_print_body(stream, object.get()), 0);
  EXPECT_EQ(soif_print_header(stream, object.get()), 0);
  EXPECT_EQ(calls, (Calls{"}\n", "t{1}:\t", "v", "\n", "@FILE { /a\n"}));
  calls.clear();
  EXPECT_EQ(soif_print(stream, object.get()), 0);
  EXPECT_EQ(calls, (Calls{"@FILE { /a\n", "t{1}:\t", "v", "\n", "}\n"}));
  EXPECT_EQ(soif_print_finish(stream), 0);
}

TEST_F(Print, WritesToAFile) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("objects");
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "t", "a\0b"sv);
  FILE *file = std::fopen(path.c_str(), "w");
  const int stream = soif_print_init_file(file);
  soif_print(stream, object.get());
  soif_print(stream, object.get());
  soif_print_finish(stream);
  EXPECT_EQ(std::fclose(file), 0);
  const std::string once = "@FILE { /a\nt{3}:\ta\0b\n}\n"s;
  EXPECT_EQ(support::read_file(path), once + once);
}

TEST_F(Print, WritesToAStringThatGrowsByTheSizeOfTheText) {
  const std::pair<size_t, int32_t> rows[] = {{1, 4096}, {5000, 4096 + 5000}};
  for (const auto &[length, size] : rows) {
    const std::string value(length, 'v');
    const SoifPtr object = make_soif("FILE", "/a", 1);
    insert(object, "t", value);
    SOIFBuffer *buffer = nullptr;
    const int stream = soif_print_init_string(&buffer);
    const SoifBufferPtr owner(buffer);
    soif_print(stream, object.get());
    soif_print_finish(stream);
    const std::string expected = "@FILE { /a\nt{" + std::to_string(length) + "}:\t" + value + "\n}\n";
    EXPECT_EQ(buffer->data, expected);
    EXPECT_EQ(buffer->length, static_cast<int32_t>(expected.size()));
    EXPECT_EQ(buffer->initial_size, 4096);
    EXPECT_EQ(buffer->size, size);
  }
}

void *alloc_marked(size_t n) { return std::memset(std::malloc(n), 0xAB, n); }

TEST(PrintString, WithNothingPrintedIsLeftUninitialised) {
  qxapi_host marking = *qxapi_posix_host();
  marking.alloc = alloc_marked;
  qxapi_bind(&marking);
  SOIFBuffer *buffer = nullptr;
  const int stream = soif_print_init_string(&buffer);
  soif_print_finish(stream);
  EXPECT_EQ(static_cast<unsigned char>(buffer->data[0]), 0xAB);
  EXPECT_EQ(buffer->length, 0);
  soif_buffer_destroy(buffer);
  qxapi_bind(nullptr);
}

TEST_F(Print, WithoutAnOutputFunctionIsDropped) {
  const SoifPtr object = make_soif("FILE", "/a", 1);
  insert(object, "t", "v");
  SOIFBuffer *buffer = nullptr, *none = nullptr;
  soif_buffer_create(64, &buffer);
  const SoifBufferPtr owner(buffer);
  host.fail_allocation = host.allocations + 1;
  for (int stream :
       {soif_print_init_fn(nullptr, buffer), soif_print_init_file(nullptr), soif_print_init_string(&none)}) {
    EXPECT_EQ(soif_print(stream, object.get()), 0);
    EXPECT_EQ(soif_print_finish(stream), 0);
  }
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(soif_print(200, object.get()), 0);
  EXPECT_EQ(buffer->length, 0);
}

}  // namespace
