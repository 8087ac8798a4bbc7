// SPDX-License-Identifier: MIT
/// The URLs of documents.
#ifndef RDMGATHER_DOCUMENT_URL_H
#define RDMGATHER_DOCUMENT_URL_H

#include <string>
#include <string_view>

namespace rdm::gather {

/// fault_of_base returns the reason why a text cannot be the URL of the directory, or an empty text. Names are appended
/// to it, so that it has no query and no fragment.
std::string fault_of_base(const std::string &url);

/// with_slash returns a base URL that ends with a slash.
std::string with_slash(std::string url);

/// encoded_path returns a path with each byte escaped (%2A) that is neither a slash nor unreserved in URLs. It contains
/// no white space. Different paths stay different.
std::string encoded_path(std::string_view path);

}  // namespace rdm::gather

#endif
