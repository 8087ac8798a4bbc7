// SPDX-License-Identifier: MIT
/// The plug-in: a loaded library of which nothing is known but its four entries.
#ifndef HOSTS_COMMON_PLUGIN_H
#define HOSTS_COMMON_PLUGIN_H

#include <memory>
#include <stdexcept>
#include <string>

#include "hosts/common/exchange.h"
#include "qxapi/guard.h"

namespace rdm::hosts {

/// PluginError says why a library cannot serve as the plug-in.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Plugin {
 public:
  /// Loads the library at `path` and finds rdm_init, rdm_type, rdm_service and rdm_log in it; throws PluginError. The
  /// library stays loaded for the rest of the process, because exits and threads of its own may outlive this object.
  explicit Plugin(const std::string &path);

  /// init calls rdm_init with the parameter "config". Empty on success, else what went wrong, as far as the plug-in
  /// said.
  std::string init(const std::string &config);

  /// The steps of a request, in the order in which a host calls them. A request status.
  int type(Exchange &exchange) { return call(type_, exchange); }
  int service(Exchange &exchange) { return call(service_, exchange); }
  int log(Exchange &exchange) { return call(log_, exchange); }

 private:
  using Entry = int (*)(pblock *, Session *, Request *);

  int call(Entry entry, Exchange &exchange) { return entry(parameters_.get(), exchange.session(), exchange.request()); }

  Entry init_, type_, service_, log_;
  PblockPtr parameters_;
};

/// What became of a request.
enum class Outcome {
  answered,     // the plug-in started an answer
  not_handled,  // the request is none of the plug-in's
  silent,       // the plug-in sent nothing
  broken        // memory or files failed meanwhile: what was answered must not be sent as if it were whole
};

/// serve calls type, service and log in turn. The last follows the service step whatever that returned. Nothing is
/// queued, in memory or in a file, when the outcome is not `answered`.
Outcome serve(Plugin &plugin, Exchange &exchange);

}  // namespace rdm::hosts

#endif
