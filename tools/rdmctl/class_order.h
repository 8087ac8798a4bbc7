// SPDX-License-Identifier: MIT
/// Checks the classes of a taxonomy description.
#ifndef RDMCTL_CLASS_ORDER_H
#define RDMCTL_CLASS_ORDER_H

#include <string>
#include <vector>

#include "catalog/stream/soif_stream.h"

namespace rdm::rdmctl {

/// class_faults returns a line, "NAME:LINE: error: ...", for each class that the loader omits, with the reason, and for
/// each id that occurs twice. NAME is the name of the stream.
std::vector<std::string> class_faults(catalog::SoifStream &stream);

}  // namespace rdm::rdmctl

#endif
