// SPDX-License-Identifier: MIT
#include "speed/slapd.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string_view>

#include "descriptions.h"
#include "hosts/rdmd/rdmd_process.h"
#include "loopback.h"
#include "site.h"
#include "support/process.h"

namespace rdm::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char *server = "/usr/sbin/slapd", *loader = "/usr/sbin/slapadd";
constexpr const char *core_schema = "/etc/ldap/schema/core.schema", *modules = "/usr/lib/ldap";

/// ldap_name returns the name of an attribute in the directory. LDAP names have no hyphen at these places in common
/// use, and must not be those of the core schema.
std::string ldap_name(std::string name) {
  std::erase(name, '-');
  return "rd" + name;
}

/// schema declares the attributes as plain bytes without matching rules, which is the least work for slapd.
std::string schema() {
  const std::string arc = "1.3.6.1.4.1.32473.1.";  // the arc for examples
  std::string text = "attributetype ( " + arc + "1 NAME '" + slapd_number +
                     "' EQUALITY integerMatch ORDERING integerOrderingMatch SYNTAX 1.3.6.1.4.1.1466.115.121.1.27 )\n";
  std::string names = slapd_number;
  int number = 2;
  for (const auto &[attribute, value] : description(0).attributes) {
    const std::string name = ldap_name(attribute);
    text.append("attributetype ( ").append(arc).append(std::to_string(number++)).append(" NAME '").append(name);
    text.append("' SYNTAX 1.3.6.1.4.1.1466.115.121.1.40 )\n");
    names.append(" $ ").append(name);
  }
  return text + "objectclass ( " + arc + "100 NAME 'rd' SUP top STRUCTURAL MUST cn MAY ( " + names + " ) )\n";
}

/// without_end_blanks drops the blanks at the end of a value, which LDIF would need base64 for.
std::string_view without_end_blanks(std::string_view value) { return value.substr(0, value.find_last_not_of(' ') + 1); }

void write_entry(std::ostream &out, std::size_t number) {
  out << "dn: cn=" << number << ",o=bench\nobjectClass: rd\ncn: " << number << '\n'
      << slapd_number << ": " << number << '\n';
  for (const auto &[name, value] : description(number).attributes)
    out << ldap_name(name) << ": " << without_end_blanks(value) << '\n';
  out << '\n';
}

void write_entries(const std::string &path, std::size_t records) {
  std::ofstream out(path, std::ios::binary);
  out << "dn: o=bench\nobjectClass: organization\no: bench\n\n";
  for (std::size_t i = 0; i < records; ++i) write_entry(out, i);
  if (!out.flush()) fail("cannot write " + path);
}

}  // namespace

bool SlapdDirectory::installed() { return fs::exists(server) && fs::exists(loader) && fs::exists(core_schema); }

SlapdDirectory::SlapdDirectory(std::size_t records) {
  files_.write("slapd.conf", std::string("include ") + core_schema + "\nmodulepath " + modules +
                                 "\nmoduleload back_mdb\npidfile " + path("slapd.pid") + "\nsizelimit unlimited\n" +
                                 schema() + "database mdb\nsuffix \"o=bench\"\ndirectory " + path("data") +
                                 "\nmaxsize 17179869184\nindex objectClass eq\nindex " + slapd_number + " eq\n");
  write_entries(path("entries.ldif"), records);
  clear();
}

std::string SlapdDirectory::load_command() const {
  return std::string(loader) + " -q -f " + configuration() + " -l " + path("entries.ldif");
}

void SlapdDirectory::clear() const {
  fs::remove_all(path("data"));
  fs::create_directory(path("data"));
}

Slapd::Slapd(const SlapdDirectory &directory) : port_(free_port()) {
  process_ = support::start(
      {server, "-f", directory.configuration(), "-h", "ldap://127.0.0.1:" + std::to_string(port_) + "/", "-d", "0"},
      "/dev/null", "/dev/null", directory.path("slapd.err"));
  if (!support::eventually([this] { return Socket(port_).get() >= 0; })) fail("slapd does not start");
}

Slapd::~Slapd() {
  ::kill(process_, SIGTERM);
  support::wait_for(process_);
}

}  // namespace rdm::bench
