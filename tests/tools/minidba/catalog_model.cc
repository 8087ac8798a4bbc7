// SPDX-License-Identifier: MIT
#include "tools/minidba/catalog_model.h"

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <set>
#include <tuple>

#include "qxapi/counted.h"

namespace rdm {

namespace {

constexpr char last_changed[] = "rd-last-changed";

/// time_of parses an attribute in the form of times that the tests use; 0 for another form.
time_t time_of(const Description &description, const std::string &attribute) {
  const auto values = description.attributes.find(attribute);
  tm parts{};
  if (values == description.attributes.end() ||
      ::strptime(values->second.front().c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts) == nullptr)
    return 0;
  return ::timegm(&parts);
}

std::string date_of(time_t time) {
  char text[64];
  tm parts{};
  return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", ::gmtime_r(&time, &parts))};
}

Description content_of(const Description &description) {
  Description content = description;
  content.attributes.erase(last_changed);
  return content;
}

/// is_instance returns true if a name is an attribute or a numbered instance of it.
bool is_instance(const std::string &name, const std::string &attribute) {
  if (name == attribute) return true;
  const std::string prefix = attribute + '-';
  return name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
         name.find_first_not_of("0123456789", prefix.size()) == std::string::npos;
}

std::optional<uint64_t> decimal(const std::string &word) {
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size() ? std::optional<uint64_t>(number) : std::nullopt;
}

std::string escaped(const std::string &value) {
  std::string text;
  for (const char c : value) {
    const char *special = std::strchr("\tt\nn\rr\\\\", c);
    if (c != '\0' && std::strchr("\t\n\r\\", c) != nullptr)
      text += std::string("\\") + special[1];
    else
      text += c;
  }
  return text;
}

std::string joined(const Description &description, const std::string &attribute) {
  std::string text;
  for (const auto &[name, values] : description.attributes)
    if (is_instance(name, attribute))
      for (const std::string &value : values) text += (text.empty() ? "" : "; ") + escaped(value);
  return text;
}

/// with_number returns a record as an export writes it.
std::string with_number(std::string record, const std::string &number) {
  record.insert(record.find('\n') + 1, "minidba-number{" + std::to_string(number.size()) + "}:\t" + number + "\n");
  return record;
}

}  // namespace

std::optional<Description> read_description(const std::string &record) {
  static const std::string head = "@DOCUMENT { ";
  size_t at = record.find('\n');
  if (record.compare(0, head.size(), head) != 0 || at == std::string::npos) return std::nullopt;
  Description description{record.substr(head.size(), at - head.size()), {}};
  for (++at; at < record.size() && record[at] != '}';) {
    const size_t brace = record.find('{', at), colon = record.find("}:\t", at);
    if (brace == std::string::npos || colon == std::string::npos) return std::nullopt;
    const auto size = decimal(record.substr(brace + 1, colon - brace - 1));
    if (!size || *size == 0 || colon + 3 + *size >= record.size()) return std::nullopt;
    description.attributes[record.substr(at, brace - at)].push_back(record.substr(colon + 3, *size));
    at = colon + 3 + *size + 1;
  }
  return record.substr(std::min(at, record.size())) == "}\n" ? std::optional(description) : std::nullopt;
}

std::string Stream::text() const {
  std::string all = header;
  for (const StreamObject &object : objects) all += object.text;
  return all;
}

std::string Stream::fault(bool may_have_more) const {
  if (!count || objects.size() == *count || (may_have_more && objects.size() > *count)) return "";
  return "the header announces " + counted(*count, "description") + " and " +
         counted(objects.size(), "follows", "follow");
}

void CatalogModel::Refused::pass(const std::string &text) {
  ++number;
  line_at[offset] = line;
  line += std::count(text.begin(), text.end(), '\n');
  offset += static_cast<int64_t>(text.size());
}

void CatalogModel::Refused::add(const StreamObject &object, int64_t object_number, int64_t object_offset,
                                const std::string &reason) {
  const std::string url = object.description.url, where = std::to_string(line_at.at(object_offset));
  const std::string which = std::to_string(object_number), byte = std::to_string(object_offset);
  result.errors += "minidba: the input: line " + where + ": " + url + ": object " + which + " at byte " + byte +
                   " rejected: " + reason + "\n";
  reasons += (reasons.empty() ? "" : ",") + std::string(R"({"input":"the input","object":)") + which +
             ",\"line\":" + where + ",\"byte\":" + byte + ",\"url\":\"" + url + "\",\"reason\":\"" + reason + "\"}";
  result.status = 1;
  kept += object.kept;
  ++count;
}

/// Every writer but an import first makes a missing URL map.
void CatalogModel::begin_writing(const Flags &flags) {
  if (flags.dry_run || !exists_ || has_map_) return;
  newest_in_map_ = newest();
  next_in_map_ = next();
  has_map_ = true;
}

uint64_t CatalogModel::next() const {
  if (!exists_) return 1;
  if (has_map_) return next_in_map_;
  const uint64_t free = descriptions_.empty() ? 1 : uint64_t{descriptions_.rbegin()->first} + 1;
  return std::max(next_in_database_, free);
}

/// A commit without changes writes no file.
void CatalogModel::commit(uint64_t next_number, time_t newest, bool has_changes) {
  if (exists_ && !has_changes && next_number == next_in_map_) return;
  newest_in_database_ = newest_in_map_ = newest;
  is_index_earlier_ = is_index_earlier_ || !exists_;
  exists_ = has_map_ = true;
  next_in_database_ = next_in_map_ = next_number;
}

time_t CatalogModel::newest_in_records() const {
  time_t newest = newest_in_database_;
  for (const auto &[number, description] : descriptions_) newest = std::max(newest, time_of(description, last_changed));
  return newest;
}

bool CatalogModel::has_undated() const {
  return std::any_of(descriptions_.begin(), descriptions_.end(),
                     [](const auto &item) { return time_of(item.second, last_changed) == 0; });
}

bool CatalogModel::has_long_records() const {
  return std::any_of(texts_.begin(), texts_.end(), [](const auto &item) { return item.second.size() > 30000; });
}

bool CatalogModel::put_by_another(uint32_t number, const Description &description) {
  if (const auto known = number_of(description.url); known && *known != number) return false;
  // A changed record without a later time counts as damaged.
  const auto is_indexed = [&](const Entry &entry) { return entry.number == number; };
  if (indexed_ && !is_index_earlier_ && std::any_of(indexed_->begin(), indexed_->end(), is_indexed)) return false;
  descriptions_[number] = description;
  exists_ = true;
  has_map_ = false;
  return true;
}

bool CatalogModel::remove_by_another(uint32_t number) {
  if (descriptions_.erase(number) == 0) return false;
  has_map_ = false;
  return true;
}

Result CatalogModel::fail(Result result, const std::string &text) const {
  result.status = 2;
  result.out.clear();
  result.errors += "minidba: " + text + "\n";
  return result;
}

Result CatalogModel::absent() const { return fail({}, "no such database: " + path_); }

Result CatalogModel::report(Result result, const std::string &verb, const Flags &flags,
                            const std::vector<Figure> &figures, bool has_summary, const std::string &rejects) {
  if (flags.json) {
    result.out = "{\"verb\":\"" + verb + "\",\"dry-run\":" + (flags.dry_run ? "true" : "false");
    for (const Figure &figure : figures) {
      std::string name = figure.name;
      std::replace(name.begin(), name.end(), ' ', '-');
      result.out += ",\"" + name + "\":" + std::to_string(figure.value);
    }
    result.out += rejects + "}\n";
    return result;
  }
  if (has_summary && !flags.quiet) {
    result.errors += flags.dry_run ? "minidba: dry run: " : "minidba: ";
    // The summary of an update omits its first figure, the sum of others.
    for (size_t i = verb == "update" ? 1 : 0; i < figures.size(); ++i)
      result.errors +=
          std::to_string(figures[i].value) + ' ' + figures[i].name + (i + 1 < figures.size() ? ", " : "\n");
  }
  result.out = std::to_string(figures.front().value) + "\n";
  return result;
}

std::optional<uint32_t> CatalogModel::number_of(const std::string &url) const {
  for (const auto &[number, description] : descriptions_)
    if (description.url == url) return number;
  return std::nullopt;
}

Result CatalogModel::update(const Stream &stream, const Flags &flags, time_t clock) {
  const bool has_description = std::any_of(stream.objects.begin(), stream.objects.end(),
                                           [](const StreamObject &object) { return object.refusal.empty(); });
  if (has_description) begin_writing(flags);
  CatalogModel next = *this;
  Refused refused;
  if (!stream.header.empty()) refused.pass(stream.header);
  int64_t added = 0, changed = 0, unchanged = 0;
  uint64_t next_number = next.next();
  const time_t time = std::max(clock, newest() + 1);
  for (const StreamObject &object : stream.objects) {
    const int64_t offset = refused.offset;
    refused.pass(object.text);
    if (!object.refusal.empty()) {
      refused.add(object, refused.number, offset, object.refusal);
      continue;
    }
    const auto known = next.number_of(object.description.url);
    if (known && content_of(next.descriptions_[*known]) == content_of(object.description)) {
      ++unchanged;
      continue;
    }
    ++(known ? changed : added);
    if (!known && next_number == no_number) return fail(refused.result, "no number is left in " + path_);
    Description &description = next.descriptions_[known ? *known : static_cast<uint32_t>(next_number++)];
    description = content_of(object.description);
    description.attributes[last_changed] = {date_of(time)};
  }
  if (const std::string fault = stream.fault(true); !fault.empty()) return fail(refused.result, fault);
  if (!flags.dry_run && has_description) {
    *this = next;
    commit(next_number, added + changed > 0 ? time : newest(), added + changed > 0);
  }
  if (!flags.dry_run && flags.rejects && !stream.objects.empty()) refused.result.rejects = refused.kept;
  refused.result.status = has_description && refused.count == 0 ? 0 : 1;
  if (!has_description) {
    refused.result.errors += "minidba: no valid description in the input: the catalog is unchanged\n";
  }
  return report(refused.result, "update", flags,
                {{"accepted", added + changed + unchanged},
                 {"new", added},
                 {"changed", changed},
                 {"unchanged", unchanged},
                 {"rejected", refused.count}},
                true, ",\"rejects\":[" + refused.reasons + "]");
}

Result CatalogModel::import(const Stream &stream, const Flags &flags, time_t clock) {
  if (exists_ && !flags.replace) return fail({}, "database exists: " + path_ + " (--replace replaces it)");
  if (!stream.count && !flags.no_header)
    return fail({}, "no export header in front of the input: nothing is imported without --no-header");
  struct Unnumbered {
    const StreamObject *object;
    int64_t number, offset;
  };
  CatalogModel next = *this;
  next.descriptions_.clear();
  Refused refused;
  int64_t imported = 0;
  std::vector<Unnumbered> unnumbered;
  if (!stream.header.empty()) refused.pass(stream.header);
  uint64_t next_number = this->next();
  if (stream.next_number)
    next_number = std::max(next_number, *stream.next_number == 0 ? no_number : *stream.next_number);
  time_t newest = exists_ ? std::max(newest_in_records(), newest_in_map_) : 0;
  const auto place = [&](const StreamObject &object, uint64_t number, int64_t at, int64_t offset) {
    if (next.number_of(object.description.url)) return refused.add(object, at, offset, "its URL was there before");
    if (next.descriptions_.contains(static_cast<uint32_t>(number)))
      return refused.add(object, at, offset, "its number was there before");
    next.descriptions_[static_cast<uint32_t>(number)] = object.description;
    newest = std::max(newest, time_of(object.description, last_changed));
    next_number = std::max(next_number, number + 1);
    ++imported;
  };
  for (const StreamObject &object : stream.objects) {
    const int64_t offset = refused.offset;
    refused.pass(object.text);
    const auto number = decimal(object.number);
    if (!object.refusal.empty())
      refused.add(object, refused.number, offset, object.refusal);
    else if (object.number.empty())
      unnumbered.push_back({&object, refused.number, offset});
    else if (!number || *number == 0)
      refused.add(object, refused.number, offset, "minidba-number is not a number from 1");
    else
      place(object, *number, refused.number, offset);
  }
  const int64_t numbered = imported;
  for (const Unnumbered &last : unnumbered) {
    if (next_number == no_number) return fail(refused.result, "no number is left in " + path_);
    place(*last.object, next_number, last.number, last.offset);
  }
  if (const std::string fault = stream.fault(false); !fault.empty()) return fail(refused.result, fault);
  if (refused.count > 0 && !flags.rejects) {
    Result result = fail(refused.result, std::to_string(refused.count) + (refused.count == 1 ? " object" : " objects") +
                                             " rejected: nothing is imported without --rejects");
    if (!flags.json) return result;
    return report(result, "import", flags, {{"imported", 0}, {"rejected", refused.count}}, true,
                  ",\"rejects\":[" + refused.reasons + "]");
  }
  if (imported == 0 && !flags.allow_empty) {
    if (!descriptions_.empty())
      return fail(refused.result, "the input has no descriptions and " + path_ +
                                      " has some: nothing is imported without --allow-empty");
    if (!stream.count || !stream.objects.empty())
      return fail(refused.result, "no descriptions in the input: nothing is imported without --allow-empty");
  }
  if (!flags.dry_run) {
    *this = next;
    is_index_earlier_ = true;
    if (has_undated()) newest = std::max(clock, newest + 1);
    for (auto &[number, description] : descriptions_)
      if (time_of(description, last_changed) == 0) description.attributes[last_changed] = {date_of(newest)};
    commit(next_number, newest, true);
    if (flags.rejects) refused.result.rejects = refused.kept;
  }
  refused.result.status = refused.count == 0 ? 0 : 1;
  return report(refused.result, "import", flags,
                {{"imported", imported}, {"numbered anew", imported - numbered}, {"rejected", refused.count}}, true,
                ",\"rejects\":[" + refused.reasons + "]");
}

Result CatalogModel::expire(const Flags &flags) {
  if (!exists_) return absent();
  begin_writing(flags);
  const auto has_expired = [](const auto &item) {
    const time_t time = time_of(item.second, "rd-expires");
    return time != 0 && time < std::time(nullptr);
  };
  const auto count = std::count_if(descriptions_.begin(), descriptions_.end(), has_expired);
  if (!flags.dry_run) {
    std::erase_if(descriptions_, has_expired);
    commit(next(), newest(), count > 0);
  }
  return report({}, "expire", flags, {{"expired", count}}, false);
}

Result CatalogModel::remove(const std::vector<std::string> &words, const Flags &flags) {
  if (!exists_) return absent();
  begin_writing(flags);
  CatalogModel next = *this;
  Result result;
  int64_t deleted = 0, missing = 0;
  for (const std::string &word : words) {
    const auto decimal_number = decimal(word);
    const bool is_number = decimal_number && next.descriptions_.contains(static_cast<uint32_t>(*decimal_number));
    if (const auto number = is_number ? std::optional(static_cast<uint32_t>(*decimal_number)) : next.number_of(word)) {
      next.descriptions_.erase(*number);
      ++deleted;
    } else {
      result.errors += "minidba: no description " + word + "\n";
      ++missing;
    }
  }
  if (!flags.dry_run) {
    *this = next;
    commit(next_in_map_, newest(), deleted > 0);
  }
  result.status = missing == 0 ? 0 : 1;
  return report(result, "delete", flags, {{"deleted", deleted}, {"not there", missing}}, true);
}

Result CatalogModel::rebuild(const Flags &flags) {
  if (!exists_) return absent();
  begin_writing(flags);
  if (!flags.dry_run) commit(next(), newest(), true);
  return report({}, "rebuild", flags, {{"rebuilt", static_cast<int64_t>(descriptions_.size())}}, false);
}

Result CatalogModel::index(const Flags &flags) {
  if (!exists_) return absent();
  if (!flags.dry_run) {
    indexed_ = entries();
    is_index_earlier_ = false;
  }
  return report({}, "index", flags, {{"indexed", static_cast<int64_t>(descriptions_.size())}}, false);
}

std::vector<CatalogModel::Entry> CatalogModel::entries() const {
  std::vector<Entry> entries;
  for (const auto &[number, text] : texts_)
    entries.push_back(
        {static_cast<uint32_t>(time_of(descriptions_.at(number), last_changed)), number,
         static_cast<uint32_t>(text.size()),
         static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const unsigned char *>(text.data()), text.size()))});
  std::sort(entries.begin(), entries.end(),
            [](const Entry &a, const Entry &b) { return std::tie(a.time, a.number) < std::tie(b.time, b.number); });
  return entries;
}

