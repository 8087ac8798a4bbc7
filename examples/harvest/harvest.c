/* SPDX-License-Identifier: MIT */
/*
 * Keeps a file equal to the catalog of a server.
 *
 * Usage: harvest URL FILE [CSID]     for example: harvest http://localhost:8380/rdm copy.soif
 *
 * FILE has the descriptions in the order of their URLs. It is replaced when everything has arrived, and is also all
 * that is remembered from one run to the next. Exit status: 0 FILE equals the catalog, 2 wrong usage, 3 FILE is as it
 * was.
 *
 * Build: cc -o harvest harvest.c $(pkg-config --cflags --libs libcurl)
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <curl/curl.h>

enum { overlap = 300 }; /* seconds; the second of a recent change may not be over, and indexes may show changes late */
enum { attempts = 5, rounds = 5, timeout = 60 };

/* fail ends the program; the copy is as it was. */
__attribute__((noreturn, format(printf, 1, 2))) static void fail(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fputs("harvest: ", stderr);
  vfprintf(stderr, format, arguments);
  fputc('\n', stderr);
  va_end(arguments);
  exit(3);
}

static void *checked(void *memory) {
  if (memory == NULL) fail("out of memory");
  return memory;
}

/* ---- SOIF ---- */

struct span {
  const char *at;
  size_t size;
};

struct object {
  struct span url, text, type, message, changed;
};

static int equals(struct span span, const char *text) {
  return span.size == strlen(text) && memcmp(span.at, text, span.size) == 0;
}

static struct span trimmed(struct span span) {
  while (span.size > 0 && strchr(" \t\r\n", span.at[span.size - 1]) != NULL) --span.size;
  return span;
}

static void keep(struct object *object, struct span name, struct span value) {
  if (equals(name, "rdm-type")) object->type = value;
  if (equals(name, "rdm-error-message")) object->message = trimmed(value);
  if (equals(name, "rd-last-changed")) object->changed = value;
}

/* next_attribute moves `*at` past an attribute. The byte count, not a mark, ends its value. Returns 1, or -1. */
static int next_attribute(const char **at, const char *end, struct object *object) {
  const char *brace = memchr(*at, '{', (size_t)(end - *at));
  if (brace == NULL) return -1;
  char *value;
  const size_t size = strtoull(brace + 1, &value, 10);
  if (strncmp(value, "}:\t", 3) != 0) return -1;
  value += 3;
  if (size >= (size_t)(end - value) || value[size] != '\n') return -1;
  keep(object, (struct span){*at, (size_t)(brace - *at)}, (struct span){value, size});
  *at = value + size + 1;
  return 1;
}

/* next_object reads an object of the text from `*at` to `end`, where there is a NUL, and moves `*at` past it. Returns
   1, 0 at the end of the text, or -1 if the text is damaged. */
static int next_object(const char **at, const char *end, struct object *object) {
  const char *begin = *at + strspn(*at, " \t\r\n");
  if (begin == end) return 0;
  const char *line = memchr(begin, '\n', (size_t)(end - begin));
  const char *url = line == NULL ? NULL : memmem(begin, (size_t)(line - begin), " { ", 3);
  if (*begin != '@' || url == NULL) return -1;
  *object = (struct object){.url = {url + 3, (size_t)(line - url - 3)}};
  for (*at = line + 1; **at != '}';)
    if (next_attribute(at, end, object) < 0) return -1;
  if ((*at)[1] != '\n') return -1;
  *at += 2;
  object->text = (struct span){begin, (size_t)(*at - begin)};
  return 1;
}

/* ---- Catalogs ---- */

struct description {
  char *url, *text;
  size_t size;
  time_t changed;
  int sent; /* it has come in this run */
};

/* catalog is an array in the order of the URLs. */
struct catalog {
  struct description *items;
  size_t count;
};

static int by_url(const void *a, const void *b) {
  return strcmp(((const struct description *)a)->url, ((const struct description *)b)->url);
}

