// SPDX-License-Identifier: MIT
/// Reads any bytes as an answer to the client. What is accepted consists of objects that parse again, with white space
/// alone between them; the same bytes as the part of an answer that was cut give the same objects.

#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "qxapi/ascii.h"
#include "tools/rdm/answer.h"
#include "tools/rdm/error.h"
#include "tools/rdm/server.h"

using namespace rdm;

namespace {

client::HttpReply reply_of(std::string_view bytes, client::Transfer transfer) {
  client::HttpReply reply;
  reply.transfer = transfer;
  reply.status = 200;
  reply.content_type = "application/x-rdm";
  reply.received = static_cast<int64_t>(bytes.size());
  if (transfer == client::Transfer::cut) reply.error = "cut";
  return reply;
}

client::Answer answer_of(std::string_view bytes, client::Transfer transfer) {
  catalog::ScratchFile body(client::scratch_place());
  body.append(bytes);
  return client::Answer({"rd-request", "", client::Query()}, reply_of(bytes, transfer), std::move(body));
}

std::vector<std::string> texts_of(client::Answer &answer) {
  std::vector<std::string> texts;
  answer.each([&](const catalog::ObjectView &object, const std::string &text) {
    const auto again = catalog::ObjectView::read(text);
    fuzz::require(again && again->url() == object.url(), "an accepted object is not read back");
    texts.push_back(text);
  });
  return texts;
}

bool is_blank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return ascii::is_space(c); });
}

/// check_whole requires that the objects are all there is after the header.
void check_whole(std::string_view bytes, const client::Answer &answer, const std::vector<std::string> &texts) {
  bytes.remove_prefix(static_cast<size_t>(answer.body_start()));
  for (const std::string &text : texts) {
    const size_t at = bytes.find(text);
    fuzz::require(at != std::string_view::npos && is_blank(bytes.substr(0, at)), "bytes between objects are accepted");
    bytes.remove_prefix(at + text.size());
  }
  fuzz::require(is_blank(bytes), "bytes after the last object are accepted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  try {
    client::Answer whole = answer_of(bytes, client::Transfer::whole);
    if (!whole.fault().empty()) return 0;
    const std::vector<std::string> texts = texts_of(whole);
    check_whole(bytes, whole, texts);
    client::Answer cut = answer_of(bytes, client::Transfer::cut);
    fuzz::require(cut.is_cut() && texts_of(cut) == texts, "an answer that was cut gives other objects");
  } catch (const client::Distrust &) {
  } catch (const client::Refusal &) {
  }
  return 0;
}
