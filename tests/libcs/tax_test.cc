// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <initializer_list>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/tax.h>

#include "qxapi/guard.h"
#include "support/diagnostics.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/growth.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Ids = std::vector<std::string>;

void release(Taxonomy *taxonomy) {
  taxonomy_destroy(taxonomy);
  host_free(taxonomy);
}
using TaxonomyPtr = std::unique_ptr<Taxonomy, Deleter<release>>;
using NodePtr = std::unique_ptr<Classification, Deleter<classification_destroy>>;
using Pairs = std::initializer_list<std::pair<std::string, std::string>>;

std::string soif(const std::string &template_name, const std::string &url, Pairs attributes) {
  std::string text = "@" + template_name + " { " + url + "\n";
  for (const auto &[name, value] : attributes)
    text.append(name).append("{").append(std::to_string(value.size())).append("}:\t").append(value).append("\n");
  return text + "}\n";
}

std::string taxonomy_object(const std::string &id = "shelves") { return soif("TAXONOMY", "x-tax:1", {{"id", id}}); }

std::string class_object(const std::string &id, const std::string &parent) {
  return soif("CLASSIFICATION", "x-tax:" + id, {{"id", id}, {"parent-id", parent}, {"taxonomy-id", "shelves"}});
}

class Tax : public support::HostTest {
 protected:
  TaxonomyPtr load(const std::string &text) const {
    return TaxonomyPtr(taxonomy_load(directory.write("taxonomy", text).c_str()));
  }
  /// loaded returns the taxonomy a (b (c), d), e.
  TaxonomyPtr loaded() const {
    return load(taxonomy_object() + class_object("a", "ROOT") + class_object("b", "a") + class_object("c", "b") +
                class_object("d", "a") + class_object("e", "ROOT"));
  }
  static NodePtr make(const char *id) {
    NodePtr node(classification_create());
    node->id = id != nullptr ? host_strdup(id) : nullptr;
    return node;
  }

  static void note(Classification *node, void *ids) {
    static_cast<Ids *>(ids)->emplace_back(node->id != nullptr ? node->id : "(null)");
  }
  static Ids walk(const TaxonomyPtr &taxonomy, int mode = 0) {
    Ids ids;
    taxonomy_walk(taxonomy.get(), mode, note, &ids);
    return ids;
  }
  static std::string info(const TaxonomyPtr &taxonomy, const char *name) {
    const char *value = host_param_find(name, taxonomy->info);
    return value != nullptr ? value : "(none)";
  }
  static int depth(const TaxonomyPtr &taxonomy, const char *id) {
    return taxonomy_depth(taxonomy.get(), taxonomy_find(taxonomy.get(), id));
  }

  support::TemporaryDirectory directory;
  support::Diagnostics diagnostics;
};

TEST_F(Tax, ATaxonomyAloneHasARootWithoutChildren) {
  const TaxonomyPtr taxonomy =
      load(soif("TAXONOMY", "http://h/tax", {{"id", "shelves"}, {"last-modified", "today"}, {"maintainer", "me"}}));
  ASSERT_TRUE(taxonomy);
  EXPECT_STREQ(taxonomy->id, "shelves");
  EXPECT_EQ(info(taxonomy, "url"), "http://h/tax");
  EXPECT_EQ(info(taxonomy, "last-modified"), "today");
  EXPECT_EQ(info(taxonomy, "maintainer"), "me");
  EXPECT_STREQ(taxonomy->root->id, "ROOT");
  EXPECT_EQ(taxonomy->root->description, nullptr);
  EXPECT_EQ(taxonomy->root->parent, nullptr);
  EXPECT_EQ(taxonomy->root->child_count, 0);
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, AnEmptyFileGivesATaxonomyWithoutAnId) {
  const TaxonomyPtr taxonomy = load("");
  ASSERT_TRUE(taxonomy);
  EXPECT_EQ(taxonomy->id, nullptr);
  EXPECT_EQ(info(taxonomy, "url"), "(none)");
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT"));
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, AMissingFileIsReported) {
  const std::string path = directory.path("missing");
  EXPECT_EQ(taxonomy_load(path.c_str()), nullptr);
  EXPECT_EQ(taxonomy_load(nullptr), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: taxonomy_load: " + path +
                                    ": No such file or directory\n"
                                    "ERROR: taxonomy_load: (null): No such file or directory\n");
}

