// SPDX-License-Identifier: MIT
/// The plug-in: a shared library with four entries.
#ifndef HOSTS_COMMON_PLUGIN_H
#define HOSTS_COMMON_PLUGIN_H

#include <memory>
#include <stdexcept>
#include <string>

#include "hosts/common/exchange.h"
#include "qxapi/guard.h"

namespace rdm::hosts {

/// PluginError is the reason why a library cannot be used as the plug-in.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Plugin {
 public:
  /// Loads the library at `path` and looks up rdm_init, rdm_type, rdm_service and rdm_log. Throws PluginError. The
  /// library is never unloaded, because its exit functions and threads may outlive this object.
  explicit Plugin(const std::string &path);

  /// init calls rdm_init with the parameter "config". Returns an empty string on success, otherwise the plug-in's error
  /// text, or a general one if it gave none.
  std::string init(const std::string &config);

  /// The three entries that a host calls for each request, in this order. Each returns a request status.
  int type(Exchange &exchange) { return call(type_, exchange); }
  int service(Exchange &exchange) { return call(service_, exchange); }
  int log(Exchange &exchange) { return call(log_, exchange); }

 private:
  using Entry = int (*)(pblock *, Session *, Request *);

  int call(Entry entry, Exchange &exchange) { return entry(parameters_.get(), exchange.session(), exchange.request()); }

  Entry init_, type_, service_, log_;
  PblockPtr parameters_;
};

/// Outcome is the result of a request.
enum class Outcome {
  answered,     // the plug-in started an answer
  not_handled,  // rdm_type returned HOST_NOT_HANDLED
  silent,       // the plug-in started no answer
  broken        // a resource failure occurred: the answer may be incomplete and must not be sent
};

/// serve calls type, service and log in turn; log is called whatever service returned. Unless the outcome is
/// `answered`, the exchange's queue is empty afterwards.
Outcome serve(Plugin &plugin, Exchange &exchange);

}  // namespace rdm::hosts

#endif
