// SPDX-License-Identifier: MIT
#include "hosts/rdmd/standard_stream.h"

#include <exception>
#include <new>
#include <string_view>
#include <utility>

namespace rdm::rdmd {
namespace {

/// An unfinished line longer than this is written.
constexpr std::size_t unfinished_limit = 65536;

}  // namespace

StandardStream::StandardStream(FILE *&stream, host_fd descriptor, hosts::LogFile::Notice dropped)
    : place_(stream), original_(stream), log_(hosts::open_stream(descriptor), std::move(dropped)) {
  install();
}

StandardStream::StandardStream(FILE *&stream, host_fd descriptor)
    : place_(stream),
      original_(stream),
      log_(
          hosts::open_stream(descriptor), [this](std::size_t lines) { return say_dropped(lines); },
          hosts::LogFile::NoticeTo::itself) {
  install();
}

/// install replaces the stream by one that writes through log_.
void StandardStream::install() {
  cookie_io_functions_t functions{};
  functions.write = [](void *self, const char *text, std::size_t size) {
    static_cast<StandardStream *>(self)->take({text, size});
    return static_cast<ssize_t>(size);
  };
  FILE *const own = ::fopencookie(this, "w", functions);
  if (own == nullptr) throw std::bad_alloc();
  std::setvbuf(own, nullptr, _IOLBF, BUFSIZ);
  place_ = own;
}

StandardStream::~StandardStream() {
  std::fclose(std::exchange(place_, original_));
  if (!line_.empty()) log_.write(line_);
  log_.close();
}

bool StandardStream::say_dropped(std::size_t lines) {
  return log_.write("rdmd: write standard error: " + hosts::describe_dropped(lines) + "\n");
}

/// take writes complete lines and keeps the rest.
void StandardStream::take(std::string_view text) {
  const std::lock_guard lock(mutex_);
  try {
    const std::size_t end = text.rfind('\n');
    line_.append(text.substr(0, end + 1));
    if (end != std::string_view::npos) log_.write(std::exchange(line_, {}));
    line_.append(text.substr(end + 1));
    if (line_.size() > unfinished_limit) log_.write(std::exchange(line_, {}));
  } catch (const std::bad_alloc &) {
    // The line is lost.
  }
}

bool write_stream(FILE *stream, std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
  return std::fflush(stream) == 0 && written;
}

}  // namespace rdm::rdmd
