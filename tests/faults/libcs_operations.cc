// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>

#include <libcs/cs.h>
#include <libcs/log.h>
#include <libcs/tax.h>

#include "faults/operations.h"
#include "libcs/guard.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/environment.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

using support::Diagnostics;
using support::soif;

// ---- The taxonomy ----

struct TaxonomyDeleter {
  void operator()(Taxonomy *taxonomy) const {
    taxonomy_destroy(taxonomy);
    host_free(taxonomy);
  }
};
using TaxonomyPtr = std::unique_ptr<Taxonomy, TaxonomyDeleter>;
using NodePtr = std::unique_ptr<Classification, Deleter<classification_destroy>>;

std::string class_object(const std::string &id, const std::string &parent) {
  return soif("CLASSIFICATION", "x-tax:" + id,
              {{"id", id}, {"parent-id", parent}, {"taxonomy-id", "shelves"}, {"description", "of " + id}});
}

const std::string taxonomy_text = soif("TAXONOMY", "http://localhost/tax", {{"id", "shelves"}, {"maintainer", "me"}}) +
                                  class_object("a", "ROOT") + class_object("b", "a") + class_object("c", "b");

TaxonomyPtr load() {
  const support::TemporaryDirectory directory;
  return TaxonomyPtr(taxonomy_load(directory.write("tax", taxonomy_text).c_str()));
}

NodePtr make_node(const char *id) {
  NodePtr node(classification_create());
  node->id = host_strdup(id);
  return node;
}

/// is_sound returns true if every class is below its parent, or missing together with all classes below it.
bool is_sound(Taxonomy *taxonomy) {
  const std::map<std::string, std::string> parents = {{"a", ""}, {"b", "a"}, {"c", "b"}};
  return std::all_of(parents.begin(), parents.end(), [&](const auto &entry) {
    const auto &[id, parent] = entry;
    const Classification *node = taxonomy_find(taxonomy, id.c_str());
    if (node == nullptr) return true;
    const bool hangs_right = node->parent == nullptr ? parent.empty() : parent == node->parent->id;
    return hangs_right && equals(node->description, ("of " + id).c_str());
  });
}

bool is_whole(const Taxonomy *taxonomy) {
  return equals(taxonomy->id, "shelves") && equals(host_param_find("url", taxonomy->info), "http://localhost/tax") &&
         equals(host_param_find("maintainer", taxonomy->info), "me");
}

