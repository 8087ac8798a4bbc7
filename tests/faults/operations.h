// SPDX-License-Identifier: MIT
/// Scenarios for every procedure that the libraries export. Each runs once for each of its allocations, which then
/// fails.
#ifndef TESTS_FAULTS_OPERATIONS_H
#define TESTS_FAULTS_OPERATIONS_H

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

#include "qxapi/records.h"

namespace rdm::faults {

/// Memory binds a host whose allocations are counted and, during the operation under test, fail on request.
class Memory {
 public:
  /// Binds `base` with an allocator of its own. The nth allocation fails (0: none); if `for_good`, every later one too.
  Memory(const qxapi_host &base, long n, bool for_good);
  Memory(const Memory &) = delete;
  Memory &operator=(const Memory &) = delete;
  ~Memory();

  /// failing runs the operation under test and returns its result. Allocations count only here.
  template <typename F>
  auto failing(F operation) {
    const Armed armed;
    return operation();
  }

  /// refused returns true if an allocation has failed so far.
  bool refused() const;
  /// lost_blocks returns the number of blocks that were allocated and not released. Critical sections, which live as
  /// long as the process, do not count.
  long lost_blocks() const;
  /// keep accepts that the blocks allocated so far stay, such as the environment of child commands.
  void keep();

 private:
  struct Armed {
    Armed();
    Armed(const Armed &) = delete;
    Armed &operator=(const Armed &) = delete;
    ~Armed();
  };
};

/// Verdict is a scenario's judgement of its operation.
enum class Verdict {
  right,       // the result of a run without failures
  refused,     // the failure that the header describes, without side effects
  incomplete,  // a part is missing, and no result of the operation says so
  wrong        // none of these
};

/// judge returns `right` if `is_right`, otherwise `refused` if `is_refused`, otherwise `wrong`.
inline Verdict judge(bool is_right, bool is_refused) {
  if (is_right) return Verdict::right;
  return is_refused ? Verdict::refused : Verdict::wrong;
}

/// lacks_a_part returns true if `text` is `whole` with parts left out: a proper subsequence.
inline bool lacks_a_part(const std::string &text, const std::string &whole) {
  size_t at = 0;
  for (const char c : whole)
    if (at < text.size() && text[at] == c) ++at;
  return at == text.size() && text.size() < whole.size();
}

/// equals returns true if `text` is not null and equals `expected`.
inline bool equals(const char *text, const char *expected) {
  return text != nullptr && std::strcmp(text, expected) == 0;
}

/// fill_room uses up the room of a block, so that further pairs take memory.
inline void fill_room(pblock *block) {
  while (block->has_room(size_in_room("filler", ""))) host_param_add("filler", "", block);
}

/// bytes_of returns the bytes of a buffer.
inline std::string bytes_of(csio *io) {
  csio_rewind(io);
  std::string bytes(io->length + 1, '?');
  const int32_t count = csio_copy(io, bytes.data(), static_cast<int32_t>(bytes.size()));
  return bytes.substr(0, static_cast<size_t>(std::max(count, 0)));
}

/// How an operation uses memory.
enum class Need {
  none,       // it allocates nothing
  reported,   // if an allocation fails, the operation reports it
  unreported  // if an allocation fails, a part may be missing unreported; the host counts the failure and does not send
              // the answer
};

/// Operation is an exported procedure, or several in one scenario (names separated by blanks).
struct Operation {
  /// Makes an operation that allocates nothing; its scenario returns true if the result is right.
  constexpr Operation(const char *operation_names, bool (*scenario)(Memory &))
      : names(operation_names), need(Need::none), is_right(scenario) {}
  constexpr Operation(const char *operation_names, Need use, Verdict (*scenario)(Memory &))
      : names(operation_names), need(use), judged(scenario) {}

  Verdict run(Memory &memory) const { return judged != nullptr ? judged(memory) : judge(is_right(memory), false); }

  const char *names;
  Need need;
  bool (*is_right)(Memory &memory) = nullptr;
  Verdict (*judged)(Memory &memory) = nullptr;
};

/// Library is a shared library, with scenarios for all its exports and the host to run them in.
struct Library {
  std::string file;
  qxapi_host host;
  std::vector<Operation> operations;
};

/// PrintTo prints an operation as its names, for GoogleTest.
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