TEST_F(Tax, ADirectoryIsReadAsFarAsItCanBe) {
  const TaxonomyPtr taxonomy(taxonomy_load(directory.path().c_str()));
  ASSERT_TRUE(taxonomy);
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT"));
}

TEST_F(Tax, LoadingLeavesNoFileAndNoStreamOpen) {
  constexpr int more_than_there_are_streams = 300;
  const auto next_descriptor = [] { return HostFileGuard(host_open_read("/dev/null")).get(); };
  const int before = next_descriptor();
  for (int i = 0; i < more_than_there_are_streams; ++i) ASSERT_TRUE(loaded());
  EXPECT_EQ(next_descriptor(), before);
}

TEST_F(Tax, TheInfoHasSevenSlots) {
  static int slots;
  slots = 0;
  qxapi_host counting = support::memory_host();
  counting.param_create = [](int count) {
    slots = count;
    return support::memory_host().param_create(count);
  };
  qxapi_bind(&counting);
  ASSERT_TRUE(load(""));
  EXPECT_EQ(slots, 7);
}

TEST_F(Tax, ClassesAreLinkedToTheirParents) {
  const TaxonomyPtr taxonomy = loaded();
  const Classification *a = taxonomy->root->children[0];
  EXPECT_EQ(taxonomy->root->child_count, 2);
  EXPECT_STREQ(a->id, "a");
  EXPECT_EQ(a->child_count, 2);
  EXPECT_EQ(a->children[0]->parent, a);
  EXPECT_EQ(a->children[0]->children[0]->parent, a->children[0]);
  EXPECT_EQ(a->parent, nullptr) << "the top level does not point back at the root";
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, ClassesHaveTheirDescription) {
  const TaxonomyPtr taxonomy =
      load(taxonomy_object() + class_object("plain", "ROOT") +
           soif("classification", "-",
                {{"id", "told"}, {"parent-id", "ROOT"}, {"taxonomy-id", "shelves"}, {"description", "Two\nlines"}}));
  EXPECT_EQ(taxonomy_find(taxonomy.get(), "plain")->description, nullptr);
  EXPECT_STREQ(taxonomy_find(taxonomy.get(), "told")->description, "Two\nlines");
}

TEST_F(Tax, SiblingsStayInTheOrderOfInsertion) {
  std::string text = taxonomy_object();
  Ids expected{"ROOT"};
  for (const char *id : {"m", "z", "a", "Q", "b"}) {
    text += class_object(id, "ROOT");
    expected.emplace_back(id);
  }
  EXPECT_EQ(walk(load(text)), expected);
}

TEST_F(Tax, ClassesThatDoNotFitAreReportedAndLeftOut) {
  const struct {
    const char *what;
    std::string text;
    Ids left;
    const char *report;
  } rows[] = {
      {"ahead of its parent",
       taxonomy_object() + class_object("child", "late") + class_object("late", "ROOT"),
       {"ROOT", "late"},
       "ERROR: Cannot insert 'child' into parent 'late'\n"},
      {"the root is spelled in capitals",
       taxonomy_object() + class_object("a", "root"),
       {"ROOT"},
       "ERROR: Cannot insert 'a' into parent 'root'\n"},
      {"of another taxonomy",
       taxonomy_object("shelf") + class_object("a", "ROOT"),
       {"ROOT"},
       "WARNING: taxonomy_load: Misfit: x-tax:a\n"},
      {"ahead of the taxonomy",
       class_object("a", "ROOT") + taxonomy_object() + class_object("b", "ROOT"),
       {"ROOT", "b"},
       "WARNING: taxonomy_load: Misfit: x-tax:a\n"},
  };
  for (const auto &row : rows) {
    const support::Diagnostics log;
    EXPECT_EQ(walk(load(row.text)), row.left) << row.what;
    EXPECT_EQ(log.text(), row.report) << row.what;
  }
}