constexpr Operation libcs_scenarios[] = {
    {"_cslog_do_print _cslog_set_params",
     [](Memory &memory) {
       const Diagnostics log;
       memory.failing([] {
         _cslog_set_params(CSLOG_ERROR, "module", 7);
         _cslog_do_print("text %d\n", 7);
       });
       return log.text() == "ERROR: text 7\n";
     }},
    {"cslog_init cslog_set_level cslog_terminate",
     [](Memory &memory) {
       const support::TemporaryDirectory directory;
       const std::string path = directory.path("log");
       memory.failing([&] {
         cslog_init(1, path.c_str());
         cslog_set_level(0);
         cslog_terminate();
       });
       return support::file_exists(path) && _cslog_level == 0;
     }},
    {"cslog_linestr", Need::reported,
     [](Memory &memory) {
       const HostText line(memory.failing([] { return cslog_linestr("two\nlines"); }));
       return judge(equals(line.get(), "two lines"), !line);
     }},
    {"taxonomy_load", Need::unreported,
     [](Memory &memory) {
       const support::TemporaryDirectory directory;
       const std::string path = directory.write("tax", taxonomy_text);
       const TaxonomyPtr taxonomy(memory.failing([&] { return taxonomy_load(path.c_str()); }));
       if (!taxonomy) return Verdict::refused;
       if (!is_sound(taxonomy.get())) return Verdict::wrong;
       const bool has_all = taxonomy_find(taxonomy.get(), "c") != nullptr && is_whole(taxonomy.get());
       return has_all ? Verdict::right : Verdict::incomplete;
     }},
    // A node that could not be inserted still belongs to the caller, and the log says so.
    {"taxonomy_insert", Need::reported,
     [](Memory &memory) {
       const TaxonomyPtr taxonomy = load();
       const Diagnostics log;
       NodePtr node = make_node("d");
       memory.failing([&] { return taxonomy_insert(taxonomy.get(), node.get(), "a"); });
       if (taxonomy_find(taxonomy.get(), "d") == nullptr)
         return judge(false, node->parent == nullptr && log.text() == "ERROR: Cannot insert 'd' into parent 'a'\n");
       return judge(equals(node.release()->parent->id, "a"), false);
     }},
    {"taxonomy_find taxonomy_walk classification_walk taxonomy_depth",
     [](Memory &memory) {
       const TaxonomyPtr taxonomy = load();
       int nodes = 0;
       const auto count = [](Classification *, void *number) { ++*static_cast<int *>(number); };
       return memory.failing([&] {
         const Classification *node = taxonomy_find(taxonomy.get(), "c");
         taxonomy_walk(taxonomy.get(), 0, count, &nodes);
         classification_walk(taxonomy->root, 2, count, &nodes);
         return node != nullptr && nodes == 8 && taxonomy_depth(taxonomy.get(), node) == 3;
       });
     }},
    {"taxonomy_destroy",
     [](Memory &memory) {
       const TaxonomyPtr taxonomy = load();
       memory.failing([&] { taxonomy_destroy(taxonomy.get()); });
       return taxonomy->root == nullptr;
     }},
    {"classification_create", Need::reported,
     [](Memory &memory) {
       const NodePtr node(memory.failing([] { return classification_create(); }));
       return judge(node && node->id == nullptr && node->child_count == 0, !node);
     }},
    {"classification_destroy",
     [](Memory &memory) {
       Classification *node = make_node("a").release();
       memory.failing([&] { classification_destroy(node); });
       return true;
     }},
    {"cs_time2str cs_time2str_simple_dateonly cs_time2str_simple_datetimeonly cs_time2informix",
     [](Memory &memory) {
       const support::Environment zone("TZ", "UTC");
       char texts[4][40];
       memory.failing([&] {
         cs_time2str(86400, texts[0], sizeof texts[0]);
         cs_time2str_simple_dateonly(86400, texts[1], sizeof texts[1]);
         cs_time2str_simple_datetimeonly(86400, texts[2], sizeof texts[2]);
         cs_time2informix(86400, texts[3], sizeof texts[3]);
       });
       return equals(texts[0], "Fri, 02 Jan 1970 00:00:00 GMT") && equals(texts[1], "01/02/70") &&
              equals(texts[2], "01/02/70 00:00:00") && equals(texts[3], "1970-01-02 00:00:00");
     }},
    {"cs_str2time ZAN_ParseTimeString ZAN_LocalZoneOffset",
     [](Memory &memory) {
       const support::Environment zone("TZ", "UTC");
       time_t time = 0;
       return memory.failing([&] {
         return cs_str2time("02 Jan 1970 00:00:00 GMT", &time) == 86400 && time == 86400 &&
                ZAN_ParseTimeString("02 Jan 1970", 0) == 86400 && ZAN_LocalZoneOffset() == 0;
       });
     }},
    {"plus2space pblock_pblock2str_add_nl",
     [](Memory &memory) {
       char text[] = "a+b", pairs[] = "a=\"1\" b=\"2\"";
       return memory.failing([&] {
         return plus2space(text) == text + 3 && equals(text, "a b") &&
                equals(pblock_pblock2str_add_nl(pairs), "a=\"1\"\nb=\"2\"");
       });
     }},
    // The result is that of the last field. Each parameter has the values of some of its fields, in their order.
    {"pblock_form2pblock", Need::unreported,
     [](Memory &memory) {
       char text[] = "a=1&b=2&a=3&c=4";
       const PblockPtr block(host_param_create(3));
       const int result = memory.failing([&] { return pblock_form2pblock(text, sizeof text - 1, block.get()); });
       const std::map<std::string, std::vector<const char *>> possible = {
           {"a", {"1,3", "1", "3"}}, {"b", {"2"}}, {"c", {"4"}}};
       bool is_whole = true;
       for (const auto &[name, values] : possible) {
         const char *value = host_param_find(name.c_str(), block.get());
         is_whole = is_whole && equals(value, values.front());
         if (value == nullptr) continue;
         if (std::none_of(values.begin(), values.end(), [value](const char *one) { return equals(value, one); }))
           return Verdict::wrong;
       }
       if ((host_param_find("c", block.get()) == nullptr) != (result == -1)) return Verdict::wrong;
       if (is_whole) return Verdict::right;
       return result == -1 ? Verdict::refused : Verdict::incomplete;
     }},
    // The messages may lack lines; only the host's count of failures shows it.
    {"pblock_pblock2rdm", Need::unreported,
     [](Memory &memory) {
       const PblockPtr block(host_param_create(3));
       for (const char *name : {"type", "ql", "scope"}) host_param_add(name, name, block.get());
       const CsioPtr header = make_csio(), query = make_csio();
       const char *refusal = memory.failing([&] { return pblock_pblock2rdm(block.get(), header.get(), query.get()); });
       const std::string whole_header =
           soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "type"}, {"rdm-query-language", "ql"}}) +
           "\n\n\n";
       const std::string whole_query = soif("RDMQUERY", "-", {{"scope", "scope"}});
       const std::string a = bytes_of(header.get()), b = bytes_of(query.get());
       const auto is_sound = [](const std::string &text, const std::string &whole) {
         return text == whole || lacks_a_part(text, whole);
       };
       if (refusal != nullptr || !is_sound(a, whole_header) || !is_sound(b, whole_query)) return Verdict::wrong;
       return a == whole_header && b == whole_query ? Verdict::right : Verdict::incomplete;
     }},
    {"pblock_remove_n_free", Need::unreported,
     [](Memory &memory) {
       const PblockPtr block(host_param_create(3));
       host_param_add("a", "1", block.get());
       memory.failing([&] { pblock_remove_n_free("a", block.get()); });
       const char *left = host_param_find("a", block.get());
       if (left == nullptr) return Verdict::right;
       return equals(left, "1") ? Verdict::incomplete : Verdict::wrong;
     }},
    {"cs_cli_run cs_cli_run_no_pipe cs_limited_cli_run",
     [](Memory &memory) {
       return memory.failing([] {
         return cs_cli_run("exit 3", nullptr) == 3 && cs_cli_run_no_pipe("exit 4", nullptr) == 4 &&
                cs_limited_cli_run("exit 5", nullptr, 0, 0, 1, 0) == 5;
       });
     }},
    // It returns the first of several files, or fails; it never returns a later one.
    {"cs_search_path", Need::reported,
     [](Memory &memory) {
       const support::TemporaryDirectory directory;
       for (const char *name : {"first", "second"}) std::filesystem::create_directory(directory.path(name));
       const std::string wanted = directory.write("first/file", "");
       directory.write("second/file", "");
       const support::Environment path("SEARCHED", (directory.path("first") + ":" + directory.path("second")).c_str());
       const HostText found(memory.failing([] { return cs_search_path("file", "SEARCHED"); }));
       return judge(equals(found.get(), wanted.c_str()), !found);
     }},
    {"cs_search_path", Need::reported,
     [](Memory &memory) {
       const support::Environment path("SEARCHED", "/nowhere");
       const HostText found(memory.failing([] { return cs_search_path("file", "SEARCHED"); }));
       return judge(equals(found.get(), "file"), !found);
     }},
    {"cs_mem2md5 cs_mem2md5str",
     [](Memory &memory) {
       unsigned char bytes[16];
       char text[33];
       memory.failing([&] {
         cs_mem2md5("", 0, bytes);
         return cs_mem2md5str("", 0, text);
       });
       return bytes[0] == 0xd4 && equals(text, "d41d8cd98f00b204e9800998ecf8427e");
     }},
    {"csid_parse",
     [](Memory &memory) {
       char name[40], host[40];
       int port = 0;
       const int result = memory.failing([&] { return csid_parse("x-catalog://host:80/name", name, host, &port); });
       return result == 0 && equals(name, "name") && equals(host, "host") && port == 80;
     }},
};

}  // namespace

std::vector<Operation> libcs_operations() { return {std::begin(libcs_scenarios), std::end(libcs_scenarios)}; }

}  // namespace rdm::faults
