// SPDX-License-Identifier: MIT
/// What a PDF says about itself, by the programs of poppler.
#ifndef RDMGATHER_ABOUT_PDF_H
#define RDMGATHER_ABOUT_PDF_H

#include "tools/rdmgather/about.h"

namespace rdm::gather {

/// about_pdf takes title and author of an open file from pdfinfo, and the description from the first pages, by
/// pdftotext. What a missing program, or one that fails or needs too long, would say stays empty.
About about_pdf(int descriptor);

}  // namespace rdm::gather

#endif