static struct description *find(const struct catalog *catalog, char *url) {
  const struct description wanted = {.url = url};
  if (catalog->count == 0) return NULL;
  return bsearch(&wanted, catalog->items, catalog->count, sizeof wanted, by_url);
}

static void clear(struct description *description) {
  free(description->url);
  free(description->text);
}

static void release(struct catalog *catalog) {
  for (size_t i = 0; i < catalog->count; ++i) clear(&catalog->items[i]);
  free(catalog->items);
  *catalog = (struct catalog){0};
}

static void add(struct catalog *catalog, const struct object *object) {
  if ((catalog->count & (catalog->count - 1)) == 0) /* a power of two: full */
    catalog->items = checked(realloc(catalog->items, (2 * catalog->count + 1) * sizeof *catalog->items));
  struct description *description = &catalog->items[catalog->count++];
  char *date = checked(strndup(object->changed.at == NULL ? "" : object->changed.at, object->changed.size));
  *description =
      (struct description){checked(strndup(object->url.at, object->url.size)), checked(malloc(object->text.size)),
                           object->text.size, curl_getdate(date, NULL), 0};
  memcpy(description->text, object->text.at, object->text.size);
  free(date);
}

/* parse returns 0, or -1 if the text is damaged; then the catalog has what was before the damage. */
static int parse(const char *at, const char *end, struct catalog *catalog) {
  struct object object;
  int found;
  while ((found = next_object(&at, end, &object)) > 0) add(catalog, &object);
  if (catalog->count > 0) qsort(catalog->items, catalog->count, sizeof *catalog->items, by_url);
  return found;
}

/* take_over puts the descriptions of `sent` into `held` and leaves `sent` empty. */
static void take_over(struct catalog *held, struct catalog *sent) {
  const size_t before = held->count;
  held->items = checked(realloc(held->items, 2 * (before + sent->count + 1) * sizeof *held->items));
  for (size_t i = 0; i < sent->count; ++i) {
    struct description *place = find(&(struct catalog){held->items, before}, sent->items[i].url);
    if (place != NULL) clear(place);
    if (place == NULL) place = &held->items[held->count++];
    *place = sent->items[i];
    place->sent = 1;
  }
  qsort(held->items, held->count, sizeof *held->items, by_url);
  free(sent->items);
  *sent = (struct catalog){0};
}

/* ---- Exchanges ---- */

struct body {
  char *bytes;
  size_t size;
};

static size_t receive(char *bytes, size_t one, size_t count, void *into) {
  struct body *body = into;
  char *larger = realloc(body->bytes, body->size + one * count + 1);
  if (larger == NULL) return 0;
  body->bytes = larger;
  memcpy(body->bytes + body->size, bytes, one * count);
  body->size += one * count;
  body->bytes[body->size] = '\0';
  return one * count;
}

static int is_busy(long status) { return status == 408 || status == 429 || status >= 500; }

/* refuse_others ends the program if this is no answer to an rd-request: another attempt would not help. */
static void refuse_others(CURL *curl, long status, const struct object *header) {
  curl_off_t length = -1;
  char *type = NULL;
  curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
  if (status != 200) fail("HTTP status %ld", status);
  if (length < 0 || type == NULL || strcmp(type, "application/x-rdm") != 0) fail("no RDM message of a known length");
  if (header->message.size > 0 && !equals(header->message, "0 results."))
    fail("%.*s", (int)header->message.size, header->message.at);
  if (!equals(header->type, "rd-response")) fail("the server does not send descriptions");
}