TEST_F(Tax, TaxonomyIdsCompareInAnyLetterCase) {
  const TaxonomyPtr taxonomy = load(taxonomy_object("SHELVES") + class_object("a", "ROOT"));
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT", "a"));
}

TEST_F(Tax, ClassesWithoutTheirIdsAreMalformed) {
  const TaxonomyPtr taxonomy =
      load(taxonomy_object() + soif("CLASSIFICATION", "no-id", {{"parent-id", "ROOT"}, {"taxonomy-id", "shelves"}}) +
           soif("CLASSIFICATION", "no-parent", {{"id", "a"}, {"taxonomy-id", "shelves"}}) +
           soif("CLASSIFICATION", "no-taxonomy", {{"id", "a"}, {"parent-id", "ROOT"}}) +
           soif("CLASSIFICATION", "none-at-all", {}));
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT"));
  EXPECT_EQ(diagnostics.text(),
            "WARNING: taxonomy_load: Malformed: no-id\n"
            "WARNING: taxonomy_load: Malformed: no-parent\n"
            "WARNING: taxonomy_load: Malformed: no-taxonomy\n"
            "WARNING: taxonomy_load: Malformed: none-at-all\n");
}

TEST_F(Tax, TheFirstTaxonomyWithAnIdCounts) {
  const TaxonomyPtr taxonomy = load(soif("TAXONOMY", "x:0", {{"maintainer", "another"}}) +
                                    soif("taxonomy", "x:1", {{"id", "one"}, {"maintainer", "me"}}) +
                                    soif("TAXONOMY", "x:2", {{"id", "two"}, {"last-modified", "now"}}));
  EXPECT_STREQ(taxonomy->id, "one");
  EXPECT_EQ(info(taxonomy, "url"), "x:1");
  EXPECT_EQ(info(taxonomy, "maintainer"), "me");
  EXPECT_EQ(info(taxonomy, "last-modified"), "(none)");
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, DamagedObjectsAndOtherTemplatesAreSkipped) {
  const TaxonomyPtr taxonomy =
      load("noise\n" + soif("RDMHEADER", "-", {{"id", "x"}}) + taxonomy_object() + soif("FILE", "/a", {{"id", "y"}}) +
           "@CLASSIFICATION { x\nid{1}a\n}\n" + class_object("a", "ROOT") + "@CLASSIFICATION { y\nid{50}:\tcut");
  EXPECT_STREQ(taxonomy->id, "shelves");
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT", "a"));
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, TheExampleTaxonomiesLoadWithoutAMessage) {
  for (const char *name : {"examples/classics/taxonomy.rdm", "examples/rfc/taxonomy.rdm"}) {
    const std::string path = support::in_source(name);
    const TaxonomyPtr taxonomy(taxonomy_load(path.c_str()));
    ASSERT_TRUE(taxonomy) << path;
    EXPECT_GT(walk(taxonomy).size(), 5u) << path;
  }
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Tax, InsertionAtTheRootTakesNullOrItsId) {
  const TaxonomyPtr taxonomy = load("");
  NodePtr one = make("one"), two = make("two");
  two->parent = one.get();
  EXPECT_EQ(taxonomy_insert(taxonomy.get(), one.release(), nullptr), 0);
  EXPECT_EQ(taxonomy_insert(taxonomy.get(), two.release(), "ROOT"), 0);
  EXPECT_THAT(walk(taxonomy), ElementsAre("ROOT", "one", "two"));
  EXPECT_EQ(taxonomy->root->children[1]->parent, nullptr);
}

