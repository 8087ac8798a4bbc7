// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "faults/operations.h"
#include "qxapi/guard.h"
#include "service/alias.h"
#include "service/csid.h"
#include "service/schema.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

using support::Diagnostics;

// ---- The registry of catalog services ----

struct Configuration {
  support::TemporaryDirectory directory;
  std::string aliases = directory.write("aliases", "parent one two\n");
  std::string text = "csid=\"a\" catalog-database=\"/a\"\nalias-file=\"" + aliases +
                     "\"\ncsid=\"b\" catalog-database=\"/b\"\nextra=\"x\"\n";
  std::string path = directory.write("csid.conf", text);
};

/// Registered holds a registry for the scope of a scenario.
struct Registered {
  Configuration configuration;
  support::Registry registry{configuration.directory, configuration.text, "a"};
};

bool has_all_services() {
  return equals(csid_findval("catalog-database", "a"), "/a") && equals(csid_findval("catalog-database", "b"), "/b") &&
         equals(csid_findval("extra", "b"), "x") && csid_findval("extra", "a") == nullptr &&
         csid_finda2p("a") != nullptr && equals(alias_to_parent(csid_finda2p("a"), "two"), "parent") &&
         equals(parent_to_aliases(csid_findp2a("a"), "one"), "two") && equals(csid_default(nullptr), "a");
}

/// has_foreign_pairs returns true if a service has a pair of another.
bool has_foreign_pairs() {
  const char *a = csid_findval("catalog-database", "a"), *b = csid_findval("catalog-database", "b");
  return (a != nullptr && !equals(a, "/a")) || (b != nullptr && !equals(b, "/b")) ||
         csid_findval("extra", "a") != nullptr || csid_findval("alias-file", "b") != nullptr;
}

// ---- Aliases ----

/// Maps holds the two blocks of an alias file.
struct Maps {
  pblock *a2p = host_param_create(3), *p2a = host_param_create(3);
  Maps() {
    for (pblock *map : {a2p, p2a}) fill_room(map);
  }
  Maps(const Maps &) = delete;
  Maps &operator=(const Maps &) = delete;
  ~Maps() { alias_destroy(a2p, p2a); }

  /// clear frees both, before alias_init makes new ones.
  void clear() {
    alias_destroy(a2p, p2a);
    a2p = p2a = nullptr;
  }
  bool is_whole() const {
    return equals(alias_to_parent(a2p, "two"), "parent") && equals(parent_to_aliases(p2a, "parent"), "one") &&
           equals(parent_to_aliases(p2a, "one"), "two");
  }
  /// is_sound returns true if each name that is there has its parent, and the chain its order.
  bool is_sound() const {
    for (const char *name : {"parent", "one", "two"})
      if (const char *parent = alias_to_parent(a2p, name); parent != nullptr && !equals(parent, "parent")) return false;
    const char *first = parent_to_aliases(p2a, "parent"), *second = parent_to_aliases(p2a, "one");
    return (first == nullptr || equals(first, "one")) && (second == nullptr || equals(second, "two"));
  }
};

// ---- The schema translator ----

const std::string schema_text = support::soif("SCHEMA", "-",
                                              {{"schema-name", "documents"},
                                               {"soif-attribute-1", "number"},
                                               {"system-table-name-1", "doc"},
                                               {"system-column-name-1", "id"},
                                               {"data-type-1", "int"},
                                               {"soif-attribute-2", "title"},
                                               {"system-table-name-2", "texts"},
                                               {"system-column-name-2", "title_text"}});

/// Schema loads the mapping of schema_text for the scope of a scenario.
struct Schema {
  support::TemporaryDirectory directory;
  std::string path = directory.write("schema", schema_text);
  Schema() { schema_translate_init(path.c_str()); }
  Schema(const Schema &) = delete;
  Schema &operator=(const Schema &) = delete;
  ~Schema() { schema_translate_init(nullptr); }
};

bool is_empty() {
  char text[SCHEMA_TEXT_SIZE];
  return equals(schema_name(), "") && schema_translate_soifattribute("number", text) == nullptr &&
         schema_translate_soifattribute("title", text) == nullptr;
}

bool has_whole_mapping() {
  char text[SCHEMA_TEXT_SIZE];
  return equals(schema_name(), "documents") &&
         equals(schema_translate_soifattribute("title", text), "texts.title_text") &&
         equals(schema_translate_tblcol("doc.id", text), "number") &&
         equals(schema_translate_col("title-text", text), "title") &&
         schema_translate_soifattr2datatype("number") == SCHEMA_INT;
}

template <void (*list)(char ***, int32_t *)>
Verdict list_all(Memory &memory) {
  const Schema schema;
  char **out = nullptr;
  int32_t count = -1;
  memory.failing([&] { list(&out, &count); });
  const HostPtr<char *> array(out);
  return judge(out != nullptr && count == 2 && equals(out[0], list == schema_soifattrs ? "number" : "doc.id"),
               out == nullptr && count == 0);
}

