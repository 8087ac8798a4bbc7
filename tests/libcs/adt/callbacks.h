// SPDX-License-Identifier: MIT
/// Procedures that containers call.
#ifndef TESTS_LIBCS_ADT_CALLBACKS_H
#define TESTS_LIBCS_ADT_CALLBACKS_H

namespace rdm::support {

/// copy_nothing copies an item to null, and match_everything finds that any two are equal.
inline void *copy_nothing(const void *) { return nullptr; }
inline int match_everything(const void *, const void *) { return 0; }

}  // namespace rdm::support

#endif
