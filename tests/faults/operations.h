// SPDX-License-Identifier: MIT
/// Every procedure that the libraries export, each to be repeated while one of its allocations after the other fails.
#ifndef TESTS_FAULTS_OPERATIONS_H
#define TESTS_FAULTS_OPERATIONS_H

#include <ostream>
#include <string>
#include <vector>

#include <qxapi/qxapi.h>

namespace rdm::faults {

/// Memory is a host whose allocations are counted and, while an operation is under test, refused.
class Memory {
 public:
  /// Binds the table `base` with an allocator of its own. Refuses the nth allocation, and with `for_good` every later
  /// one too; none for 0.
  Memory(const qxapi_host &base, long n, bool for_good);
  Memory(const Memory &) = delete;
  Memory &operator=(const Memory &) = delete;
  ~Memory();

  /// failing runs the operation under test and returns its result. Only what happens here counts.
  template <typename F>
  auto failing(F operation) {
    const Armed armed;
    return operation();
  }

  /// refused tells whether an allocation has been refused so far.
  bool refused() const;
  /// lost_blocks returns how many blocks were allocated and not released. Critical sections, which live as long as the
  /// process, are not among them.
  long lost_blocks() const;
  /// keep says that what is allocated so far stays, like the environment of child commands.
  void keep();

 private:
  struct Armed {
    Armed();
    Armed(const Armed &) = delete;
    Armed &operator=(const Armed &) = delete;
    ~Armed();
  };
};

/// Verdict is what a scenario finds out about the result of its operation.
enum class Verdict {
  right,       // the result of a run without failures
  refused,     // the failure that the operation's header describes, with everything else as it was
  incomplete,  // a part is missing, and the operation has no result that could say so
  wrong        // none of these
};

/// judge returns `right` or, where it is not, `refused`.
inline Verdict judge(bool is_right, bool is_refused) {
  if (is_right) return Verdict::right;
  return is_refused ? Verdict::refused : Verdict::wrong;
}

/// lacks_a_part tells whether a text is another one with pieces left out: what is there is in the same order in it.
inline bool lacks_a_part(const std::string &text, const std::string &whole) {
  size_t at = 0;
  for (const char c : whole)
    if (at < text.size() && text[at] == c) ++at;
  return at == text.size() && text.size() < whole.size();
}

/// What an operation does about memory.
enum class Need {
  none,       // it takes none
  reported,   // it is right, or says that it failed
  unreported  // it may also leave a part out: hosts count refusals and send nothing in whose course there were any
};

/// Operation is a procedure, or a few that one scenario covers, by their names with blanks between them.
struct Operation {
  std::string names;
  Need need;
  Verdict (*run)(Memory &memory);
};

/// Library is a shared library, with scenarios for all it exports and the host that they run in.
struct Library {
  std::string file;
  qxapi_host host;
  std::vector<Operation> operations;
};

/// PrintTo shows an operation by its names in the reports of GoogleTest.
inline void PrintTo(const Operation &operation, std::ostream *out) { *out << operation.names; }

std::vector<Operation> qxapi_operations();
std::vector<Operation> adt_operations();
std::vector<Operation> soif_operations();
std::vector<Operation> libcs_operations();
std::vector<Operation> dba_operations();
std::vector<Operation> registry_operations();
std::vector<Operation> rdm_operations();

}  // namespace rdm::faults

#endif
