#include <libcs/soif.h>

int main(void) {
  SOIF *object;
  soif_create("DOCUMENT", "http://example.org/", 0, &object);
  soif_insert(object, "title", "An example", 10);

  int stream = soif_print_init_file(stdout);
  soif_print(stream, object);
  soif_print_finish(stream);
  soif_free(object);
  return 0;
}