TEST_F(Tax, InsertionGrowsTheChildrenByOnePlace) {
  static std::vector<size_t> asked;
  asked.clear();
  const TaxonomyPtr taxonomy = load("");
  qxapi_host recording = support::memory_host();
  recording.realloc = [](void *block, size_t size) {
    asked.push_back(size);
    return support::memory_host().realloc(block, size);
  };
  qxapi_bind(&recording);
  for (const char *id : {"a", "b", "c"}) taxonomy_insert(taxonomy.get(), make(id).release(), nullptr);
  EXPECT_THAT(asked, ElementsAre(sizeof(void *), 2 * sizeof(void *), 3 * sizeof(void *)));
}

TEST_F(Tax, InsertionWithoutAParentLeavesTheNodeToTheCaller) {
  const TaxonomyPtr taxonomy = loaded();
  const NodePtr node = make("x"), nameless = make(nullptr);
  node->parent = taxonomy->root;
  EXPECT_EQ(taxonomy_insert(taxonomy.get(), node.get(), "A"), 0);
  EXPECT_EQ(node->parent, nullptr);
  EXPECT_EQ(taxonomy_insert(nullptr, node.get(), "a"), 0);
  EXPECT_EQ(taxonomy_insert(taxonomy.get(), nameless.get(), ""), 0);
  EXPECT_EQ(walk(taxonomy).size(), 6u);
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Cannot insert 'x' into parent 'A'\n"
            "ERROR: Cannot insert 'x' into parent 'a'\n"
            "ERROR: Cannot insert '(null)' into parent ''\n");
}

TEST_F(Tax, NodesAreFoundByTheirExactId) {
  const TaxonomyPtr taxonomy = loaded();
  for (const char *id : {"a", "b", "c", "d", "e"}) EXPECT_STREQ(taxonomy_find(taxonomy.get(), id)->id, id);
  EXPECT_EQ(taxonomy_find(taxonomy.get(), "ROOT"), taxonomy->root);
  for (const char *id : {"A", "root", "", "aa"}) EXPECT_EQ(taxonomy_find(taxonomy.get(), id), nullptr) << id;
  EXPECT_EQ(taxonomy_find(taxonomy.get(), nullptr), nullptr);
  EXPECT_EQ(taxonomy_find(nullptr, "a"), nullptr);
}

TEST_F(Tax, FindReturnsTheFirstOfEqualIdsInWalkOrder) {
  const TaxonomyPtr taxonomy =
      load(taxonomy_object() + class_object("a", "ROOT") + class_object("x", "ROOT") + class_object("x", "a"));
  EXPECT_EQ(taxonomy_find(taxonomy.get(), "x"), taxonomy->root->children[0]->children[0]);
}

TEST_F(Tax, NodesWithoutAnIdArePassedOver) {
  const TaxonomyPtr taxonomy = load("");
  taxonomy_insert(taxonomy.get(), make(nullptr).release(), nullptr);
  taxonomy_insert(taxonomy.get(), make("a").release(), nullptr);
  EXPECT_STREQ(taxonomy_find(taxonomy.get(), "a")->id, "a");
}

TEST_F(Tax, WalksPutParentsOrChildrenFirst) {
  const TaxonomyPtr taxonomy = loaded();
  EXPECT_THAT(walk(taxonomy, 0), ElementsAre("ROOT", "a", "b", "c", "d", "e"));
  EXPECT_THAT(walk(taxonomy, 1), ElementsAre("ROOT", "a", "b", "c", "d", "e"));
  EXPECT_THAT(walk(taxonomy, 2), ElementsAre("c", "b", "d", "a", "e", "ROOT"));
  EXPECT_THAT(walk(taxonomy, 3), IsEmpty());
  EXPECT_THAT(walk(taxonomy, -1), IsEmpty());
}

TEST_F(Tax, WalksCoverASubtreeAndIgnoreNull) {
  const TaxonomyPtr taxonomy = loaded();
  Ids ids;
  taxonomy_walk(nullptr, 0, note, &ids);
  classification_walk(nullptr, 0, note, &ids);
  taxonomy_walk(taxonomy.get(), 0, nullptr, &ids);
  classification_walk(taxonomy->root, 2, nullptr, &ids);
  classification_walk(taxonomy_find(taxonomy.get(), "a"), 2, note, &ids);
  EXPECT_THAT(ids, ElementsAre("c", "b", "d", "a"));
}

