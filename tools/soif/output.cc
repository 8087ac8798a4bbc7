// SPDX-License-Identifier: MIT
#include "tools/soif/output.h"

#include <ostream>

namespace rdm::soif_tool {

Output::Output(const Options &options, const Console &console) : console_(console) {
  if (!options.output.empty() && options.output != "-") file_.emplace(options.output);
}

void Output::write(std::string_view bytes) {
  if (file_)
    file_->write(bytes);
  else
    console_.out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void Output::finish() {
  if (!file_) {
    console_.out.flush();
    return;
  }
  file_->finish();
  file_->commit();
}

}  // namespace rdm::soif_tool
