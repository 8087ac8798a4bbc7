/// The verb index: the sorted index that the service searches.
#ifndef MINIDBA_INDEX_H
#define MINIDBA_INDEX_H

#include <iosfwd>
#include <string>

namespace minidba {

/// index writes the index of a database to the file `index`, and the number of its entries to `out`.
void index(const std::string &database, const std::string &index, std::ostream &out);

}  // namespace minidba

#endif
