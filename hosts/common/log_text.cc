#include "hosts/common/log_text.h"

namespace hosts {

std::string log_text(std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      line.append({'\\', c});
    else if (c == '\n' || c == '\r' || c == '\t')
      line.append({'\\', c == '\n' ? 'n' : (c == '\r' ? 'r' : 't')});
    else if (byte < ' ' || byte >= 0x7f)
      line.append({'\\', 'x', digits[byte >> 4], digits[byte & 15]});
    else
      line.push_back(c);
  }
  return line;
}

}  // namespace hosts
