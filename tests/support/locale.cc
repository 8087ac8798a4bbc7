// SPDX-License-Identifier: MIT
#include "support/locale.h"

#include <clocale>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

namespace rdm::support {
namespace {

void replace_all(std::string &bytes, const std::string &from, const std::string &to) {
  for (size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size())
    bytes.replace(at, from.size(), to);
}

/// An entry of the locale's table of texts.
std::string entry(const char *text) { return std::string(1, '\0') + text + '\0'; }

}  // namespace

ForeignLocale::ForeignLocale() {
  std::string bytes = read_file("/usr/lib/locale/C.utf8/LC_TIME");
  replace_all(bytes, entry("Mar"), entry("Mrz"));
  replace_all(bytes, entry("Tue"), entry("Die"));
  std::filesystem::create_directory(directory_.path("foreign"));
  write_file(directory_.path("foreign/LC_TIME"), bytes);
  EXPECT_NE(std::setlocale(LC_TIME, "foreign"), nullptr);
  struct tm tuesday {};
  tuesday.tm_mon = 2;
  tuesday.tm_wday = 2;
  char text[32] = "";
  std::strftime(text, sizeof text, "%b %a", &tuesday);
  EXPECT_STREQ(text, "Mrz Die") << "the locale is not in force";
}

ForeignLocale::~ForeignLocale() { std::setlocale(LC_TIME, "C"); }

}  // namespace rdm::support