/* attempt sends a query once. Returns why it failed, or NULL. */
static const char *attempt(CURL *curl, const char *target, struct body *body, struct catalog *catalog) {
  long status = 0;
  curl_easy_setopt(curl, CURLOPT_URL, target);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, body);
  const CURLcode result = curl_easy_perform(curl); /* fails if less than the announced length arrives */
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  if (result != CURLE_OK) return curl_easy_strerror(result);
  if (is_busy(status)) return "the server is busy";
  struct object header = {0};
  const char *at = body->size > 0 ? body->bytes : "", *end = at + body->size;
  if (next_object(&at, end, &header) < 0) return "the header is damaged";
  refuse_others(curl, status, &header);
  return parse(at, end, catalog) < 0 ? "a description is damaged" : NULL;
}

static void pause_before(CURL *curl, int number) {
  curl_off_t named = 0;
  curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &named);
  const double seconds = named > 0 ? (double)named : (1 << number) * (0.5 + drand48() / 2);
  nanosleep(&(struct timespec){(time_t)seconds, (long)(1e9 * (seconds - (double)(time_t)seconds))}, NULL);
}

static struct catalog ask_target(CURL *curl, const char *target) {
  const char *reason = NULL;
  for (int i = 0; i < attempts; ++i) {
    if (i > 0) pause_before(curl, i - 1);
    struct body body = {0};
    struct catalog catalog = {0};
    reason = attempt(curl, target, &body, &catalog);
    free(body.bytes);
    if (reason == NULL) return catalog;
    release(&catalog);
  }
  fail("%d attempts failed, the last one: %s", attempts, reason);
}

struct source {
  CURL *curl;
  const char *url, *csid;
};

/* ask sends a query, again after a pause if the server is busy or the answer is cut. */
static struct catalog ask(const struct source *source, const char *scope, const char *attributes) {
  char *escaped_scope = checked(curl_easy_escape(source->curl, scope, 0));
  char *escaped_csid = checked(curl_easy_escape(source->curl, source->csid, 0));
  char *target;
  if (asprintf(&target, "%s/rd-request?ql=gatherer&scope=%s%s%s%s%s", source->url, escaped_scope,
               *attributes == '\0' ? "" : "&view-attributes=", attributes,
               *escaped_csid == '\0' ? "" : "&csid=", escaped_csid) < 0)
    fail("out of memory");
  struct catalog catalog = ask_target(source->curl, target);
  curl_free(escaped_scope);
  curl_free(escaped_csid);
  free(target);
  return catalog;
}

/* time_of_server returns the date of the last answer. */
static time_t time_of_server(CURL *curl) {
  struct curl_header *date;
  if (curl_easy_header(curl, "Date", 0, CURLH_HEADER, -1, &date) != CURLHE_OK) fail("the answer has no date");
  return curl_getdate(date->value, NULL);
}

/* ---- The copy ---- */

static struct catalog read_copy(const char *path) {
  struct body body = {0};
  struct catalog catalog = {0};
  char block[65536];
  FILE *file = fopen(path, "rb");
  if (file == NULL && errno == ENOENT) return catalog;
  if (file == NULL) fail("%s: %s", path, strerror(errno));
  for (size_t count; (count = fread(block, 1, sizeof block, file)) > 0;)
    if (receive(block, 1, count, &body) != count) fail("out of memory");
  if (ferror(file) || fclose(file) != 0) fail("cannot read %s", path);
  if (body.size > 0 && parse(body.bytes, body.bytes + body.size, &catalog) < 0) fail("%s is damaged", path);
  free(body.bytes);
  return catalog;
}

static void write_copy(const char *path, const struct catalog *held) {
  char *temporary;
  if (asprintf(&temporary, "%s.new", path) < 0) fail("out of memory");
  FILE *file = fopen(temporary, "wb");
  if (file == NULL) fail("%s: %s", temporary, strerror(errno));
  for (size_t i = 0; i < held->count; ++i) fwrite(held->items[i].text, 1, held->items[i].size, file);
  if (fflush(file) != 0 || ferror(file) || fsync(fileno(file)) != 0 || fclose(file) != 0)
    fail("cannot write %s", temporary);
  if (rename(temporary, path) != 0) fail("%s: %s", path, strerror(errno));
  free(temporary);
}

