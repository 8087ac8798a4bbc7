// SPDX-License-Identifier: MIT
// The code of Asio that depends on no template parameter: BOOST_ASIO_SEPARATE_COMPILATION keeps it out of other
// sources.
#include <boost/asio/impl/src.hpp>