constexpr Operation registry_scenarios[] = {
    // The log reports an incomplete registry; the operator then restarts the service.
    {"csid_init", Need::reported,
     [](Memory &memory) {
       const Configuration configuration;
       const Diagnostics log;
       const int result = memory.failing([&] { return csid_init(configuration.path.c_str(), "a"); });
       const bool is_whole = has_all_services(), is_foreign = has_foreign_pairs();
       csid_terminate();
       if (is_foreign) return Verdict::wrong;
       return judge(result == 0 && is_whole, !log.text().empty());
     }},
    {"csid_terminate",
     [](Memory &memory) {
       const Registered registered;
       memory.failing([] { csid_terminate(); });
       return csid_find("a") == nullptr;
     }},
    {"csid_find csid_findval csid_finda2p csid_findp2a",
     [](Memory &memory) {
       const Registered registered;
       return memory.failing([] { return csid_find("a") != nullptr && has_all_services(); });
     }},
    {"csid_default", Need::reported,
     [](Memory &memory) {
       const Registered registered;
       const char *set = memory.failing([] { return csid_default("b"); });
       const char *now = csid_default(nullptr);
       return judge(equals(set, "b") && now == set, set == nullptr && now == nullptr);
     }},
    // If a name cannot be added, the rest of its line is skipped, and the log says so.
    {"alias_init", Need::reported,
     [](Memory &memory) {
       const Configuration configuration;
       const Diagnostics log;
       Maps maps;
       maps.clear();
       const int result =
           memory.failing([&] { return alias_init(&maps.a2p, &maps.p2a, configuration.aliases.c_str()); });
       const bool is_told = log.text().find("alias_") != std::string::npos;
       if (result == -1) return judge(false, maps.a2p == nullptr && maps.p2a == nullptr && is_told);
       return judge(result == 0 && maps.is_whole(), maps.is_sound() && is_told);
     }},
    {"alias_parse", Need::reported,
     [](Memory &memory) {
       const Maps maps;
       char line[] = "parent one two";
       const int result = memory.failing([&] { return alias_parse(maps.a2p, maps.p2a, line); });
       return judge(result == 0 && maps.is_whole(), result == -1 && maps.is_sound());
     }},
    {"alias_copy", Need::reported,
     [](Memory &memory) {
       const Maps maps;
       const int result = memory.failing([&] { return alias_copy(maps.a2p, "one", "parent", 1); });
       const char *parent = alias_to_parent(maps.a2p, "one");
       return judge(result == 0 && equals(parent, "parent"), result == -1 && parent == nullptr);
     }},
    {"alias_to_parent parent_to_aliases alias_iterate alias_destroy",
     [](Memory &memory) {
       Maps maps;
       char line[] = "parent one two";
       alias_parse(maps.a2p, maps.p2a, line);
       return memory.failing([&] {
         const bool is_found = maps.is_whole() && alias_iterate(maps.p2a, "parent") == nullptr;
         maps.clear();
         return is_found;
       });
     }},
    // If it fails, the mapping is empty: it has neither parts of the new one nor the old one.
    {"schema_translate_init", Need::reported,
     [](Memory &memory) {
       const Schema schema;
       const Diagnostics log;
       const int result = memory.failing([&] { return schema_translate_init(schema.path.c_str()); });
       return judge(result == 0 && has_whole_mapping(), result == -1 && is_empty() && !log.text().empty());
     }},
    {"schema_name schema_translate_soifattribute schema_translate_soifattr2datatype schema_translate_tblcol "
     "schema_translate_col schema_translate_terminate",
     [](Memory &memory) {
       const Schema schema;
       return memory.failing([] {
         schema_translate_terminate();
         return has_whole_mapping();
       });
     }},
    {"schema_translate_soif2rdbms", Need::reported,
     [](Memory &memory) {
       const Schema schema;
       char *out = schema_name();
       const char *result = memory.failing([&] { return schema_translate_soif2rdbms("title,number,title", &out); });
       const HostText text(out);
       return judge(result == out && equals(out, "texts.title_text,doc.id"), result == nullptr && out == nullptr);
     }},
    {"schema_systables", Need::reported,
     [](Memory &memory) {
       const Schema schema;
       char **out = nullptr;
       const int32_t count = memory.failing([&] { return schema_systables("texts.title_text,doc.id", &out); });
       const HostPtr<char *> tables(out);
       return judge(count == 2 && equals(out[0], "doc") && equals(out[1], "texts"), count == 0 && out == nullptr);
     }},
    {"schema_translate_alljoin", Need::reported,
     [](Memory &memory) {
       const Schema schema;
       const char *clause = memory.failing([] { return schema_translate_alljoin("texts.title_text,doc.id"); });
       return judge(equals(clause, " AND doc.id = texts.docid "), clause == nullptr);
     }},
    {"schema_soifattrs", Need::reported, list_all<schema_soifattrs>},
    {"schema_tblcols", Need::reported, list_all<schema_tblcols>},
};

}  // namespace

std::vector<Operation> registry_operations() { return {std::begin(registry_scenarios), std::end(registry_scenarios)}; }

}  // namespace rdm::faults