/// comb is a tree of `levels` levels, each with the classes l, m and r, where m has the next level below it.
std::string comb(int levels) {
  std::string text = taxonomy_object(), parent = "ROOT";
  for (int i = 0; i < levels; ++i) {
    const std::string number = std::to_string(i);
    for (const char *name : {"l", "m", "r"}) text += class_object(name + number, parent);
    parent = "m" + number;
  }
  return text;
}

/// add_levels appends the classes of these names for each level of a comb, downwards or upwards.
void add_levels(Ids &ids, int from, int to, std::initializer_list<const char *> names) {
  for (int i = from; from < to ? i <= to : i >= to; i += from < to ? 1 : -1)
    for (const char *name : names) ids.push_back(name + std::to_string(i));
}

TEST_F(Tax, WalksOfDeepTreesKeepTheirOrder) {
  const TaxonomyPtr taxonomy = load(comb(200));
  Ids parents_first{"ROOT"}, children_first;
  add_levels(parents_first, 0, 199, {"l", "m"});
  add_levels(parents_first, 199, 0, {"r"});
  add_levels(children_first, 0, 199, {"l"});
  add_levels(children_first, 199, 0, {"m", "r"});
  children_first.emplace_back("ROOT");
  EXPECT_EQ(walk(taxonomy, 0), parents_first);
  EXPECT_EQ(walk(taxonomy, 2), children_first);
}

TEST_F(Tax, AWalkOfADeepSubtreeVisitsNoOtherNodes) {
  const TaxonomyPtr taxonomy = load(comb(200));
  Ids ids, expected{"m9"};
  add_levels(expected, 10, 199, {"l", "m"});
  add_levels(expected, 199, 10, {"r"});
  classification_walk(taxonomy_find(taxonomy.get(), "m9"), 0, note, &ids);
  EXPECT_EQ(ids, expected);
}

TEST_F(Tax, NodesAreFoundBehindDeepBranches) {
  const TaxonomyPtr taxonomy = load(comb(200) + class_object("last", "ROOT"));
  for (const char *id : {"l199", "r199", "r100", "r0", "last"}) EXPECT_STREQ(taxonomy_find(taxonomy.get(), id)->id, id);
  EXPECT_EQ(taxonomy_find(taxonomy.get(), "l200"), nullptr);
}

TEST_F(Tax, TheDepthCountsTheStepsToTheRoot) {
  const TaxonomyPtr taxonomy = loaded();
  EXPECT_EQ(depth(taxonomy, "ROOT"), 0);
  EXPECT_EQ(depth(taxonomy, "a"), 1);
  EXPECT_EQ(depth(taxonomy, "b"), 2);
  EXPECT_EQ(depth(taxonomy, "c"), 3);
  EXPECT_EQ(depth(taxonomy, "e"), 1);
  EXPECT_EQ(depth(taxonomy, "nowhere"), 0);
  EXPECT_EQ(taxonomy_depth(nullptr, taxonomy_find(taxonomy.get(), "d")), 2);
  // The walk upwards ends at a node without an id and at the root.
  const NodePtr nameless = make(nullptr), root = make("ROOT"), node = make("x");
  EXPECT_EQ(taxonomy_depth(nullptr, nameless.get()), 0);
  for (const NodePtr *parent : {&nameless, &root}) {
    node->parent = parent->get();
    EXPECT_EQ(taxonomy_depth(nullptr, node.get()), 1);
  }
}

TEST_F(Tax, DestructionLeavesTheRecord) {
  const HostPtr<Taxonomy> record(loaded().release());
  taxonomy_destroy(record.get());
  EXPECT_EQ(host.live_blocks, 1);
  EXPECT_EQ(record->id, nullptr);
  EXPECT_EQ(record->info, nullptr);
  EXPECT_EQ(record->root, nullptr);
  taxonomy_destroy(record.get());
  taxonomy_destroy(nullptr);
}

