// SPDX-License-Identifier: MIT
#include "tools/rdmgather/document.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <ctime>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "catalog/record.h"
#include "qxapi/ascii.h"
#include "qxapi/uninterrupted.h"
#include "tools/rdmgather/about_pdf.h"
#include "tools/rdmgather/md5.h"
#include "tools/rdmgather/plain_text.h"
#include "tools/soif/description.h"

namespace rdm::gather {
namespace {

using catalog::Failure;
using catalog::system_failure;

constexpr size_t longest_head = 1 << 18;
constexpr size_t block = 1 << 16;
constexpr int64_t coarsest_time = 2'000'000'000;  // nanoseconds between the times that a file system can tell apart

struct stat status_of_open(const HostFileGuard &file) {
  struct stat status;
  if (::fstat(file.get(), &status) != 0) throw system_failure("fstat");
  return status;
}

/// place_of returns the path of an open file as the system knows it, or an empty text if it does not say.
std::string place_of(const HostFileGuard &file) {
  std::array<char, PATH_MAX> path;
  const std::string link = "/proc/self/fd/" + std::to_string(file.get());
  const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
  return {path.data(), static_cast<size_t>(std::max<ssize_t>(size, 0))};
}

int64_t nanoseconds_now() {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool ends_with_any(std::string_view path, std::initializer_list<std::string_view> suffixes) {
  const auto fits = [&](std::string_view suffix) {
    return path.size() > suffix.size() && ascii::iequals(path.substr(path.size() - suffix.size()), suffix);
  };
  return std::any_of(suffixes.begin(), suffixes.end(), fits);
}

bool is_html(std::string_view type, std::string_view path) {
  if (type == "text/html" || type == "application/xhtml+xml") return true;
  return type.starts_with("text/") && ends_with_any(path, {".html", ".htm", ".xhtml"});
}

About about_document(std::string_view head, std::string_view type, std::string_view path, int descriptor) {
  if (is_html(type, path)) return about_html(head);
  if (type == "application/pdf") return about_pdf(descriptor);
  if (!type.starts_with("text/") || type == "text/xml") return {};
  return ends_with_any(path, {".md", ".markdown"}) ? about_markdown(head) : about_text(head);
}

std::string_view name_of(std::string_view path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

Document::Document(const Entry &entry, const std::string &root) {
  const int64_t now = nanoseconds_now();
  open(entry, root);
  const struct stat before = status_of_open(file_);
  // Another file may have taken the place since the listing: a FIFO, or a directory.
  if (!S_ISREG(before.st_mode)) throw Failure("no longer a regular file");
  read();
  print_ = print_of(status_of_open(file_));
  if (print_ != print_of(before) || size_ != before.st_size) throw Failure("it has changed while it was read");
  modified_ = before.st_mtim.tv_sec;
  if (std::max(print_.modified, print_.changed) > now - coarsest_time) print_.modified = print_.changed = 0;
}

/// open does not wait for the writer of a FIFO, and follows no symbolic link at the end of the path.
void Document::open(const Entry &entry, const std::string &root) {
  file_ = catalog::open_file(entry.file, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
  if (!file_) throw system_failure("open");
  const std::string place = place_of(file_);
  if (!place.empty() && !is_within(root, place)) throw Failure("it is no longer within the directory");
}

void Document::read() {
  Md5 digest;
  std::string buffer(block, '\0');
  while (true) {
    const ssize_t got = uninterrupted([&] { return ::read(file_.get(), buffer.data(), buffer.size()); });
    if (got < 0) throw system_failure("read");
    if (got == 0) break;
    const std::string_view bytes = std::string_view(buffer).substr(0, static_cast<size_t>(got));
    digest.add(bytes);
    head_.append(bytes.substr(0, longest_head - head_.size()));
    size_ += got;
  }
  md5_ = digest.hex();
}

std::string Document::description(const std::string &url, const std::string &path, const ContentTypes &types) const {
  soif_tool::Description description{"DOCUMENT", url, {}};
  const auto add = [&](const char *name, const std::string &value) {
    if (!value.empty()) description.attributes.push_back({name, value});
  };
  const std::string type = types.type_of(head_);
  const About about = about_document(head_, type, path, file_.get());
  add("title", about.title.empty() ? plain_text(name_of(path), longest_title) : about.title);
  add("author", about.author);
  // A time that is no date, as in the year 10000, is left out.
  const std::string date = catalog::date_of(modified_);
  if (date.size() == catalog::date_size) add("last-modified", date);
  add("content-length", std::to_string(size_));
  add("content-type", type);
  add("md5", md5_);
  add("description", about.description);
  const std::string fault = fault_of(description);
  if (!fault.empty()) throw Failure(fault);
  return soif_of(description);
}

}  // namespace rdm::gather
