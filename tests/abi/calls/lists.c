// SPDX-License-Identifier: MIT
/* Lists and hash tables. */
#include <libcs/adt.h>

#include "check.h"

static int freed = 0;
static char seen[32];

static void count_free(void *item) {
  (void)item;
  ++freed;
}
static void see(void *item) { strcat(seen, item); }
static int differs(const void *item, const void *key) { return strcmp(item, key); }
static uint32_t first_byte(const void *key) { return *(const unsigned char *)key; }

static void keep_copies(void) {
  cslist *list = NULL;
  char *first;
  CHECK(cslist_create(&list) == 0);
  CHECK(cslist_append(list, "one") == 0);
  CHECK(cslist_append(list, "two") == 0);
  CHECK(cslist_append(list, "three") == 0);
  CHECK(cslist_count(list) == 3);
  CHECK_TEXT(cslist_find(list, "two"), "two");
  cslist_apply(list, see);
  CHECK_TEXT(seen, "onetwothree");
  CHECK(cslist_delete(list, "two") == 0);
  CHECK(cslist_delete(list, "two") == 1);
  first = cslist_behead(list);
  CHECK_TEXT(first, "one");
  free(first);
  CHECK(cslist_do_free(list, 1) == 0);
}

static void keep_pointers(void) {
  static const char text[] = "a", same[] = "a";
  cslist *list = NULL;
  CHECK(cslist_create(&list) == 0);
  CHECK(cslist_set_copy(list, cslist_copy_nop) == 0);
  CHECK(cslist_set_free(list, count_free) == 0);
  CHECK(cslist_set_compare(list, differs) == 0);
  CHECK(cslist_append(list, text) == 0);
  CHECK(cslist_find(list, same) == text);
  CHECK(cslist_do_free(list, 1) == 0);
  CHECK(freed == 1);
}

static void replace_the_first(void) {
  static const char kept[] = "kept";
  cslist *list = NULL;
  CHECK(cslist_create(&list) == 0);
  CHECK(cslist_set_copy(list, cslist_copy_nop) == 0);
  CHECK(cslist_set_free(list, cslist_free_nop) == 0);
  CHECK(cslist_prepend(list, kept) == 0);
  CHECK(cslist_behead(list) == kept);
  CHECK(cslist_count(list) == 0);
  CHECK(cslist_do_free(list, 1) == 0);
}

static void compare_and_copy(void) {
  static const char item[] = "item";
  CHECK(cslist_copy_nop(item) == item);
  cslist_free_nop(NULL);
  CHECK(cslist_cmp_nop("abcd1", "abcd2") == 0);
  CHECK(cslist_cmp_nop("abcd", "abce") < 0);
}

static void fill_a_table(void) {
  cshashtable *table = NULL;
  cshashtable_statistics statistics;
  CHECK(cshashtable_create(5, &table) == 0);
  CHECK(cshashtable_insert(table, "one", "one") == 0);
  CHECK(cshashtable_insert(table, "two", "two") == 0);
  CHECK_TEXT(cshashtable_find(table, "two"), "two");
  CHECK_TEXT(cshashtable_findhv(table, "two", cshashtable_hf_default("two")), "two");
  CHECK(cshashtable_find(table, "three") == NULL);
  cshashtable_stats(table, &statistics);
  CHECK(statistics.items == 2 && statistics.buckets == 5 && statistics.chained == 2);
  CHECK(statistics.mean > 0.39 && statistics.mean < 0.41);
  CHECK(cshashtable_delete(table, "one") == 0);
  CHECK(cshashtable_delete(table, "one") == 1);
  CHECK(cshashtable_free(table) == 0);
}

static void walk_a_table(void) {
  static const char a[] = "a", b[] = "b";
  const char *item;
  cshashtable *table = NULL;
  CHECK(cshashtable_create(2, &table) == 0);
  CHECK(cshashtable_set_hash(table, first_byte) == 0);
  CHECK(cshashtable_set_copy(table, cslist_copy_nop) == 0);
  CHECK(cshashtable_set_compare(table, differs) == 0);
  CHECK(cshashtable_set_free(table, count_free) == 0);
  CHECK(cshashtable_insert(table, a, a) == 0);
  CHECK(cshashtable_insert(table, b, b) == 0);
  item = cshashtable_iterate(table, NULL, NULL);
  CHECK(item == b); /* its hash value is even */
  item = cshashtable_iterate(table, item, item);
  CHECK(item == a);
  CHECK(cshashtable_iterate(table, item, item) == NULL);
  freed = 0;
  CHECK(cshashtable_free(table) == 0);
  CHECK(freed == 2);
}

int main(void) {
  keep_copies();
  keep_pointers();
  replace_the_first();
  compare_and_copy();
  fill_a_table();
  walk_a_table();
  CHECK(cshashtable_hf_default(NULL) == 0);
  return 0;
}
