#include "tools/minidba/update.h"
#include "tools/minidba/verbs.h"

namespace minidba {

int update(const Options &options, const Console &console) {
  update(options.database, console.input, console.out, console.errors);
  return exit_done;
}

}  // namespace minidba
