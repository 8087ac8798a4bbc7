// SPDX-License-Identifier: MIT
#include "tools/minidba/output/rejects.h"

#include <ostream>

#include <nlohmann/json.hpp>

#include "catalog/os/error.h"
#include "qxapi/escaped.h"

namespace rdm::minidba {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t longest_url = 300;

std::string rejected_url(const SoifStream::Item &item) {
  return item.object ? std::string(item.object->url()) : item.url;
}

/// with_count returns the attribute with a byte count: "title{3}".
std::string with_count(const SoifStream::Misfit &misfit, const std::string &count) {
  return printable(misfit.attribute, 60) + '{' + printable(count, 20) + '}';
}

/// whole_reason adds the byte count that would fit: "...; title{3} would fit, not title{9}".
std::string whole_reason(const std::string &reason, const SoifStream::Item &item) {
  if (!item.misfit) return reason;
  return reason + "; " + with_count(*item.misfit, std::to_string(item.misfit->fits)) + " would fit, not " +
         with_count(*item.misfit, item.misfit->count);
}

Json rejection_json(const SoifStream &stream, const SoifStream::Item &item, int64_t line, const std::string &reason) {
  Json object{{"input", stream.name()}, {"object", item.number},     {"line", line},
              {"byte", item.offset},    {"url", rejected_url(item)}, {"reason", reason}};
  if (item.misfit) {
    object["attribute"] = item.misfit->attribute;
    object["count"] = item.misfit->count;
    object["fits"] = item.misfit->fits;
  }
  return object;
}

}  // namespace

Rejects::Rejects(const Options &options, const Console &console) : console_(console) {
  if (!options.rejects.empty() && !options.dry_run) file_.emplace(options.rejects);
  if (options.json) reasons_.emplace(options.database);
}

void Rejects::add(SoifStream &stream, const SoifStream::Item &item, const std::string &reason, Progress &progress) {
  ++count_;
  progress.clear();
  const int64_t line = stream.line_of(item.offset);
  const std::string why = whole_reason(reason, item), url = rejected_url(item);
  console_.errors << "minidba: " << escaped(stream.name()) << ": line " << line << ": "
                  << (url.empty() ? "" : printable(url, longest_url) + ": ") << "object " << item.number << " at byte "
                  << item.offset << " rejected: " << escaped(why) << '\n';
  if (reasons_) {
    const std::string text =
        rejection_json(stream, item, line, why).dump(-1, ' ', false, Json::error_handler_t::replace);
    reasons_size_ += static_cast<int64_t>(text.size()) + 1;
    reasons_->append((count_ == 1 ? "" : ",") + text);
    reasons_size_ -= count_ == 1 ? 1 : 0;
  }
  if (file_) file_->write(stream.bytes_of(item));
}

std::string Rejects::reasons() const {
  std::string text(static_cast<size_t>(reasons_size_), '\0');
  if (reasons_) reasons_->read(0, text.data(), text.size());
  return "[" + text + "]";
}

void Rejects::finish() {
  if (file_) file_->finish();
}

void Rejects::commit() {
  if (!file_) return;
  try {
    file_->commit();
  } catch (const Failure &failure) {
    throw Failure(std::string("the descriptions were taken in, but ") + failure.what());
  }
}

}  // namespace rdm::minidba