TEST_F(Tax, ANewNodeIsEmpty) {
  const NodePtr node(classification_create());
  EXPECT_EQ(node->id, nullptr);
  EXPECT_EQ(node->description, nullptr);
  EXPECT_EQ(node->parent, nullptr);
  EXPECT_EQ(node->children, nullptr);
  EXPECT_EQ(node->child_count, 0);
  classification_destroy(nullptr);
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(classification_create(), nullptr);
}

TEST_F(Tax, DestroyingANodeLeavesItsChildren) {
  const TaxonomyPtr taxonomy = loaded();
  Classification *top = make("top").release();
  taxonomy_insert(taxonomy.get(), top, nullptr);
  Classification *below = make("below").release();
  taxonomy_insert(taxonomy.get(), below, "top");
  --taxonomy->root->child_count;
  classification_destroy(top);
  EXPECT_STREQ(below->id, "below");
  classification_destroy(below);
}

constexpr int chain_length = 3000;

/// use_chain loads the file of a chain of classes and calls everything that walks a tree.
void *use_chain(void *path) {
  const auto count = [](Classification *, void *counter) { ++*static_cast<int *>(counter); };
  const std::string last = std::to_string(chain_length - 1);
  const TaxonomyPtr taxonomy(taxonomy_load(static_cast<const char *>(path)));
  EXPECT_EQ(taxonomy_depth(nullptr, taxonomy_find(taxonomy.get(), last.c_str())), chain_length);
  for (const int mode : {0, 2}) {
    int visited = 0;
    taxonomy_walk(taxonomy.get(), mode, count, &visited);
    EXPECT_EQ(visited, chain_length + 1);
  }
  return nullptr;
}

/// Files may hold trees of any depth, which must not overflow the stack.
TEST_F(Tax, DeepTreesDoNotNeedADeepStack) {
  std::string text = taxonomy_object() + class_object("0", "ROOT");
  for (int i = 1; i < chain_length; ++i) text += class_object(std::to_string(i), std::to_string(i - 1));
  std::string path = directory.write("chain", text);
  pthread_attr_t small_stack;
  ASSERT_EQ(pthread_attr_init(&small_stack), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&small_stack, size_t{96} << 10), 0);
  pthread_t thread = 0;
  ASSERT_EQ(pthread_create(&thread, &small_stack, use_chain, path.data()), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&small_stack);
}

/// random_classes returns the id and the parent's id of random classes, with repeated ids.
std::vector<std::pair<std::string, std::string>> random_classes(unsigned seed) {
  std::mt19937 random(seed);
  const unsigned ids = 5 + random() % 60, deep = random() % 10;
  std::vector<std::pair<std::string, std::string>> classes;
  std::string last = "ROOT";
  for (int i = 0; i < 150; ++i) {
    const bool follows = random() % 10 < deep, at_top = random() % 8 == 0;
    const std::string other = at_top ? "ROOT" : "c" + std::to_string(random() % ids);
    classes.emplace_back("c" + std::to_string(random() % ids), follows ? last : other);
    last = classes.back().first;
  }
  return classes;
}

/// shape_of returns a line for each node: id, depth, parent and number of children.
std::string shape_of(Taxonomy *taxonomy) {
  std::string text;
  const auto show = [](Classification *node, void *out) {
    const char *parent = node->parent != nullptr ? node->parent->id : "-";
    static_cast<std::string *>(out)->append(node->id).append(" ").append(
        std::to_string(taxonomy_depth(nullptr, node)) + " " + parent + " " + std::to_string(node->child_count) + "\n");
  };
  taxonomy_walk(taxonomy, 0, show, &text);
  return text;
}

