// SPDX-License-Identifier: MIT
#include "libcs/soif/stream.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/soif.h>

#include "libcs/guard.h"
#include "libcs/soif/objects.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::open_streams;

/// Streams finishes all streams after a test.
class Streams : public support::HostTest {
 protected:
  void TearDown() override {
    for (int i = 0; i < 256; ++i) soif_parse_finish(i);
    HostTest::TearDown();
  }
  static bool is_clear(const soif_stream &s) {
    return s.in_use == 0 && s.output == nullptr && s.output_argument == nullptr && s.input_file == nullptr &&
           s.input_string == nullptr && s.input_length == 0 && s.input_position == 0 && s.accept == nullptr;
  }
};

TEST_F(Streams, TakeTheFirstFreeSlot) {
  EXPECT_EQ(soif_parse_init_string("a", 1), 0);
  EXPECT_EQ(soif_print_init_fn(nullptr, nullptr), 1);
  EXPECT_EQ(soif_parse_init_file(stdin), 2);
  EXPECT_EQ(soif_print_finish(1), 0);
  EXPECT_EQ(soif_print_init_file(stdout), 1);
  EXPECT_EQ(soif_parse_init_string("b", 1), 3);
}

TEST_F(Streams, KeepTheirArgumentsInTheirSlot) {
  char name[] = "title";
  char *accept[] = {name, nullptr};
  const int stream = soif_parse_init_string("@text", 5);
  EXPECT_EQ(soif_parse_set_accept_attr(stream, accept), 0);
  EXPECT_EQ(_soif_state[stream].in_use, 1);
  EXPECT_STREQ(_soif_state[stream].input_string, "@text");
  EXPECT_EQ(_soif_state[stream].input_length, 5);
  EXPECT_EQ(_soif_state[stream].input_position, 0);
  EXPECT_EQ(_soif_state[stream].accept, accept);

  const int file = soif_parse_init_file(stdin);
  EXPECT_EQ(_soif_state[file].input_file, stdin);
  EXPECT_EQ(_soif_state[file].input_string, nullptr);

  int argument = 0;
  const int output = soif_print_init_fn(soif_buffer_append, &argument);
  EXPECT_EQ(_soif_state[output].output, soif_buffer_append);
  EXPECT_EQ(_soif_state[output].output_argument, &argument);
}

TEST_F(Streams, AreClearedWhenFinished) {
  char *accept[] = {nullptr};
  const int parse = soif_parse_init_string("@A b", 4);
  soif_parse_set_accept_attr(parse, accept);
  SOIF *object = nullptr;
  soif_parse(parse, &object);
  SOIFBuffer *buffer = nullptr;
  const int print = soif_print_init_string(&buffer);
  const SoifBufferPtr owner(buffer);
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(soif_parse_finish(parse), 0);
    EXPECT_TRUE(is_clear(_soif_state[parse]));
    EXPECT_EQ(soif_print_finish(print), 0);
    EXPECT_TRUE(is_clear(_soif_state[print]));
  }
  EXPECT_EQ(open_streams(), 0);
}

TEST_F(Streams, AcceptListsOfStreamsThatAreNotOpenAreIgnored) {
  char *accept[] = {nullptr};
  EXPECT_EQ(soif_parse_set_accept_attr(7, accept), 0);
  EXPECT_TRUE(is_clear(_soif_state[7]));
}

TEST_F(Streams, OutsideTheTableDoNothing) {
  char *accept[] = {nullptr};
  const SoifPtr object = make_soif("FILE", "/a");
  for (int stream : {-1, 256, INT32_MIN, INT32_MAX}) {
    SOIF *out = object.get();
    EXPECT_EQ(soif_parse(stream, &out), 1);
    EXPECT_EQ(out, nullptr);
    EXPECT_NE(soif_parse_is_eoi(stream), 0);
    EXPECT_EQ(soif_parse_set_accept_attr(stream, accept), 0);
    EXPECT_EQ(soif_parse_finish(stream), 0);
    EXPECT_EQ(soif_print(stream, object.get()), 0);
    EXPECT_EQ(soif_print_finish(stream), 0);
  }
  EXPECT_EQ(open_streams(), 0);
}

TEST_F(Streams, ParsingAPrintStreamAndPrintingToAParseStreamDoNothing) {
  const SoifPtr object = make_soif("FILE", "/a");
  SOIFBuffer *buffer = nullptr;
  const int print = soif_print_init_string(&buffer);
  const SoifBufferPtr owner(buffer);
  SOIF *out = object.get();
  EXPECT_EQ(soif_parse(print, &out), 1);
  EXPECT_EQ(out, nullptr);
  EXPECT_NE(soif_parse_is_eoi(print), 0);
  const int parse = soif_parse_init_string("@FILE { /a", 10);
  EXPECT_EQ(soif_print(parse, object.get()), 0);
  EXPECT_EQ(_soif_state[parse].input_position, 0);
}

TEST_F(Streams, CanAllBeOpenAtOnce) {
  for (int i = 0; i < 256; ++i) EXPECT_EQ(soif_parse_init_string("", 0), i);
  EXPECT_EQ(open_streams(), 256);
}

using StreamsDeathTest = Streams;

TEST_F(StreamsDeathTest, TheTableIsClearedBeforeItsFirstUseOnly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a process without streams so far
  EXPECT_EXIT(
      {
        _soif_state[0].in_use = _soif_state[9].in_use = 1;
        const int first = soif_parse_init_string("a", 1);
        const bool cleared = is_clear(_soif_state[9]);
        _soif_state[1].in_use = 1;
        std::fprintf(stderr, "%d %d %d", first, cleared, soif_parse_init_string("b", 1));
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "^0 1 2$");
}

TEST_F(StreamsDeathTest, OpeningMoreThan256StreamsAborts) {
  for (int i = 0; i < 256; ++i) soif_parse_init_string("", 0);
  EXPECT_DEATH(soif_parse_init_string("", 0), "^soif:[0-9]+: assertion failed: a stream slot is free\n$");
  EXPECT_DEATH(soif_parse_init_file(stdin), "^soif:[0-9]+: assertion failed");
  EXPECT_DEATH(soif_print_init_fn(nullptr, nullptr), "^soif:[0-9]+: assertion failed");
  EXPECT_EQ(open_streams(), 256);
}

}  // namespace
