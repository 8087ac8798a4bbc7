// SPDX-License-Identifier: MIT
#include "tools/soif/faults.h"

#include <ostream>

#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/common/program.h"
#include "tools/soif/json_text.h"

namespace rdm::soif_tool {
namespace {

std::string place_text(const Place &place) {
  return std::to_string(place.line) + (place.column == 0 ? "" : ":" + std::to_string(place.column));
}

}  // namespace

Faults::Faults(const Options &options, const Console &console, std::ostream &out)
    : options_(options), console_(console), out_(out) {
  if (!options.rejects.empty()) file_.emplace(options.rejects);
}

void Faults::add(const Place &place, const std::string &reason, tools::Progress &progress) {
  ++count_;
  write("reason", place, reason, progress);
}

void Faults::note(const Place &place, const std::string &words, tools::Progress &progress) {
  write("note", place, words, progress);
}

void Faults::write(const char *kind, const Place &place, const std::string &words, tools::Progress &progress) {
  progress.clear();
  if (options_.json) {
    out_ << "{\"input\":" << shown_json_string(input_) << ",\"line\":" << place.line;
    if (place.column != 0) out_ << ",\"column\":" << place.column;
    out_ << ",\"" << kind << "\":" << shown_json_string(words) << "}\n";
    return;
  }
  if (&out_ == &console_.errors) out_ << "soif: ";
  out_ << escaped(input_ + ":" + place_text(place) + ": " + words) << '\n';
}

void Faults::keep(std::string_view bytes) {
  if (!file_ || bytes.empty()) return;
  if (!has_kept_) file_->write(before_);
  has_kept_ = true;
  file_->write(bytes);
}

int Faults::finish(int64_t done, const Words &words) {
  if (file_) {
    if (has_kept_) file_->write(after_);
    file_->finish();
    file_->commit();
  }
  if (options_.json)
    out_ << R"({"verb":")" << options_.verb << R"(",")" << words.done << "\":" << done << ",\"" << words.faults
         << "\":" << count_ << "}\n";
  else if (count_ > 0 && !options_.quiet)
    console_.errors << "soif: " << counted(count_, words.fault, words.faults) << ", " << done << ' ' << words.done
                    << '\n';
  return count_ > 0 ? exit_rejected : tools::exit_done;
}

}  // namespace rdm::soif_tool
