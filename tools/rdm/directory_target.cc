// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "catalog/change_times.h"
#include "catalog/index_file.h"
#include "catalog/object_view.h"
#include "catalog/os/file.h"
#include "tools/rdm/error.h"
#include "tools/rdm/target.h"

namespace rdm::client {
namespace {

using catalog::ObjectView;

constexpr std::string_view suffix = ".soif", new_suffix = ".soif.new";

/// key_in returns the digest in the name of a file, or std::nullopt for a file that is not ours.
std::optional<Digest> key_in(std::string_view name, std::string_view ending) {
  return name.ends_with(ending) ? digest_in(name.substr(0, name.size() - ending.size())) : std::nullopt;
}

class DirectoryTarget : public Target {
 public:
  explicit DirectoryTarget(std::string path) : path_(std::move(path)) {}

  void each(const Visitor &visit) const override {
    if (!catalog::status_of(path_)) return;
    for (const std::string &name : names())
      if (const auto key = key_in(name, suffix)) visit(*key, time_of(*key));
  }

  Changes apply(const Received &received, const Digests &gone) override {
    Changes changes;
    make();
    remove_leftovers();
    received.each([&](const Received::Entry &entry) {
      if (!gone.contains(entry.key)) put(entry.key, received.text(entry) + "\n", changes);
    });
    for (const Digest &key : gone) remove(key, changes);
    sync();
    return changes;
  }

 private:
  void make() const {
    std::error_code error;
    std::filesystem::create_directories(path_, error);
    if (error) throw Failure("cannot make the directory " + path_ + ": " + error.message());
  }

  std::string file_of(const Digest &key) const { return path_ + "/" + hex_of(key).append(suffix); }

  std::vector<std::string> names() const {
    std::error_code error;
    std::vector<std::string> all;
    for (std::filesystem::directory_iterator entry(path_, error), end; !error && entry != end; entry.increment(error))
      all.push_back(entry->path().filename());
    if (error) throw Failure("cannot read the directory " + path_ + ": " + error.message());
    return all;
  }

  /// text_of returns the content of a file, or std::nullopt if there is none.
  std::optional<std::string> text_of(const Digest &key) const {
    const std::string file = file_of(key);
    return catalog::status_of(file) ? std::optional(catalog::content_of(file)) : std::nullopt;
  }

  /// time_of returns `damaged` for a file that is cut, or that holds the description of another URL.
  time_t time_of(const Digest &key) const {
    const std::string text = text_of(key).value_or("");
    const std::optional<ObjectView> object = text.ends_with("}\n") ? ObjectView::read(text) : std::nullopt;
    return object && digest_of(object->url()) == key ? catalog::valid_change_time(*object) : damaged;
  }

  void put(const Digest &key, const std::string &text, Changes &changes) const {
    if (key == digest_of("-")) {
      changes.rejected.emplace_back("a description without a URL");
      return;
    }
    const std::optional<std::string> known = text_of(key);
    if (known == text) return;
    ++(known ? changes.changed : changes.added);
    const std::string file = file_of(key), next = path_ + "/" + hex_of(key).append(new_suffix);
    catalog::File::create(next).write_at(0, text);
    if (std::rename(next.c_str(), file.c_str()) != 0) throw catalog::system_failure("cannot rename " + next);
  }

  void remove(const Digest &key, Changes &changes) const {
    const std::optional<std::string> text = text_of(key);
    if (!text) return;
    const std::optional<ObjectView> object = ObjectView::read(*text);
    changes.gone.push_back(object ? std::string(object->url()) : file_of(key));
    if (::unlink(file_of(key).c_str()) != 0) throw catalog::system_failure("cannot remove " + file_of(key));
  }

  /// remove_leftovers removes the new files of a killed run.
  void remove_leftovers() const {
    for (const std::string &name : names())
      if (key_in(name, new_suffix) && ::unlink((path_ + "/" + name).c_str()) != 0)
        throw catalog::system_failure("cannot remove " + path_ + "/" + name);
  }

  /// sync puts all files onto the disk at once: an fsync for each would take much longer.
  void sync() const {
    const HostFileGuard directory = catalog::open_file(path_, O_RDONLY | O_DIRECTORY);
    if (!directory || ::syncfs(directory.get()) != 0) throw catalog::system_failure("syncfs " + path_);
  }

  std::string path_;
};

}  // namespace

std::unique_ptr<Target> directory_target(const std::string &path) { return std::make_unique<DirectoryTarget>(path); }

std::unique_ptr<Target> open_target(const Options &options, const Console &console) {
  std::error_code error;
  const std::string &path = options.target;
  const bool is_directory = path.ends_with('/') || std::filesystem::is_directory(path, error);
  return is_directory ? directory_target(path) : database_target(path, options, console);
}

}  // namespace rdm::client
