// SPDX-License-Identifier: MIT
#include "libcs/soif/model.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "libcs/soif/grammar.h"
#include "libcs/soif/selection.h"
#include "qxapi/ascii.h"

using namespace rdm;

namespace {

std::string_view view(const char *text) { return text != nullptr ? text : std::string_view(); }

/// lacks_bytes returns true for a null value whose size is above 0.
bool lacks_bytes(const char *value, int32_t vsize) { return value == nullptr && vsize > 0; }

void free_pair(void *pair) { avpair_free(static_cast<AVPair *>(pair)); }

int32_t saturating_sum(int32_t a, int32_t b) {
  using Limits = std::numeric_limits<int32_t>;
  return static_cast<int32_t>(std::clamp<int64_t>(int64_t{a} + b, Limits::min(), Limits::max()));
}

}  // namespace

namespace rdm::soif {

SoifPtr make_object(std::string_view template_name, std::string_view url, int32_t nbuckets) noexcept {
  HostPtr<SOIF> record = host_new<SOIF>();
  if (!record) return nullptr;
  SoifPtr object(record.release());
  object->template_name = copy_text(template_name.empty() ? "OBJECT" : template_name).release();
  object->url = copy_text(url.empty() ? "-" : url).release();
  cshashtable_create(nbuckets < 1 ? soif::bucket_count : nbuckets, &object->attrs);
  if (object->template_name == nullptr || object->url == nullptr || object->attrs == nullptr) return nullptr;
  // The hash function stays the default, which is case-sensitive, although names are compared in any letter case:
  // callers look attributes up in lower case, as the parser stores them.
  cshashtable_set_copy(object->attrs, avpair_copy);
  cshashtable_set_compare(object->attrs, avpair_compare);
  cshashtable_set_free(object->attrs, free_pair);
  return object;
}

AvPairPtr make_avpair(std::string_view name, HostText &value, int32_t vsize) noexcept {
  AvPairPtr pair(host_new<AVPair>().release());
  if (!pair) return nullptr;
  pair->attribute = copy_text(name).release();
  if (pair->attribute == nullptr) return nullptr;
  pair->value = value.release();
  pair->vsize = vsize;
  return pair;
}

bool insert_made(SOIF *object, const char *key, AvPairPtr &pair, int32_t vsize) noexcept {
  object->attr_count = saturating_sum(object->attr_count, 1);
  object->value_bytes = saturating_sum(object->value_bytes, vsize);
  if (!pair || cshashtable_insert(object->attrs, key, pair.get()) != 0) return false;
  static_cast<void>(pair.release());
  return true;
}

}  // namespace rdm::soif

int avpair_create(const char *name, const char *value, int32_t vsize, AVPair **out) noexcept {
  *out = nullptr;
  if (name == nullptr || vsize < 0 || lacks_bytes(value, vsize)) return 1;
  HostText copy = copy_text({value, static_cast<size_t>(vsize)});
  if (!copy) return 1;
  *out = soif::make_avpair(name, copy, vsize).release();
  return *out != nullptr ? 0 : 1;
}

void *avpair_copy(const void *pair) noexcept {
  const auto *source = static_cast<const AVPair *>(pair);
  AVPair *copy = nullptr;
  avpair_create(source->attribute, source->value, source->vsize, &copy);
  return copy;
}

void *avpair_copy_useval(const void *pair) noexcept {
  const auto *source = static_cast<const AVPair *>(pair);
  if (source->attribute == nullptr || lacks_bytes(source->value, source->vsize)) return nullptr;
  HostText value(source->value);
  soif::AvPairPtr copy = soif::make_avpair(source->attribute, value, source->vsize);
  // If the copy failed, the value still belongs to the source.
  static_cast<void>(value.release());
  return copy.release();
}

int avpair_compare(const void *pair, const void *name) noexcept {
  return ascii::icompare(view(static_cast<const AVPair *>(pair)->attribute), view(static_cast<const char *>(name)));
}

int avpair_free(AVPair *pair) noexcept {
  if (pair == nullptr) return 1;
  host_free(pair->attribute);
  host_free(pair->value);
  host_free(pair);
  return 0;
}

uint32_t avpair_hash(const AVPair *pair) noexcept { return cshashtable_hf_default(pair->attribute); }

int soif_create(const char *template_name, const char *url, int32_t nbuckets, SOIF **out) noexcept {
  *out = soif::make_object(view(template_name), view(url), nbuckets).release();
  return *out != nullptr ? 0 : 1;
}

int soif_free(SOIF *s) noexcept {
  if (s == nullptr) return 0;
  host_free(s->template_name);
  host_free(s->url);
  if (s->attrs != nullptr) cshashtable_free(s->attrs);
  host_free(s);
  return 0;
}

int soif_compare(const SOIF *s, const char *url) noexcept { return std::strcmp(s->url, url); }

AVPair *soif_find(const SOIF *s, const char *name) noexcept {
  return static_cast<AVPair *>(cshashtable_find(s->attrs, name));
}

char *soif_findval(const SOIF *s, const char *name) noexcept {
  const AVPair *pair = soif_find(s, name);
  return pair != nullptr ? pair->value : nullptr;
}

int soif_insert(SOIF *s, const char *name, const char *value, int32_t vsize) noexcept {
  const AVPair given{const_cast<char *>(name), const_cast<char *>(value), vsize};
  // Copy here, not in the table, which would not report that allocation failed.
  soif::AvPairPtr pair(static_cast<AVPair *>(s->attrs->copy(&given)));
  const soif::CopySwitch as_they_are(s->attrs, cslist_copy_nop);
  return soif::insert_made(s, name, pair, vsize) ? 0 : 1;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the object takes ownership of the value
int soif_insert_nocopy(SOIF *s, const char *name, char *value, int32_t vsize) noexcept {
  const AVPair given{const_cast<char *>(name), value, vsize};
  soif::AvPairPtr pair(static_cast<AVPair *>(avpair_copy_useval(&given)));
  const soif::CopySwitch as_they_are(s->attrs, cslist_copy_nop);
  if (soif::insert_made(s, name, pair, vsize)) return 0;
  if (pair) pair->value = nullptr;  // still owned by the caller
  return 1;
}

int soif_delete(SOIF *s, const char *name) noexcept { return cshashtable_delete(s->attrs, name) == 0 ? 0 : 1; }

int soif_multivalue_attrcmp(const char *base, const char *attribute) noexcept {
  return soif::is_numbered_instance(base, attribute) ? 1 : 0;
}
