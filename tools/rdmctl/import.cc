#include "tools/rdmctl/import.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <ostream>

#include "qxapi/ascii.h"
#include "service/message.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/soif_stream.h"
#include "tools/rdmctl/outcome.h"
#include "tools/rdmctl/service.h"

namespace rdmctl {
namespace {

using minidba::Failure;
using minidba::SoifStream;
using minidba::system_failure;

constexpr uint32_t body_memory = 32768;
constexpr std::string_view message_start = "@RDMHEADER";

/// Delivery is the request that a gatherer would send.
struct Delivery {
  std::string name;
  csio_ptr body = make_csio(body_memory);
  rdmhdr_ptr header = make_rdmhdr(RDM_RD_RESPONSE);
};

file_guard open_input(const std::string &name) {
  if (name == "-") return file_guard(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return file_guard(host_open_read(name.c_str()));
}

void read_body(Delivery &delivery) {
  const file_guard file = open_input(delivery.name);
  if (!file) throw system_failure("cannot read " + delivery.name);
  std::array<char, 65536> block;
  for (;;) {
    const int32_t count = host_read(file.get(), block.data(), block.size());
    if (count < 0) throw system_failure("cannot read " + delivery.name);
    if (count == 0) return;
    if (csio_append(delivery.body.get(), block.data(), count) != count)
      throw Failure("no room to keep " + delivery.name + " in the folder for temporary files");
  }
}

/// is_message says whether the file is a whole message, with a header of its own in front.
bool is_message(const Delivery &delivery) {
  std::array<char, message_start.size()> start;
  csio_rewind(delivery.body.get());
  const int32_t count = csio_copy(delivery.body.get(), start.data(), start.size());
  csio_rewind(delivery.body.get());
  return ascii::iequals({start.data(), static_cast<size_t>(std::max(count, 0))}, message_start);
}

/// read_header takes the type of the message from its own header where there is one. The update passes that header
/// over.
void read_header(Delivery &delivery) {
  if (!is_message(delivery)) return;
  if (rdmhdr_parse(delivery.body.get(), delivery.header.get()) != 0)
    throw Failure("the RDM header of " + delivery.name + " is malformed");
  const int32_t type = delivery.header->type;
  if (type != RDM_RD_RESPONSE && type != RDM_RD_DELETE_RESPONSE)
    throw Failure(delivery.name + " is no delivery: it is neither an rd-response nor an rd-delete-response");
}

void set_text(char *&field, const std::string &text) {
  host_free(field);
  field = host_strdup(text.c_str());
}

Delivery read_delivery(const std::string &name, const std::string &csid) {
  Delivery delivery{name};
  read_body(delivery);
  read_header(delivery);
  set_text(delivery.header->csid, csid);
  csio_rewind(delivery.body.get());
  return delivery;
}

/// count_objects returns how many descriptions are delivered, sound or not. The body then is in a file.
int64_t count_objects(const Delivery &delivery) {
  csio_convert2file(delivery.body.get());
  if (delivery.body->filename == nullptr) return 0;
  const file_guard file(host_open_read(delivery.body->filename));
  if (!file) throw system_failure("cannot read " + delivery.name);
  SoifStream stream(file.get(), delivery.body->filename);
  int64_t count = is_message(delivery) ? -1 : 0;
  while (stream.next()) ++count;
  return count;
}

std::string text_of(csio *answer) {
  std::string bytes(answer->length, '\0');
  csio_rewind(answer);
  csio_copy(answer, bytes.data(), static_cast<int32_t>(bytes.size()));
  soif_reader reader(bytes);
  reader.next();
  const std::string text = bytes.substr(static_cast<size_t>(reader.position()));
  const size_t first = text.find_first_not_of('\n');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of('\n') - first + 1);
}

/// accepted returns the number in an answer of success, -1 for another answer.
int64_t accepted(std::string_view answer) {
  constexpr std::string_view start = "Accepted ";
  int64_t number = -1;
  if (answer.substr(0, start.size()) == start)
    std::from_chars(answer.data() + start.size(), answer.data() + answer.size(), number);
  return number;
}

/// deliver has the service import a delivery and returns the text of its answer.
std::string deliver(Delivery &delivery, const Options &options) {
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  if (!options.from.empty()) exchange.header("from", options.from);
  const csio_ptr answer = make_csio();
  rds_rd_response(delivery.header.get(), delivery.body.get(), answer.get(), exchange.session(), exchange.request());
  Service::log(exchange);
  return text_of(answer.get());
}

/// shortfalls returns what is missing of an import, in words.
std::vector<std::string> shortfalls(int64_t count, int64_t offered, const Outcome &outcome) {
  if (count > 0 && count == offered) return outcome.faults();
  return {std::to_string(std::max<int64_t>(count, 0)) + " of " + std::to_string(offered) +
          " descriptions were accepted"};
}

/// import_file returns whether everything in the file was accepted and can be found.
bool import_file(const std::string &name, const Options &options, std::ostream &out, std::ostream &errors) {
  Delivery delivery = read_delivery(name, options.csid);
  const int64_t offered = count_objects(delivery);
  const Outcome outcome(options.csid);
  const std::string answer = deliver(delivery, options);
  out << answer << std::endl;
  const std::vector<std::string> missing = shortfalls(accepted(answer), offered, outcome);
  for (const std::string &text : missing) errors << "rdmctl: " << name << ": " << text << '\n';
  return missing.empty();
}

}  // namespace

int import(const Options &options, std::ostream &out, std::ostream &errors) {
  const Service service(options.config, errors);
  Service::require_catalog(options.csid);
  bool complete = true;
  for (const std::string &name : options.files) complete = import_file(name, options, out, errors) && complete;
  return complete ? exit_done : exit_incomplete;
}

}  // namespace rdmctl
