// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "faults/operations.h"
#include "libcs/guard.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

using Texts = std::vector<std::string>;

struct QueueDeleter {
  void operator()(csqueue *queue) const { csqueue_free(queue); }
};
using QueuePtr = std::unique_ptr<csqueue, QueueDeleter>;

struct LevelsDeleter {
  void operator()(cspriq *queue) const { cspriq_free(queue); }
};
using PriqPtr = std::unique_ptr<cspriq, LevelsDeleter>;

template <typename Guard, uint32_t (*create)(cslist **)>
Guard make() {
  cslist *made = nullptr;
  create(&made);
  return Guard(made);
}

Texts texts_of(const cslist *list) {
  Texts texts;
  for (const cslist_node *node = list->head; node != nullptr; node = node->next)
    texts.emplace_back(static_cast<const char *>(node->data));
  return texts;
}

ListPtr list_of(const Texts &texts) {
  auto list = make<ListPtr, cslist_create>();
  for (const std::string &text : texts) cslist_append(list.get(), text.c_str());
  return list;
}

HashTablePtr table_of(const Texts &texts) {
  cshashtable *table = nullptr;
  cshashtable_create(3, &table);
  for (const std::string &text : texts) cshashtable_insert(table, text.c_str(), text.c_str());
  return HashTablePtr(table);
}

char items[] = "abcdefgh";

/// create tests a constructor: it makes an empty container, or returns 1 and makes none.
template <typename Guard, uint32_t (*make_one)(cslist **)>
Verdict create(Memory &memory) {
  auto *made = reinterpret_cast<cslist *>(items);
  const uint32_t status = memory.failing([&] { return make_one(&made); });
  const Guard owned(made);
  return judge(status == 0 && owned && cslist_count(made) == 0, status == 1 && !owned);
}

/// finished_bytes_of returns the bytes of a buffer, in memory or in a file, after writing it out.
std::string finished_bytes_of(csio *io) {
  csio_finish(io);
  return bytes_of(io);
}

std::string long_text(size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) text += std::to_string(i) + ' ';
  return text.substr(0, size);
}

CsioPtr buffer_of(const std::string &text, uint32_t max_memory = 0) {
  CsioPtr io = make_csio(max_memory);
  csio_append(io.get(), text.data(), static_cast<int32_t>(text.size()));
  return io;
}

/// append_all returns true if every append stored all of its bytes.
bool append_all(csio *io, const std::string &text) {
  constexpr size_t piece = 100;
  bool is_stored = true;
  for (size_t at = 0; at < text.size(); at += piece) {
    const auto count = static_cast<int32_t>(std::min(piece, text.size() - at));
    is_stored = csio_append(io, text.data() + at, count) == count && is_stored;
  }
  return is_stored;
}

/// An append in memory reports bytes that could not be kept. When a buffer moves to a file whose name cannot be
/// allocated, its earlier bytes are lost; only the length shows that.
template <uint32_t max_memory>
Verdict append(Memory &memory) {
  const std::string text = long_text(20000);
  const CsioPtr io = make_csio(max_memory);
  const bool is_stored = memory.failing([&] { return append_all(io.get(), text); });
  const bool is_whole = finished_bytes_of(io.get()) == text;
  if (max_memory == 0) return judge(is_stored && is_whole, !is_stored && io->length == text.size());
  if (is_stored && !is_whole) return io->length < text.size() ? Verdict::incomplete : Verdict::wrong;
  return judge(is_whole, !is_stored);
}

