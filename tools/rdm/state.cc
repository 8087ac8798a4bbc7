// SPDX-License-Identifier: MIT
#include "tools/rdm/state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <vector>

#include "catalog/index_file.h"
#include "catalog/os/atomic_writer.h"
#include "catalog/os/file.h"
#include "qxapi/number.h"
#include "tools/rdm/error.h"
#include "tools/rdm/server.h"

namespace rdm::client {
namespace {

constexpr char first_line[] = "rdm-state 1";

std::string variable(const char *name) {
  const char *value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// directory_of_states returns the directory of the options, or the usual one of the user.
std::string directory_of_states(const Options &options) {
  if (!options.state.empty()) return options.state;
  // A relative path counts as not set, as XDG asks of programs.
  if (const std::string base = variable("XDG_STATE_HOME"); base.starts_with('/')) return base + "/rdm";
  if (const std::string home = variable("HOME"); !home.empty()) return home + "/.local/state/rdm";
  throw Failure("HOME is not set: name a directory for the state with --state");
}

void make_directory(const std::string &path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) throw Failure("cannot make the directory " + path + ": " + error.message());
}

HostFileGuard locked(const std::string &path) {
  HostFileGuard file = catalog::open_file(path, O_RDWR | O_CREAT, 0600);
  if (!file) throw catalog::system_failure("cannot open " + path);
  if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) return file;
  if (errno != EWOULDBLOCK) throw catalog::system_failure("cannot lock " + path);
  throw Failure("another rdm is at this work: it holds " + path);
}

std::string one_line(std::string text) {
  for (char &c : text)
    if (c == '\n') c = ' ';
  return text;
}

std::vector<std::string> words_of(const std::string &line) {
  std::istringstream words(line);
  std::vector<std::string> all;
  for (std::string word; words >> word;) all.push_back(word);
  return all;
}

/// sealed returns a text with its digest as the last line. opened is its inverse; it returns an empty text if the
/// digest does not fit.
std::string sealed(const std::string &text) { return text + "end " + hex_of(digest_of(text)) + "\n"; }
std::string opened(const std::string &bytes) {
  const size_t seal = sealed("").size();
  const std::string text = bytes.substr(0, bytes.size() < seal ? 0 : bytes.size() - seal);
  return sealed(text) == bytes ? text : "";
}

}  // namespace

State::State(const Options &options, const std::string &work)
    : name_(one_line("of " + work + " from " + url_without_password(options.url) + " " + options.csid)) {
  const std::string directory = directory_of_states(options);
  make_directory(directory);
  path_ = directory + "/" + hex_of(digest_of(name_)).substr(0, 32);
  lock_ = locked(path_ + ".lock");
  if (catalog::status_of(path_)) read();
}

void State::read() {
  std::istringstream lines(opened(catalog::content_of(path_)));
  std::string line;
  if (!std::getline(lines, line) || line != first_line || !std::getline(lines, line) || line != name_)
    throw Failure("the state is damaged: " + path_ + ": remove it to begin again");
  while (std::getline(lines, line)) take(line);
  is_new_ = false;
}

/// take takes a line of the state. What an earlier version does not know is passed over.
void State::take(const std::string &line) {
  const std::vector<std::string> words = words_of(line);
  if (words.size() == 2 && words[0] == "settled") settled = parse_number<time_t>(words[1]).value_or(0);
  if (words.size() == 2 && words[0] == "compared") compared = parse_number<time_t>(words[1]).value_or(0);
  if (words.size() == 2 && words[0] == "mark") mark = digest_in(words[1]).value_or(Digest());
  if (words.size() != 5 || words[0] != "held") return;
  const auto key = digest_in(words[1]), content = digest_in(words[4]);
  const auto time = parse_number<time_t>(words[2]);
  const auto size = parse_number<int64_t>(words[3]);
  if (key && content && time && size) held[*key] = {*time, *size, *content};
}

void State::save() {
  std::string text = first_line;
  text += "\n" + name_ + "\nsettled " + std::to_string(settled) + "\ncompared " + std::to_string(compared) + "\nmark " +
          hex_of(mark) + "\n";
  for (const auto &[key, one] : held)
    text += "held " + hex_of(key) + " " + std::to_string(one.time) + " " + std::to_string(one.size) + " " +
            hex_of(one.content) + "\n";
  catalog::AtomicWriter file(path_);
  file.write(sealed(text));
  file.finish();
  file.commit();
}

}  // namespace rdm::client
