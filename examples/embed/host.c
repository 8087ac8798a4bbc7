/* SPDX-License-Identifier: MIT */
/*
 * A server that embeds the resource-description service: it serves one request at a time on the loopback interface.
 *
 * Usage: host CONFIG PORT     for example: host /etc/rdm/rdm.conf 8380; port 0 takes a free one
 *
 * The service calls its host for everything: memory, files, the client. The host copies the POSIX table, which has most
 * of that, and replaces the functions that reach the client.
 */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <arpa/inet.h>
#include <ctype.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <qxapi/qxapi.h>
#include <service/rdm.h>

enum { largest_body = 32768 }; /* the service refuses a larger one by its announced length */

/* host_net and host_buffer are opaque to the service: a host defines what it needs. */
struct host_net {
  FILE *out;
};
struct host_buffer {
  host_fd file;
  host_buffer *reader; /* of the POSIX host */
};

static const qxapi_host *posix_table;

static int net_write(host_net *client, const void *bytes, int32_t count) {
  return fwrite(bytes, 1, (size_t)count, client->out) == (size_t)count ? count : -1;
}

/* start_response sends the head. The end of the connection ends an answer without a length. */
static int start_response(Session *session, Request *request) {
  const char *type = host_param_find("content-type", request->response);
  const char *length = host_param_find("content-length", request->response);
  char date[64];
  const time_t now = time(NULL);
  struct tm fields;
  host_format_time(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", host_gmtime(&now, &fields));
  FILE *out = session->socket->out;
  fprintf(out, "HTTP/1.1 %d \r\nConnection: close\r\nDate: %s\r\n", request->status, date);
  if (type != NULL) fprintf(out, "Content-Type: %s\r\n", type);
  if (length != NULL) fprintf(out, "Content-Length: %s\r\n", length);
  return fputs("\r\n", out) < 0 ? HOST_ABORT : HOST_DONE;
}

static host_buffer *buffer_open(host_fd file, int size) {
  host_buffer *buffer = host_alloc(sizeof *buffer);
  if (buffer == NULL) return NULL;
  *buffer = (host_buffer){file, posix_table->buffer_open(file, size)};
  if (buffer->reader != NULL) return buffer;
  host_free(buffer);
  return NULL;
}

static int get_line(host_buffer *buffer, int number, int limit, char *line) {
  return posix_table->getline(buffer->reader, number, limit, line);
}

static void buffer_close(host_buffer *buffer) {
  if (buffer == NULL) return;
  posix_table->buffer_close(buffer->reader);
  host_free(buffer);
}

/* buffer_send sends the file from its position on: the service reads no line of a file that it sends. */
static int64_t buffer_send(host_buffer *buffer, host_net *client) {
  char block[65536];
  int64_t total = 0;
  for (int32_t got; (got = host_read(buffer->file, block, sizeof block)) != 0; total += got)
    if (got < 0 || net_write(client, block, got) != got) return -1;
  return total;
}

static void bind_table(void) {
  posix_table = qxapi_posix_host();
  qxapi_host table = *posix_table;
  table.net_write = net_write;
  table.start_response = start_response;
  table.buffer_open = buffer_open;
  table.getline = get_line;
  table.buffer_close = buffer_close;
  table.buffer_send = buffer_send;
  qxapi_bind(&table);
}

/* read_line returns a line of the head without its end, or null at the end of the head or of the input. */
static char *read_line(FILE *in, char *line, int size) {
  if (fgets(line, size, in) == NULL) return NULL;
  line[strcspn(line, "\r\n")] = '\0';
  return *line == '\0' ? NULL : line;
}

/* read_request reads "METHOD PATH?QUERY VERSION", the fields, under names in lower case, and the body. Returns 1, or 0
   if that is not what comes. */
static int read_request(FILE *in, Request *request, host_input *input, unsigned char *body) {
  char line[8192], *rest = read_line(in, line, sizeof line), *name;
  char *method = strsep(&rest, " "), *target = strsep(&rest, " "), *path = strsep(&target, "?");
  if (rest == NULL) return 0;
  host_param_add("method", method, request->line);
  host_param_add("uri", path, request->line);
  if (target != NULL) host_param_add("query", target, request->line);
  for (int fields = 0; fields < 100 && (name = read_line(in, line, sizeof line)) != NULL; ++fields) {
    char *value = name + strcspn(name, ":");
    if (*value != '\0') *value++ = '\0';
    for (char *c = name; *c != '\0'; ++c) *c = (char)tolower((unsigned char)*c);
    host_param_add(name, value + strspn(value, " \t"), request->headers);
  }
  const char *length = host_param_find("content-length", request->headers);
  const size_t size = length == NULL ? 0 : strtoul(length, NULL, 10);
  if (size > largest_body) return 1;
  *input = (host_input){body, 0, (int32_t)size, NULL};
  return fread(body, 1, size, in) == size;
}

/* serve reads a request and calls the three entries of the service, as for every request. */
static void serve(FILE *in, FILE *out) {
  static unsigned char body[largest_body];
  host_net client = {out};
  host_input input = {body, 0, 0, NULL};
  pblock *blocks[6];
  for (int i = 0; i < 6; ++i) blocks[i] = host_param_create(8);
  Session session = {blocks[0], &client, &input, NULL};
  Request request = {blocks[1], blocks[2], blocks[3], blocks[4], 404, NULL};
  host_param_add("ip", "127.0.0.1", session.client);
  if (read_request(in, &request, &input, body)) {
    if (rdm_type(blocks[5], &session, &request) == HOST_DONE) {
      rdm_service(blocks[5], &session, &request);
      rdm_log(blocks[5], &session, &request);
    } else {
      start_response(&session, &request);
    }
  }
  for (int i = 0; i < 6; ++i) host_param_free(blocks[i]);
}

/* finish reads what a client still sends: close() would reset the connection, and with it the end of the answer. */
static void finish(FILE *in) {
  shutdown(fileno(in), SHUT_WR);
  for (int count = 0; count < 2 * largest_body && fgetc(in) != EOF;) ++count;
  fclose(in);
}

static volatile sig_atomic_t is_ending;

static void end(int signal) {
  (void)signal;
  is_ending = 1;
}

static void start_service(const char *config) {
  bind_table();
  pblock *parameters = host_param_create(2);
  host_param_add("config", config, parameters);
  if (rdm_init(parameters, NULL, NULL) != 0) {
    const char *error = host_param_find("error", parameters);
    fprintf(stderr, "host: %s: %s\n", config, error == NULL ? "the configuration is refused" : error);
    exit(1);
  }
  host_param_free(parameters);
}

static int listen_on(int port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in address = {AF_INET, htons((uint16_t)port), {htonl(INADDR_LOOPBACK)}, {0}};
  socklen_t size = sizeof address;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &(int){1}, sizeof(int));
  if (bind(listener, (struct sockaddr *)&address, size) != 0 || listen(listener, 64) != 0 ||
      getsockname(listener, (struct sockaddr *)&address, &size) != 0) {
    perror("host: cannot listen");
    exit(1);
  }
  printf("listening on 127.0.0.1:%d\n", ntohs(address.sin_port));
  fflush(stdout);
  return listener;
}

int main(int count, char **arguments) {
  if (count != 3) {
    fputs("usage: host CONFIG PORT\n", stderr);
    return 2;
  }
  signal(SIGPIPE, SIG_IGN);                                         /* a write to a client that has gone fails */
  sigaction(SIGTERM, &(struct sigaction){.sa_handler = end}, NULL); /* without SA_RESTART: accept() ends */
  start_service(arguments[1]);
  const int listener = listen_on(atoi(arguments[2]));
  while (!is_ending) {
    const int client = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
    if (client < 0) continue;
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &(struct timeval){10, 0}, sizeof(struct timeval));
    setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &(struct timeval){30, 0}, sizeof(struct timeval));
    FILE *in = fdopen(client, "r"), *out = fdopen(dup(client), "w");
    if (in != NULL && out != NULL) serve(in, out);
    if (out != NULL) fclose(out);
    if (in != NULL) finish(in);
  }
  close(listener);
  return 0;
}
