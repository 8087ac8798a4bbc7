// SPDX-License-Identifier: MIT
#include <cstring>
#include <iterator>
#include <string>

#include "faults/operations.h"
#include "libcs/guard.h"
#include "service/support/catalog.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

using PairPtr = std::unique_ptr<AVPair, Deleter<avpair_free>>;

const std::string object_text = support::soif("FILE", "http://localhost/", {{"title", "one"}, {"text", "two\nlines"}});

PairPtr make_pair(const char *name, const char *value) {
  AVPair *pair = nullptr;
  avpair_create(name, value, static_cast<int32_t>(std::strlen(value)), &pair);
  return PairPtr(pair);
}

bool is_pair(const AVPair *pair, const char *name, const char *value) {
  return pair != nullptr && equals(pair->attribute, name) && equals(pair->value, value) &&
         pair->vsize == static_cast<int32_t>(std::strlen(value));
}

SoifPtr make_object() {
  SoifPtr object = make_soif("FILE", "http://localhost/", 1);
  soif_insert(object.get(), "title", "one", 3);
  soif_insert(object.get(), "text", "two\nlines", 9);
  return object;
}

int to_string(void *argument, const void *bytes, int32_t length) {
  static_cast<std::string *>(argument)->append(static_cast<const char *>(bytes), static_cast<size_t>(length));
  return length;
}

std::string printed(const SOIF *object) {
  std::string text;
  SoifWriter(to_string, &text).print(object);
  return text;
}

bool is_whole(const SOIF *object) { return object != nullptr && printed(object) == object_text; }