// Loading finds parents with an index, insertion with a walk. If ids repeat, both must find the first in pre-order,
// even if it was added later.
TEST_F(Tax, LoadingFindsTheParentsThatInsertionFinds) {
  const support::Diagnostics silent(0);
  for (unsigned seed = 0; seed < 100; ++seed) {
    const auto classes = random_classes(seed);
    std::string text = taxonomy_object();
    const TaxonomyPtr expected = load(text);
    for (const auto &[id, parent] : classes) {
      text += class_object(id, parent);
      NodePtr node = make(id.c_str());
      const bool has_parent = taxonomy_find(expected.get(), parent.c_str()) != nullptr;
      taxonomy_insert(expected.get(), node.get(), parent.c_str());
      if (has_parent) static_cast<void>(node.release());
    }
    ASSERT_EQ(shape_of(load(text).get()), shape_of(expected.get())) << seed;
  }
}

TEST_F(Tax, LoadingLeavesTheArraysOfChildrenTheirSize) {
  static std::map<void *, size_t> sizes;
  sizes.clear();
  qxapi_host recording = support::memory_host();
  recording.realloc = [](void *block, size_t size) {
    sizes.erase(block);
    void *const resized = support::memory_host().realloc(block, size);
    sizes[resized] = size;
    return resized;
  };
  qxapi_bind(&recording);
  std::string text = taxonomy_object();
  for (int i = 0; i < 5; ++i) text += class_object(std::to_string(i), i < 3 ? "ROOT" : "0");
  const TaxonomyPtr taxonomy = load(text);
  EXPECT_EQ(sizes[taxonomy->root->children], 3 * sizeof(void *));
  EXPECT_EQ(sizes[taxonomy->root->children[0]->children], 2 * sizeof(void *));
  EXPECT_EQ(taxonomy->root->children[1]->children, nullptr);
}

// Regression: a file of 20,000 classes took seconds, because each parent was searched for among all previous classes.
TEST_F(Tax, LoadingTakesTheTimeOfTheFilesSize) {
  const auto load_where = [this](const auto &parent) {
    return [this, parent](int count) {
      std::string text = taxonomy_object();
      for (int i = 0; i < count; ++i) text += class_object(std::to_string(i), parent(i));
      EXPECT_EQ(walk(load(text)).size(), static_cast<size_t>(count) + 1);
    };
  };
  const auto flat = [](int) { return std::string("ROOT"); };
  const auto tree = [](int i) { return i < 10 ? std::string("ROOT") : std::to_string(i / 10); };
  const auto deep = [](int i) { return i == 0 ? std::string("ROOT") : std::to_string(i - 1); };
  EXPECT_TRUE(support::grows_linearly(load_where(flat), 800));
  EXPECT_TRUE(support::grows_linearly(load_where(tree), 800));
  EXPECT_TRUE(support::grows_linearly(load_where(deep), 800));
}

/// Two deep branches get classes of the same id in turn, so that their order must be found every time.
TEST_F(Tax, RepeatedIdsOfDeepBranchesAreOrderedQuickly) {
  const auto load_branches = [this](int count) {
    std::string text = taxonomy_object() + class_object("a0", "ROOT") + class_object("b0", "ROOT");
    const auto name = [](const char *branch, int i) { return branch + std::to_string(i); };
    for (int i = 1; i < count; ++i)
      for (const char *branch : {"a", "b"}) text += class_object(name(branch, i), name(branch, i - 1));
    for (int i = 0; i < count; ++i) text += class_object("x", name(i % 2 == 0 ? "b" : "a", count - 1));
    const TaxonomyPtr taxonomy = load(text + class_object("below", "x"));
    EXPECT_EQ(taxonomy_find(taxonomy.get(), "below")->parent->parent,
              taxonomy_find(taxonomy.get(), name("a", count - 1).c_str()));
  };
  EXPECT_TRUE(support::grows_linearly(load_branches, 500));
}

using TaxDeathTest = Tax;

TEST_F(TaxDeathTest, ATopLevelClassNeedsARoot) {
  Taxonomy empty{};
  const NodePtr node = make("a");
  EXPECT_DEATH(taxonomy_insert(&empty, node.get(), "ROOT"), "^tax:[0-9]+: assertion failed: a child has a parent\n$");
  EXPECT_DEATH(taxonomy_insert(nullptr, node.get(), nullptr), "^tax:[0-9]+: assertion failed");
}

}  // namespace
