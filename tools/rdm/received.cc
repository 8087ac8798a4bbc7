// SPDX-License-Identifier: MIT
#include "tools/rdm/received.h"

#include "catalog/change_times.h"

namespace rdm::client {

bool Received::add(const catalog::ObjectView &object, const std::string &text) {
  Entry entry{digest_of(object.url()), digest_of(text), catalog::valid_change_time(object), 0, 0, true};
  entry.size = static_cast<uint32_t>(text.size());
  const auto [found, is_new] = latest_.try_emplace(entry.key, entries_.size());
  if (!is_new) {
    Entry &former = entries_[found->second];
    if (former.size == entry.size && former.content == entry.content) return false;
    former.is_latest = false;
    found->second = entries_.size();
  }
  entry.offset = texts_.append(text);
  entries_.push_back(entry);
  return true;
}

const Received::Entry *Received::find(const Digest &key) const {
  const auto found = latest_.find(key);
  return found == latest_.end() ? nullptr : &entries_[found->second];
}

void Received::each(const std::function<void(const Entry &entry)> &visit) const {
  for (const Entry &entry : entries_)
    if (entry.is_latest) visit(entry);
}

std::string Received::text(const Entry &entry) const {
  std::string bytes(entry.size, '\0');
  texts_.read(entry.offset, bytes.data(), bytes.size());
  return bytes;
}

}  // namespace rdm::client