constexpr Operation soif_scenarios[] = {
    {"avpair_create", Need::reported,
     [](Memory &memory) {
       AVPair *made = nullptr;
       const int result = memory.failing([&] { return avpair_create("name", "value", 5, &made); });
       const PairPtr pair(made);
       return judge(result == 0 && is_pair(made, "name", "value"), result == 1 && made == nullptr);
     }},
    {"avpair_copy", Need::reported,
     [](Memory &memory) {
       const PairPtr source = make_pair("name", "value");
       const PairPtr copy(static_cast<AVPair *>(memory.failing([&] { return avpair_copy(source.get()); })));
       return judge(is_pair(copy.get(), "name", "value") && copy->value != source->value, !copy);
     }},
    // The value has one owner before and after.
    {"avpair_copy_useval", Need::reported,
     [](Memory &memory) {
       const PairPtr source = make_pair("name", "value");
       const PairPtr copy(static_cast<AVPair *>(memory.failing([&] { return avpair_copy_useval(source.get()); })));
       if (!copy) return judge(false, is_pair(source.get(), "name", "value"));
       const bool is_right = is_pair(copy.get(), "name", "value") && copy->value == source->value;
       source->value = nullptr;
       return judge(is_right, false);
     }},
    {"avpair_compare avpair_hash avpair_free",
     [](Memory &memory) {
       AVPair *pair = make_pair("name", "value").release();
       return memory.failing([&] {
         const bool is_right = avpair_compare(pair, "NAME") == 0 && avpair_hash(pair) == cshashtable_hf_default("name");
         return avpair_free(pair) == 0 && is_right;
       });
     }},
    // An object whose hash table lacks a bucket accepts no attribute into it, and insertion says so.
    {"soif_create", Need::unreported,
     [](Memory &memory) {
       SOIF *made = nullptr;
       const int result = memory.failing([&] { return soif_create("FILE", "http://localhost/", 1, &made); });
       const SoifPtr object(made);
       if (!object) return judge(false, result == 1);
       if (result != 0 || !equals(made->template_name, "FILE") || !equals(made->url, "http://localhost/"))
         return Verdict::wrong;
       const bool is_taken = soif_insert(made, "title", "one", 3) == 0;
       if (is_taken != (soif_find(made, "title") != nullptr)) return Verdict::wrong;
       return is_taken ? Verdict::right : Verdict::incomplete;
     }},
    {"soif_compare soif_find soif_findval soif_multivalue_attrcmp soif_delete soif_free",
     [](Memory &memory) {
       SOIF *object = make_object().release();
       return memory.failing([&] {
         const bool is_found = soif_compare(object, "http://localhost/") == 0 &&
                               is_pair(soif_find(object, "title"), "title", "one") &&
                               equals(soif_findval(object, "title"), "one") && soif_multivalue_attrcmp("a", "a-1") == 1;
         const bool is_deleted = soif_delete(object, "title") == 0 && soif_find(object, "title") == nullptr;
         return soif_free(object) == 0 && is_found && is_deleted;
       });
     }},
    {"soif_insert", Need::reported,
     [](Memory &memory) {
       const SoifPtr object = make_object();
       const int result = memory.failing([&] { return soif_insert(object.get(), "name", "value", 5); });
       const char *value = soif_findval(object.get(), "name");
       const bool is_counted = object->attr_count == 3;
       return judge(is_counted && result == 0 && equals(value, "value"), is_counted && result == 1 && value == nullptr);
     }},
    // A value that was not inserted still belongs to the caller.
    {"soif_insert_nocopy", Need::reported,
     [](Memory &memory) {
       const SoifPtr object = make_object();
       HostText value(host_strdup("value"));
       const int result = memory.failing([&] { return soif_insert_nocopy(object.get(), "name", value.get(), 5); });
       const char *found = soif_findval(object.get(), "name");
       if (result == 1) return judge(false, found == nullptr && equals(value.get(), "value"));
       return judge(result == 0 && found == value.release(), false);
     }},
    {"soif_buffer_create", Need::reported,
     [](Memory &memory) {
       SOIFBuffer *made = nullptr;
       const char *data = memory.failing([&] { return soif_buffer_create(10, &made); });
       const SoifBufferPtr buffer(made);
       return judge(made != nullptr && data == made->data && made->size == 10, made == nullptr && data == nullptr);
     }},
    {"soif_buffer_increase", Need::reported,
     [](Memory &memory) {
       SOIFBuffer *made = nullptr;
       soif_buffer_create(10, &made);
       const SoifBufferPtr buffer(made);
       soif_buffer_append(made, "text", 4);
       const char *data = memory.failing([&] { return soif_buffer_increase(made, 1000); });
       if (!equals(made->data, "text")) return Verdict::wrong;
       return judge(data == made->data && made->size == 1010, data == nullptr && made->size == 10);
     }},
    {"soif_buffer_append", Need::reported,
     [](Memory &memory) {
       SOIFBuffer *made = nullptr;
       soif_buffer_create(4, &made);
       const SoifBufferPtr buffer(made);
       soif_buffer_append(made, "tex", 3);
       const int result = memory.failing([&] { return soif_buffer_append(made, "t and more", 10); });
       return judge(result == 0 && equals(made->data, "text and more"),
                    result == 1 && equals(made->data, "tex") && made->length == 3);
     }},
    {"soif_buffer_destroy",
     [](Memory &memory) {
       SOIFBuffer *made = nullptr;
       soif_buffer_create(10, &made);
       memory.failing([&] { soif_buffer_destroy(made); });
       return true;
     }},
    // An object is read completely or not at all, and the next one can be read.
    {"soif_parse soif_parse_init_string soif_parse_is_eoi soif_parse_finish", Need::reported,
     [](Memory &memory) {
       const std::string text = object_text + object_text;
       const int stream =
           memory.failing([&] { return soif_parse_init_string(text.data(), static_cast<int32_t>(text.size())); });
       SOIF *made = nullptr;
       const int result = memory.failing([&] { return soif_parse(stream, &made); });
       const SoifPtr object(made);
       const int at_end = memory.failing([&] { return soif_parse_is_eoi(stream); });
       SOIF *next = nullptr;
       const bool goes_on = soif_parse(stream, &next) == 0 && is_whole(SoifPtr(next).get());
       memory.failing([&] { return soif_parse_finish(stream); });
       if (!goes_on || at_end != 0) return Verdict::wrong;
       return judge(result == 0 && is_whole(made), result == 1 && made == nullptr);
     }},
    {"soif_parse_init_file soif_parse_set_accept_attr", Need::reported,
     [](Memory &memory) {
       const support::TemporaryDirectory directory;
       const StdioPtr file = open_stdio(directory.write("file", object_text).c_str());
       char title[] = "title";
       char *accept[] = {title, nullptr};
       const int stream = memory.failing([&] { return soif_parse_init_file(file.get()); });
       memory.failing([&] { return soif_parse_set_accept_attr(stream, accept); });
       SOIF *made = nullptr;
       const int result = memory.failing([&] { return soif_parse(stream, &made); });
       const SoifPtr object(made);
       soif_parse_finish(stream);
       const bool is_right =
           made != nullptr && equals(soif_findval(made, "title"), "one") && soif_find(made, "text") == nullptr;
       return judge(result == 0 && is_right, result == 1 && made == nullptr);
     }},
    // A header line too long for the buffer on the stack is printed in pieces if no block can be allocated.
    {"soif_print soif_print_init_fn soif_print_finish", Need::reported,
     [](Memory &memory) {
       const SoifPtr object = make_soif("FILE", std::string(2000, 'u').c_str(), 1);
       soif_insert(object.get(), std::string(2000, 'n').c_str(), "value", 5);
       std::string text;
       const int stream = memory.failing([&] { return soif_print_init_fn(to_string, &text); });
       memory.failing([&] { return soif_print(stream, object.get()); });
       memory.failing([&] { return soif_print_finish(stream); });
       return judge(text == printed(object.get()), false);
     }},
    {"soif_print_header soif_print_body soif_print_trailer",
     [](Memory &memory) {
       const SoifPtr object = make_object();
       std::string text;
       const int stream = soif_print_init_fn(to_string, &text);
       memory.failing([&] {
         soif_print_header(stream, object.get());
         soif_print_body(stream, object.get());
         soif_print_trailer(stream);
       });
       soif_print_finish(stream);
       return text == object_text;
     }},
    {"soif_print_init_file",
     [](Memory &memory) {
       const support::TemporaryDirectory directory;
       const std::string path = directory.path("file");
       const SoifPtr object = make_object();
       {
         const StdioPtr file(std::fopen(path.c_str(), "w"));
         const int stream = memory.failing([&] { return soif_print_init_file(file.get()); });
         memory.failing([&] { return soif_print(stream, object.get()); });
         soif_print_finish(stream);
       }
       return support::read_file(path) == object_text;
     }},
    // Without a buffer everything is dropped; a buffer that cannot grow lacks what did not fit.
    {"soif_print_init_string", Need::unreported,
     [](Memory &memory) {
       const std::string value(10000, 'v');
       const SoifPtr object = make_object();
       soif_insert(object.get(), "long", value.data(), static_cast<int32_t>(value.size()));
       SOIFBuffer *made = nullptr;
       const int stream = memory.failing([&] { return soif_print_init_string(&made); });
       memory.failing([&] { return soif_print(stream, object.get()); });
       soif_print_finish(stream);
       const SoifBufferPtr buffer(made);
       if (!buffer) return Verdict::refused;
       const std::string text(made->data, static_cast<size_t>(made->length)), whole = printed(object.get());
       if (text == whole) return Verdict::right;
       return lacks_a_part(text, whole) ? Verdict::incomplete : Verdict::wrong;
     }},
};

}  // namespace

std::vector<Operation> soif_operations() { return {std::begin(soif_scenarios), std::end(soif_scenarios)}; }

}  // namespace rdm::faults
