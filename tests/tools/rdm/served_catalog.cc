// SPDX-License-Identifier: MIT
#include "tools/rdm/served_catalog.h"

#include <signal.h>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/process.h"
#include "tools/rdm/scripted_server.h"

namespace rdm::client {
namespace {

const std::string minidba = support::in_build("bin/minidba");

}  // namespace

const std::string ServedCatalog::schema = "@SCHEMA { -\n" + attribute("name", "x") + "}\n";

ServedCatalog::ServedCatalog(int descriptions, std::vector<std::string> more) : more_(std::move(more)) {
  Titles titles;
  for (int i = 0; i < descriptions; ++i)
    titles.emplace_back("x:" + std::to_string(i), "title " + std::string(static_cast<size_t>(i % 100), '.'));
  update(titles);
  directory_.write("schema", header("schema-description-response") + schema);
  directory_.write("csid.conf", "csid=\"x-catalog://h:1/x\"\ncatalog-database=\"" + database() +
                                    "\"\nschema-description=\"" + directory_.path("schema") + "\"\n");
  directory_.write("rdm.conf", "bindir=\"" + support::in_build("bin") + "\"\ncsid-config=\"" +
                                   directory_.path("csid.conf") + "\"\ncsid-default=\"x-catalog://h:1/x\"\ntmpdir=\"" +
                                   directory_.path() + "\"\ndebug-loglevel=\"0\"\n");
  start();
}

void ServedCatalog::start() {
  std::vector<std::string> arguments = {"--listen", reserved_.address(), "--config", directory_.path("rdm.conf")};
  arguments.insert(arguments.end(), more_.begin(), more_.end());
  server_ = std::make_unique<support::RdmdProcess>(arguments);
  port_ = server_->port();
}

void ServedCatalog::restart() {
  server_->signal(SIGKILL);
  server_->wait();
  start();
}

void ServedCatalog::run_minidba(const std::vector<std::string> &words, const std::string &input) const {
  std::vector<std::string> command = {minidba, "-q", "-d", database()};
  command.insert(command.end(), words.begin(), words.end());
  const support::Finished done = support::run(command, input);
  EXPECT_EQ(done.status, 0) << done.errors;
}

void ServedCatalog::write_index() const { run_minidba({"-i", database() + ".idx", "index"}, ""); }

void ServedCatalog::update(const Titles &titles, const std::function<void()> &changed) {
  std::string text;
  for (const auto &[url, title] : titles) text += "@FILE { " + url + "\n" + attribute("title", title) + "}\n";
  run_minidba({"update"}, text);
  changed();
  write_index();
}

void ServedCatalog::erase(const std::vector<std::string> &urls) {
  std::string text;
  for (const std::string &url : urls) text += url + "\n";
  run_minidba({"delete", "-"}, text);
  write_index();
}

void ServedCatalog::set_clock_back() {
  const std::string ahead = text_of({"x:ahead", std::time(nullptr) + 365 * day});
  run_minidba({"import", "--replace", "--no-header"}, listed() + ahead);
  write_index();
}

std::string ServedCatalog::listed() const { return support::run({minidba, "-d", database(), "list"}).out; }

std::string ServedCatalog::record_of(const std::string &url) const {
  return support::run({minidba, "-d", database(), "get", url}).out;
}

}  // namespace rdm::client