std::optional<std::vector<uint32_t>> CatalogModel::index_words() const {
  if (!indexed_) return std::nullopt;
  std::vector<uint32_t> words{0x3EB1CA0E, static_cast<uint32_t>(indexed_->size())};
  for (const Entry &entry : *indexed_)
    for (const uint32_t word : {entry.time, 0u, entry.number, entry.size, entry.checksum}) words.push_back(word);
  return words;
}

Result CatalogModel::unclassified() const {
  if (!exists_) return absent();
  if (!indexed_) return fail({}, "cannot read " + path_ + ".idx: No such file or directory");
  Result result;
  for (const Entry &entry : *indexed_) {
    const auto description = descriptions_.find(entry.number);
    if (description != descriptions_.end() && joined(description->second, "classification").empty())
      result.out += description->second.url + "\n";
  }
  return result;
}

Result CatalogModel::get(const std::vector<std::string> &words) const {
  if (!exists_) return absent();
  Result result;
  for (const std::string &word : words) {
    auto text = texts_.find(static_cast<uint32_t>(decimal(word).value_or(0)));
    if (text == texts_.end()) text = texts_.find(number_of(word).value_or(0));
    if (text != texts_.end()) {
      result.out += text->second;
    } else {
      result.errors += "minidba: no description " + word + "\n";
      result.status = 1;
    }
  }
  return result;
}

