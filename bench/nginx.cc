// SPDX-License-Identifier: MIT
#include "nginx.h"

#include <signal.h>

#include <filesystem>

#include "hosts/rdmd/rdmd_process.h"
#include "loopback.h"
#include "site.h"
#include "support/process.h"

namespace rdm::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char *program = "/usr/sbin/nginx";

std::string configuration(const support::TemporaryDirectory &directory, int port, const std::string &workers) {
  return "worker_processes " + workers + ";\npid " + directory.path("nginx.pid") + ";\nerror_log " +
         directory.path("nginx.err") +
         ";\ndaemon off;\nevents { worker_connections 4096; }\nhttp { access_log off; sendfile on; tcp_nopush on; "
         "keepalive_requests 1000000000; default_type application/x-rdm; server { listen 127.0.0.1:" +
         std::to_string(port) + "; root " + directory.path("files") + "; } }\n";
}

}  // namespace

bool Nginx::installed() { return fs::exists(program); }

Nginx::Nginx(const std::string &workers) : port_(free_port()) {
  fs::create_directory(file(""));
  // Its workers run as another user.
  fs::permissions(directory_.path(), fs::perms::others_exec, fs::perm_options::add);
  const std::string config = directory_.write("nginx.conf", configuration(directory_, port_, workers));
  process_ = support::start({program, "-c", config, "-p", directory_.path()}, "/dev/null", "/dev/null",
                            directory_.path("nginx.out"));
  if (!support::eventually([this] { return Socket(port_).get() >= 0; })) fail("nginx does not start");
}

Nginx::~Nginx() {
  ::kill(process_, SIGTERM);
  support::wait_for(process_);
}

}  // namespace rdm::bench
