// SPDX-License-Identifier: MIT
#include "speed/raw_puts.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <ctime>

#include "dba/guard.h"
#include "site.h"

namespace rdm::bench {
namespace {

DatabasePtr open_library(const std::string &path, int flags, const HASHINFO *info) {
  DatabasePtr db(::dbopen(path.c_str(), flags, 0600, DB_HASH, info));
  if (!db) fail("cannot open " + path);
  return db;
}

void copy_records(DB &from, DB &to) {
  DBT key{}, value{};
  for (int result = from.seq(&from, &key, &value, R_FIRST); result == 0; result = from.seq(&from, &key, &value, R_NEXT))
    if (to.put(&to, &key, &value, 0) != 0) fail("the hash library refuses a record");
}

double own_cpu_time() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

}  // namespace

Cost cost_of_raw_puts(const std::string &from, const std::string &to, std::size_t records) {
  HASHINFO info{};
  info.bsize = 32'768;
  info.ffactor = 14;  // records of 2 KB that fit into a page
  info.nelem = static_cast<u_int>(records);
  const double cpu = own_cpu_time();
  const auto begin = std::chrono::steady_clock::now();
  {
    const DatabasePtr source = open_library(from, O_RDONLY, nullptr);
    const DatabasePtr target = open_library(to, O_RDWR | O_CREAT | O_TRUNC, &info);
    copy_records(*source, *target);
    if (target->sync(target.get(), 0) != 0) fail("the hash library cannot sync " + to);
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  return {time.count(), own_cpu_time() - cpu};
}

}  // namespace rdm::bench