Result CatalogModel::list(time_t since, bool as_table) const {
  if (!exists_) return absent();
  Result result;
  for (const auto &[number, description] : descriptions_) {
    if (since != 0 && time_of(description, last_changed) < since) continue;
    if (as_table)
      result.out += std::to_string(number) + '\t' + description.url + '\t' + joined(description, last_changed) + '\t' +
                    joined(description, "title") + '\n';
    else
      result.out += texts_.at(number);
  }
  return result;
}

/// stats returns the figures without those of the file layout, as JSON without braces.
Result CatalogModel::stats() const {
  if (!exists_) return absent();
  size_t bytes = 0, longest = 0;
  std::map<std::string, int> attributes;
  for (const auto &[number, text] : texts_) {
    bytes += text.size();
    longest = std::max(longest, text.size());
    for (const auto &[name, values] : descriptions_.at(number).attributes) ++attributes[name];
  }
  Result result;
  result.out = "\"descriptions\":" + std::to_string(texts_.size()) + ",\"bytes\":" + std::to_string(bytes) +
               ",\"longest\":" + std::to_string(longest) + ",\"next-number\":" + std::to_string(next_stored());
  for (const auto &[name, count] : attributes) result.out += ",\"" + name + "\":" + std::to_string(count);
  return result;
}

