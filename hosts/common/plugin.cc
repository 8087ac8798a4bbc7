// SPDX-License-Identifier: MIT
#include "hosts/common/plugin.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <new>

#include "hosts/common/host_table.h"

namespace rdm::hosts {
namespace {

void *load(const std::string &path) {
  // dlopen() would look for a name without a slash along the loader's search path.
  const std::string file = std::filesystem::absolute(path);
  void *library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw PluginError(std::string("cannot load the plug-in: ") + ::dlerror());
  return library;
}

template <typename Entry>
Entry find_entry(void *library, const std::string &path, const char *name) {
  void *symbol = ::dlsym(library, name);
  if (symbol == nullptr) throw PluginError("cannot load the plug-in: " + path + ": no symbol " + name);
  Entry entry;
  std::memcpy(&entry, &symbol, sizeof entry);
  return entry;
}

}  // namespace

Plugin::Plugin(const std::string &path) : parameters_(host_param_create(1)) {
  if (!parameters_) throw std::bad_alloc();
  void *library = load(path);
  init_ = find_entry<Entry>(library, path, "rdm_init");
  type_ = find_entry<Entry>(library, path, "rdm_type");
  service_ = find_entry<Entry>(library, path, "rdm_service");
  log_ = find_entry<Entry>(library, path, "rdm_log");
}

std::string Plugin::init(const std::string &config) {
  const PblockPtr block(host_param_create(3));
  if (!block || host_param_add("config", config.c_str(), block.get()) != 0) throw std::bad_alloc();
  if (init_(block.get(), nullptr, nullptr) == HOST_DONE) return {};
  const char *error = host_param_find("error", block.get());
  return error != nullptr && *error != '\0' ? error : "the plug-in refused its configuration";
}

namespace {

Outcome call_in_turn(Plugin &plugin, Exchange &exchange) {
  const long failures_before = resource_failures();
  const int type = plugin.type(exchange);
  if (type == HOST_NOT_HANDLED) return Outcome::not_handled;
  if (type == HOST_DONE) {
    plugin.service(exchange);
    plugin.log(exchange);
  }
  if (resource_failures() != failures_before) return Outcome::broken;
  return exchange.started() ? Outcome::answered : Outcome::silent;
}

}  // namespace

Outcome serve(Plugin &plugin, Exchange &exchange) {
  const Outcome outcome = call_in_turn(plugin, exchange);
  // Now rather than with the exchange: on a full disk the next request may need the space of this incomplete answer.
  if (outcome != Outcome::answered) exchange.queue().take();
  return outcome;
}

}  // namespace rdm::hosts