/* drop_gone removes the descriptions that are not listed, and returns their number. */
static size_t drop_gone(struct catalog *held, const struct catalog *listed) {
  size_t kept = 0, gone = 0;
  for (size_t i = 0; i < held->count; ++i) {
    if (find(listed, held->items[i].url) != NULL) {
      held->items[kept++] = held->items[i];
    } else {
      clear(&held->items[i]);
      ++gone;
    }
  }
  held->count = kept;
  return gone;
}

/* keep_wanted leaves in `listed` what is not held, or is held of another time, or so recent that it may have changed
   again. Returns the oldest time of these. */
static time_t keep_wanted(struct catalog *listed, const struct catalog *held, time_t now) {
  size_t kept = 0;
  time_t oldest = now;
  for (size_t i = 0; i < listed->count; ++i) {
    struct description *entry = &listed->items[i], *copy = find(held, entry->url);
    if (copy != NULL && copy->changed == entry->changed && (copy->sent || entry->changed <= now - overlap)) {
      clear(entry);
      continue;
    }
    if (entry->changed < oldest) oldest = entry->changed;
    listed->items[kept++] = *entry;
  }
  listed->count = kept;
  return oldest;
}

static int has_all(const struct catalog *sent, const struct catalog *wanted) {
  for (size_t i = 0; i < wanted->count; ++i)
    if (find(sent, wanted->items[i].url) == NULL) return 0;
  return 1;
}

/* missing returns the wanted descriptions, and others. */
static struct catalog missing(const struct source *source, const struct catalog *wanted, time_t oldest) {
  char scope[64];
  struct tm fields;
  oldest -= overlap;
  gmtime_r(&oldest, &fields);
  strftime(scope, sizeof scope, "since %a, %d %b %Y %H:%M:%S GMT", &fields);
  struct catalog sent = ask(source, scope, "");
  if (has_all(&sent, wanted)) return sent;
  release(&sent); /* a search that narrows to the newest description answers nothing */
  return ask(source, "all", "");
}

/* update makes the held descriptions equal to the catalog and returns the number of those that are gone. */
static size_t update(const struct source *source, struct catalog *held) {
  size_t gone = 0;
  for (int i = 0; i < rounds; ++i) {
    struct catalog listed = ask(source, "all", "rd-last-changed");
    const time_t now = time_of_server(source->curl);
    if (listed.count < held->count / 2)
      fail("%zu descriptions are held, %zu are left; remove the copy if that is right", held->count, listed.count);
    gone += drop_gone(held, &listed);
    const time_t oldest = keep_wanted(&listed, held, now);
    const int is_equal = listed.count == 0;
    struct catalog sent = is_equal ? (struct catalog){0} : missing(source, &listed, oldest);
    take_over(held, &sent);
    release(&listed);
    if (is_equal) return gone;
  }
  fail("the catalog changes faster than it can be harvested");
}

int main(int count, char **arguments) {
  if (count < 3 || count > 4) {
    fputs("usage: harvest URL FILE [CSID]\n", stderr);
    return 2;
  }
  srand48(time(NULL) ^ getpid());
  const struct source source = {checked(curl_easy_init()), arguments[1], count == 4 ? arguments[3] : ""};
  curl_easy_setopt(source.curl, CURLOPT_WRITEFUNCTION, receive);
  curl_easy_setopt(source.curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(source.curl, CURLOPT_LOW_SPEED_TIME, (long)timeout);
  struct catalog held = read_copy(arguments[2]);
  const size_t gone = update(&source, &held);
  size_t sent = 0;
  for (size_t i = 0; i < held.count; ++i) sent += held.items[i].sent != 0;
  write_copy(arguments[2], &held);
  printf("%zu sent, %zu gone, %zu held\n", sent, gone, held.count);
  release(&held);
  curl_easy_cleanup(source.curl);
  return 0;
}