Result CatalogModel::export_whole() const {
  if (!exists_) return absent();
  const auto line = [](const std::string &name, const std::string &value) {
    return name + '{' + std::to_string(value.size()) + "}:\t" + value + '\n';
  };
  Result result;
  result.out = "@RDMHEADER { -\n" + line("rdm-version", "1.0") + line("rdm-type", "rd-response") +
               line("minidba-next-number", std::to_string(next_stored())) +
               line("minidba-descriptions", std::to_string(texts_.size())) + "}\n\n\n";
  for (const auto &[number, text] : texts_) result.out += with_number(text, std::to_string(number));
  return result;
}

Result CatalogModel::verify() const {
  if (!exists_) return absent();
  std::map<uint32_t, Entry> should_be;
  for (const Entry &entry : entries()) should_be.emplace(entry.number, entry);
  size_t faults = 0, behind = indexed_ && is_index_earlier_ ? 1 : 0;
  std::set<uint32_t> indexed;
  uint32_t newest = 0;
  if (indexed_ && !is_index_earlier_) {
    for (const Entry &entry : *indexed_) {
      const auto found = should_be.find(entry.number);
      const bool is_removed = found == should_be.end(), is_changed = !is_removed && found->second != entry;
      if (is_removed || (is_changed && found->second.time > entry.time)) ++behind;
      if (is_changed && found->second.time <= entry.time) ++faults;
      indexed.insert(entry.number);
      newest = std::max(newest, entry.time);
    }
    for (const auto &[number, entry] : should_be)
      if (!indexed.contains(number)) ++(entry.time != 0 && entry.time < newest ? faults : behind);
  }
  Result result;
  result.status = faults > 0 ? 1 : 0;
  result.out = faults > 0
                   ? "damaged: " + counted(faults, "fault")
                   : "sound: " + counted(texts_.size(), "description") + ", " +
                         (indexed_ ? counted(indexed_->size(), "index entry", "index entries") : "no index") +
                         (has_map_ ? "" : ", no URL map") + (behind > 0 ? ", index older than the database" : "");
  result.out += '\n';
  return result;
}

std::string CatalogModel::adopt(const std::map<std::string, std::string> &records) {
  if (records.size() != descriptions_.size())
    return std::to_string(records.size()) + " records instead of " + std::to_string(descriptions_.size());
  texts_.clear();
  for (auto &[number, expected] : descriptions_) {
    char key[9];
    std::snprintf(key, sizeof key, "%08x", number);
    const auto record = records.find(key);
    if (record == records.end()) return std::string("no record ") + key;
    const auto found = read_description(record->second);
    if (!found) return std::string("record ") + key + " is not as minidba prints it: " + record->second;
    if (*found != expected) return std::string("record ") + key + " is another: " + record->second.substr(0, 500);
    texts_[number] = record->second;
  }
  return {};
}

}  // namespace rdm