constexpr Operation adt_scenarios[] = {
    {"cslist_create", Need::reported, create<ListPtr, cslist_create>},
    {"cslist_set_compare cslist_set_free cslist_set_copy cslist_copy_nop cslist_free_nop cslist_cmp_nop",
     [](Memory &memory) {
       const ListPtr list = list_of({});
       return memory.failing([&] {
         cslist_free_nop(items);
         return cslist_set_compare(list.get(), cslist_cmp_nop) == 0 &&
                cslist_set_free(list.get(), cslist_free_nop) == 0 &&
                cslist_set_copy(list.get(), cslist_copy_nop) == 0 && cslist_copy_nop(items) == items &&
                cslist_cmp_nop(items, "abcd") == 0;
       });
     }},
    {"cslist_append", Need::reported,
     [](Memory &memory) {
       const ListPtr list = list_of({"a"});
       const uint32_t status = memory.failing([&] { return cslist_append(list.get(), "b"); });
       const bool goes_on = cslist_append(list.get(), "c") == 0;
       return judge(goes_on && status == 0 && texts_of(list.get()) == Texts{"a", "b", "c"},
                    goes_on && status == 1 && texts_of(list.get()) == Texts{"a", "c"});
     }},
    // Only for an empty list: in others the new node replaces the first, which is then unreachable (required
    // behaviour).
    {"cslist_prepend", Need::reported,
     [](Memory &memory) {
       const ListPtr list = list_of({});
       const uint32_t status = memory.failing([&] { return cslist_prepend(list.get(), "b"); });
       return judge(status == 0 && texts_of(list.get()) == Texts{"b"}, status == 1 && texts_of(list.get()).empty());
     }},
    {"cslist_find cslist_apply cslist_count cslist_behead cslist_delete cslist_do_free",
     [](Memory &memory) {
       cslist *list = list_of({"a", "b", "c"}).release();
       return memory.failing([&] {
         const bool is_found = cslist_find(list, "c") == list->tail->data && cslist_count(list) == 3;
         const std::unique_ptr<char, Deleter<std::free>> first(static_cast<char *>(cslist_behead(list)));
         const bool is_deleted = cslist_delete(list, "b") == 0;
         cslist_apply(list, [](void *item) { *static_cast<char *>(item) = 'x'; });
         const bool is_right =
             is_found && std::strcmp(first.get(), "a") == 0 && is_deleted && texts_of(list) == Texts{"x"};
         return cslist_do_free(list, 1) == 0 && is_right;
       });
     }},
    // A bucket that could not be allocated accepts no items, and insertion says so.
    {"cshashtable_create", Need::unreported,
     [](Memory &memory) {
       cshashtable *made = nullptr;
       const uint32_t status = memory.failing([&] { return cshashtable_create(3, &made); });
       const HashTablePtr table(made);
       if (!table) return judge(false, status == 1);
       int taken = 0;
       for (const char *key : {"a", "b", "c", "d", "e", "f"}) {
         const bool is_taken = cshashtable_insert(made, key, key) == 0;
         const char *found = static_cast<char *>(cshashtable_find(made, key));
         if (status != 0 || is_taken != (found != nullptr && std::strcmp(found, key) == 0)) return Verdict::wrong;
         taken += is_taken ? 1 : 0;
       }
       if (made->count != taken) return Verdict::wrong;
       return taken == 6 ? Verdict::right : Verdict::incomplete;
     }},
    {"cshashtable_set_hash cshashtable_set_copy cshashtable_set_compare cshashtable_set_free",
     [](Memory &memory) {
       const HashTablePtr table = table_of({});
       return memory.failing([&] {
         return cshashtable_set_hash(table.get(), cshashtable_hf_default) == 0 &&
                cshashtable_set_copy(table.get(), cslist_copy_nop) == 0 &&
                cshashtable_set_compare(table.get(), cslist_cmp_nop) == 0 &&
                cshashtable_set_free(table.get(), cslist_free_nop) == 0;
       });
     }},
    {"cshashtable_insert", Need::reported,
     [](Memory &memory) {
       const HashTablePtr table = table_of({"a"});
       const uint32_t status = memory.failing([&] { return cshashtable_insert(table.get(), "b", "b"); });
       const void *found = cshashtable_find(table.get(), "b");
       return judge(status == 0 && found != nullptr && table->count == 2,
                    status == 1 && found == nullptr && table->count == 1);
     }},
    {"cshashtable_find cshashtable_findhv cshashtable_hf_default cshashtable_iterate cshashtable_stats "
     "cshashtable_delete cshashtable_free",
     [](Memory &memory) {
       cshashtable *table = table_of({"a", "b"}).release();
       cshashtable_statistics statistics{};
       return memory.failing([&] {
         const auto *found = static_cast<char *>(cshashtable_find(table, "b"));
         bool is_right =
             std::strcmp(found, "b") == 0 && cshashtable_findhv(table, "b", cshashtable_hf_default("b")) == found;
         int items_met = 0;
         for (const void *item = nullptr; (item = cshashtable_iterate(table, item, item)) != nullptr;) ++items_met;
         cshashtable_stats(table, &statistics);
         is_right =
             is_right && items_met == 2 && statistics.items == 2 && statistics.chained == 2 && statistics.buckets == 3;
         is_right = cshashtable_delete(table, "a") == 0 && cshashtable_find(table, "a") == nullptr &&
                    table->count == 1 && is_right;
         return cshashtable_free(table) == 0 && is_right;
       });
     }},
    {"csstack_create", Need::reported, create<ListPtr, csstack_create>},
    {"csstack_push", Need::reported,
     [](Memory &memory) {
       const auto stack = make<ListPtr, csstack_create>();
       const uint32_t status = memory.failing([&] { return csstack_push(stack.get(), items); });
       const void *popped = csstack_pop(stack.get());
       return judge(status == 0 && popped == items, status == 1 && popped == nullptr);
     }},
    {"csstack_pop csstack_free",
     [](Memory &memory) {
       auto popped = make<ListPtr, csstack_create>(), freed = make<ListPtr, csstack_create>();
       for (const ListPtr *stack : {&popped, &freed}) csstack_push(stack->get(), items);
       return memory.failing([&] { return csstack_pop(popped.get()) == items && csstack_free(freed.release()) == 0; });
     }},
    {"csqueue_create", Need::reported, create<QueuePtr, csqueue_create>},
    // An item that could not be queued is missing; later items are queued.
    {"csqueue_put", Need::reported,
     [](Memory &memory) {
       const auto queue = make<QueuePtr, csqueue_create>();
       csqueue_put(queue.get(), items);
       const uint32_t status = memory.failing([&] { return csqueue_put(queue.get(), items + 1); });
       csqueue_put(queue.get(), items + 2);
       const bool is_first = csqueue_get(queue.get()) == items;
       const void *second = csqueue_get(queue.get());
       if (status == 1) return judge(false, is_first && second == items + 2);
       return judge(is_first && second == items + 1 && csqueue_get(queue.get()) == items + 2, false);
     }},
    {"csqueue_delete csqueue_peek csqueue_get csqueue_free",
     [](Memory &memory) {
       auto queue = make<QueuePtr, csqueue_create>();
       for (char *item : {items, items + 1, items + 2}) csqueue_put(queue.get(), item);
       return memory.failing([&] {
         return csqueue_delete(queue.get(), items + 1) == 0 && csqueue_peek(queue.get()) == items &&
                csqueue_get(queue.get()) == items && csqueue_peek(queue.get()) == items + 2 &&
                csqueue_free(queue.release()) == 0;
       });
     }},
    {"cspriq_create", Need::reported, create<PriqPtr, cspriq_create>},
    // The order of priorities is kept whether or not a level could be allocated.
    {"cspriq_put", Need::reported,
     [](Memory &memory) {
       const auto queue = make<PriqPtr, cspriq_create>();
       cspriq_put(queue.get(), items, 1);
       cspriq_put(queue.get(), items + 2, 3);
       const uint32_t status = memory.failing([&] { return cspriq_put(queue.get(), items + 1, 2); });
       if (cspriq_get(queue.get()) != items) return Verdict::wrong;
       const void *second = cspriq_get(queue.get());
       if (status == 1) return judge(false, second == items + 2);
       return judge(second == items + 1 && cspriq_get(queue.get()) == items + 2, false);
     }},
    {"cspriq_get cspriq_getpri cspriq_free",
     [](Memory &memory) {
       auto queue = make<PriqPtr, cspriq_create>();
       for (const int32_t priority : {1, 2, 3}) cspriq_put(queue.get(), items + priority, priority);
       return memory.failing([&] {
         return cspriq_getpri(queue.get(), 2) == items + 2 && cspriq_get(queue.get()) == items + 1 &&
                cspriq_free(queue.release()) == 0;
       });
     }},
    {"csio_create", Need::reported,
     [](Memory &memory) {
       csio *made = nullptr;
       const csio *result = memory.failing([&] { return csio_create(&made); });
       const CsioPtr owned(made);
       return judge(made != nullptr && result == made && made->flags == CSIO_MEMORY,
                    made == nullptr && result == nullptr);
     }},
    // If it fails, the bytes are lost, and `data` is null.
    {"csio_increase", Need::reported,
     [](Memory &memory) {
       const CsioPtr io = buffer_of("text");
       memory.failing([&] { csio_increase(io.get(), 10000); });
       if (io->data == nullptr)
         return judge(false, csio_copy(io.get(), items, 0) == 0 && finished_bytes_of(io.get()).empty());
       return judge(io->capacity >= 10000 && finished_bytes_of(io.get()) == "text", false);
     }},
    {"csio_append", Need::reported, append<0>},
    {"csio_append", Need::unreported, append<8192>},
    // If the file name cannot be allocated there is no file. Bytes that could not be buffered are counted in the length
    // but not stored.
    {"csio_convert2file", Need::unreported,
     [](Memory &memory) {
       const CsioPtr io = buffer_of("text");
       memory.failing([&] { return csio_convert2file(io.get()); });
       const std::string bytes = finished_bytes_of(io.get());
       if (io->filename == nullptr) return judge(false, io->length == 0 && bytes.empty());
       if (bytes.empty() && io->length == 4) return Verdict::incomplete;
       return judge(bytes == "text", false);
     }},
    // Reads still come from memory, whatever happens to the copy.
    {"csio_dup2file", Need::unreported,
     [](Memory &memory) {
       const CsioPtr io = buffer_of("text");
       memory.failing([&] { return csio_dup2file(io.get()); });
       if (finished_bytes_of(io.get()) != "text") return Verdict::wrong;
       if (io->filename == nullptr) return Verdict::refused;
       const std::string copy = support::read_file(io->filename);
       return copy.empty() ? Verdict::incomplete : judge(copy == "text", false);
     }},
    {"csio_finish csio_rewind csio_copy csio_releasefd csio_reset csio_destroy",
     [](Memory &memory) {
       csio *in_memory = buffer_of("text").release(), *in_file = buffer_of(long_text(5000), 4096).release();
       return memory.failing([&] {
         bool is_right = finished_bytes_of(in_memory) == "text" && finished_bytes_of(in_file) == long_text(5000);
         csio_releasefd(in_file);
         is_right = is_right && in_file->fd == -1 && finished_bytes_of(in_file) == long_text(5000);
         const std::string file = in_file->filename;
         csio_reset(in_file);
         is_right = is_right && in_file->length == 0 && !support::file_exists(file);
         csio_destroy(in_memory);
         csio_destroy(in_file);
         return is_right;
       });
     }},
};

}  // namespace

std::vector<Operation> adt_operations() { return {std::begin(adt_scenarios), std::end(adt_scenarios)}; }

}  // namespace rdm::faults
