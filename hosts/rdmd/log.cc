#include "hosts/rdmd/log.h"

#include <fcntl.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include "hosts/common/log_text.h"

namespace rdmd {
namespace {

host_fd open_log(const std::string &path) {
  return ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

class LogSink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  explicit LogSink(std::shared_ptr<LogFile> file) : file_(std::move(file)) {}

 protected:
  void sink_it_(const spdlog::details::log_msg &message) override {
    spdlog::memory_buf_t text;
    formatter_->format(message, text);
    file_->write({text.data(), text.size()});
  }
  void flush_() override {}

 private:
  std::shared_ptr<LogFile> file_;
};

std::string access_time(std::time_t time) {
  struct tm fields;
  char text[64] = "";
  if (::localtime_r(&time, &fields) != nullptr) host_format_time(text, sizeof text, "%d/%b/%Y:%H:%M:%S %z", &fields);
  return text;
}

std::string quoted(const std::string &text) {
  return '"' + (text.empty() ? "-" : hosts::log_text(text, Escaping::quotes)) + '"';
}

}  // namespace

LogFile::LogFile(std::string path) : path_(std::move(path)), fd_(open_log(path_)) {
  if (fd_ == -1) throw std::system_error(errno, std::generic_category(), path_);
}

LogFile::~LogFile() {
  if (!path_.empty()) ::close(fd_);
}

void LogFile::write(std::string_view text) {
  // Not by way of the table that is bound: a line lost here is no loss of the answer under way.
  qxapi_posix_host()->write(fd_, text.data(), static_cast<std::int32_t>(text.size()));
}

bool LogFile::reopen() {
  if (path_.empty()) return true;
  const file_guard fresh(open_log(path_));
  // The number stays the same, so that a line written at this moment goes to one of the two files.
  return fresh && ::dup3(fresh.get(), fd_, O_CLOEXEC) != -1;
}

ErrorLog::ErrorLog(const std::string &path)
    : to_file_(!path.empty()),
      file_(to_file_ ? std::make_shared<LogFile>(path) : std::make_shared<LogFile>(STDERR_FILENO)),
      logger_(std::make_shared<spdlog::logger>("rdmd", std::make_shared<LogSink>(file_))) {
  logger_->set_pattern("[%Y-%m-%d %H:%M:%S.%e] [%l] rdmd: %v");
}

ErrorLog::~ErrorLog() = default;

void ErrorLog::info(std::string_view text) { logger_->info("{}", text); }
void ErrorLog::warn(std::string_view text) { logger_->warn("{}", text); }
void ErrorLog::error(std::string_view text) { logger_->error("{}", text); }

void ErrorLog::report(const hosts::Report &report) {
  const auto level = report.degree == 0 ? spdlog::level::err : spdlog::level::warn;
  if (report.client.empty())
    logger_->log(level, "{}: {}", report.function, report.text);
  else
    logger_->log(level, "{}: {} (client {})", report.function, report.text, report.client);
}

void ErrorLog::reopen() {
  if (!file_->reopen()) error("the error log cannot be reopened; it goes on in the old file");
}

std::string format_access(const AccessEntry &entry) {
  return entry.client + " - - [" + access_time(entry.time) + "] " + quoted(entry.line) + ' ' +
         std::to_string(entry.status) + ' ' + (entry.bytes > 0 ? std::to_string(entry.bytes) : "-") + ' ' +
         quoted(entry.referer) + ' ' + quoted(entry.agent) + '\n';
}

AccessLog::AccessLog(const std::string &path) {
  if (path == "-")
    file_ = std::make_unique<LogFile>(STDOUT_FILENO);
  else if (!path.empty())
    file_ = std::make_unique<LogFile>(path);
}

void AccessLog::write(const AccessEntry &entry) {
  if (file_) file_->write(format_access(entry));
}

}  // namespace rdmd
