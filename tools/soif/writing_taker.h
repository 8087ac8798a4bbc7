// SPDX-License-Identifier: MIT
/// The taker of verbs that write descriptions.
#ifndef SOIF_WRITING_TAKER_H
#define SOIF_WRITING_TAKER_H

#include <functional>

#include "tools/soif/faults.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

/// WritingTaker passes each description to `write`, and reports and keeps what is rejected. `write` returns a reason to
/// reject a description, or an empty text.
class WritingTaker : public Taker {
 public:
  using Write = std::function<std::string(Description &description)>;
  WritingTaker(Faults &faults, tools::Progress &progress, Write write)
      : faults_(faults), progress_(progress), write_(std::move(write)) {}

  void begin(std::string_view bytes) override { faults_.keep_before(bytes); }
  void end(std::string_view bytes) override { faults_.keep_after(bytes); }
  void take(Description &description, const Place &place, std::string_view bytes) override {
    const std::string reason = write_(description);
    // A sound object comes without its bytes.
    if (!reason.empty()) return reject(place, reason, bytes.empty() ? soif_of(description) : std::string(bytes));
    ++written_;
  }
  void reject(const Place &place, const std::string &reason, std::string_view bytes) override {
    faults_.add(place, reason, progress_);
    faults_.keep(bytes);
  }
  void note(const Place &place, const std::string &words) override { faults_.note(place, words, progress_); }
  int64_t written() const { return written_; }

 private:
  Faults &faults_;
  tools::Progress &progress_;
  Write write_;
  int64_t written_ = 0;
};

}  // namespace rdm::soif_tool

#endif
