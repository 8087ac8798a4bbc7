// SPDX-License-Identifier: MIT
#include "tools/soif/soif_reader.h"

#include "libcs/soif/grammar.h"
#include "tools/soif/mend.h"

namespace rdm::soif_tool {
namespace {

using catalog::SoifStream;

/// A larger part of a stream is not mended, and rejected without its bytes.
constexpr int64_t largest_part = 64 << 20;

class SoifReader {
 public:
  SoifReader(SoifStream &stream, Taker &taker, tools::Progress &progress, Mending mending)
      : stream_(stream), taker_(taker), progress_(progress), mending_(mending) {}

  void read() {
    while (std::optional<SoifStream::Item> item = stream_.next()) {
      settle(item->offset);
      progress_.advance(1, item->end - item->offset);
      if (item->object) {
        pending_ = Pending{description_of(*item->object), item->offset, item->end};
      } else {
        refuse(*item);
        end_ = item->end;
      }
    }
    settle(stream_.size());
  }

 private:
  /// Pending is an object that the parser takes.
  struct Pending {
    Description description;
    int64_t offset, end;
  };

  /// settle decides on the pending object, and rejects the text after it up to an offset.
  void settle(int64_t offset) {
    if (pending_ && !mend_pending(offset)) {
      taker_.take(pending_->description, place_of(pending_->offset), "");
      end_ = pending_->end;
    }
    pending_.reset();
    between(offset);
  }

  /// mend_pending returns true if the pending object and the text after it are one object with wrong counts.
  bool mend_pending(int64_t until) {
    if (mending_ == Mending::none || until - pending_->offset > largest_part) return false;
    const std::string text = stream_.text_between(pending_->offset, until);
    if (!is_suspect(text)) return false;
    std::optional<Mended> mended = mend(text);
    if (!mended || mended->corrections.empty()) return false;
    correct(*mended, pending_->offset, text);
    end_ = until;
    return true;
  }

  /// is_suspect returns true if text follows the brace of the pending object, which is not at the start of a line, or
  /// if a value of the object ends within an attribute.
  bool is_suspect(std::string_view text) const {
    const auto size = static_cast<size_t>(pending_->end - pending_->offset);
    const bool is_followed = text.find_first_not_of(soif::white_space, size) != std::string_view::npos;
    if (is_followed && !text.substr(0, size).ends_with("\n}")) return true;
    const std::string_view object = text.substr(0, size);
    bool is_found = false;
    if (const auto view = catalog::ObjectView::read(object))
      view->each(
          [&](std::string_view, std::string_view value) { is_found = is_found || ends_within_head(object, value); });
    return is_found;
  }

  /// between rejects the text up to an offset, which belongs to no object.
  void between(int64_t offset) {
    for (int64_t start = end_; start < offset; start += largest_part) {
      const std::string text = stream_.text_between(start, std::min(start + largest_part, offset));
      const size_t first = text.find_first_not_of(soif::white_space);
      if (first != std::string::npos)
        taker_.reject(place_of(start + static_cast<int64_t>(first)), "this text belongs to no object",
                      std::string_view(text).substr(first));
    }
  }

  Place place_of(int64_t offset) {
    const auto [line, column] = stream_.place_of(offset);
    return {line, column};
  }

  std::string text_of(const SoifStream::Item &item) const {
    return stream_.text_between(item.offset, std::min(item.end, item.offset + largest_part));
  }

  void refuse(const SoifStream::Item &item) {
    const std::string text = text_of(item);
    std::optional<Mended> mended;
    if (item.end - item.offset <= largest_part) mended = mend(text);
    // The reader of streams and mend may disagree on a text that needs no correction.
    if (!mended || mended->corrections.empty()) return taker_.reject(place_of(item.offset), item.reason, text);
    correct(*mended, item.offset, text);
  }

  /// correct reports or takes an object that needs corrections. `text` begins at an offset.
  void correct(Mended &mended, int64_t offset, std::string_view text) {
    if (mending_ == Mending::apply) return taker_.take(mended.description, place_of(offset), text);
    for (const Correction &correction : mended.corrections) {
      taker_.reject(place_of(offset + static_cast<int64_t>(correction.offset)), correction.words, text);
      if (mending_ == Mending::none) return;
      text = {};
    }
  }

  SoifStream &stream_;
  Taker &taker_;
  tools::Progress &progress_;
  Mending mending_;
  std::optional<Pending> pending_;
  int64_t end_ = 0;  // of what was taken or rejected last
};

}  // namespace

void read_soif(SoifStream &stream, Taker &taker, tools::Progress &progress, Mending mending) {
  SoifReader(stream, taker, progress, mending).read();
}

}  // namespace rdm::soif_tool
