// SPDX-License-Identifier: MIT
#include "tools/rdmgather/state.h"

#include <sstream>

#include "catalog/os/error.h"
#include "qxapi/number.h"
#include "qxapi/words.h"
#include "tools/rdmgather/md5.h"

namespace rdm::gather {
namespace {

using catalog::Failure;

constexpr char state_form[] = "rdmgather-state 1\n";

std::string content_of(const std::string &path) {
  const catalog::File file = catalog::File::open(path);
  std::string bytes(static_cast<size_t>(file.size()), '\0');
  file.read_at(0, bytes.data(), bytes.size());
  return bytes;
}

std::string seal_of(std::string_view text) {
  Md5 digest;
  digest.add(text);
  return "end " + digest.hex() + "\n";
}

std::string line_of(const std::string &path, const Known &document) {
  const Print &print = document.print;
  return std::to_string(print.size) + " " + std::to_string(print.modified) + " " + std::to_string(print.changed) + " " +
         document.md5 + " " + path + "\n";
}

Failure damaged(const std::string &path) {
  return Failure("the state is damaged: " + path + ": remove it to describe all documents again");
}

/// take_line adds the document of a line. Returns false if it names none.
bool take_line(std::string_view line, std::map<std::string, Known> &documents) {
  const std::vector<std::string_view> words = words_of(line, " ");
  if (words.size() != 5) return false;
  const auto size = parse_number<int64_t>(words[0]);
  const auto modified = parse_number<int64_t>(words[1]), changed = parse_number<int64_t>(words[2]);
  if (!size || !modified || !changed) return false;
  documents[std::string(words[4])] = {{*size, *modified, *changed}, std::string(words[3])};
  return true;
}

}  // namespace

State::State(const std::string &path, const std::string &base_url) : head_(state_form + base_url + "\n") {
  if (path.empty()) return;
  file_.emplace(path);
  if (catalog::status_of(path)) read(path);
}

void State::read(const std::string &path) {
  const std::string bytes = content_of(path);
  const size_t size = bytes.size() - std::min(bytes.size(), seal_of("").size());
  std::string_view text = std::string_view(bytes).substr(0, size);
  if (seal_of(text) != std::string_view(bytes).substr(size) || !text.starts_with(state_form)) throw damaged(path);
  if (!text.starts_with(head_)) throw Failure("the state is of another base URL: " + path);
  text.remove_prefix(head_.size());
  for (size_t end = 0; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
    if (!take_line(text.substr(0, end), before_)) throw damaged(path);
}

void State::commit() {
  if (!file_) return;
  Md5 digest;
  const auto write = [&](const std::string &text) {
    digest.add(text);
    file_->write(text);
  };
  write(head_);
  for (const auto &[path, document] : now_) write(line_of(path, document));
  file_->write("end " + digest.hex() + "\n");
  file_->finish();
  file_->commit();
}

}  // namespace rdm::gather
