// SPDX-License-Identifier: MIT
/// Descriptions as the rows of a table, one column an attribute.
///
/// The first row names the columns: template, URL and each attribute, also each numbered instance; an attribute that a
/// description has twice has two columns of one name. An empty cell is no attribute. A text that is not UTF-8 is
/// "base64:" and base64. The columns of template and URL are "template" and "url" or, if there are attributes of these
/// names, "@template" and "@url".
#ifndef SOIF_FORMATS_TABLE_H
#define SOIF_FORMATS_TABLE_H

#include "tools/soif/conversion.h"

namespace rdm::soif_tool {

/// The readers throw a Failure if the first row is damaged or names no column of the URL.
void read_csv(ByteSource &source, const Conversion &conversion, Taker &taker);
void read_tsv(ByteSource &source, const Conversion &conversion, Taker &taker);

/// The writers leave out headers of messages and exports, and attributes with empty values. A column
/// that the survey has found follows that of the attribute before.
std::unique_ptr<Writer> csv_writer(Output &output, const Conversion &conversion);
std::unique_ptr<Writer> tsv_writer(Output &output, const Conversion &conversion);

}  // namespace rdm::soif_tool

#endif
