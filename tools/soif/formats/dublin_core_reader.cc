// SPDX-License-Identifier: MIT
#include <algorithm>
#include <map>

#include "catalog/os/error.h"
#include "qxapi/words.h"
#include "tools/soif/formats/dublin_core.h"
#include "tools/soif/formats/xml_events.h"
#include "tools/soif/marked_text.h"

namespace rdm::soif_tool {
namespace {

constexpr std::string_view oai_space = "http://www.openarchives.org/OAI/2.0/";
constexpr std::string_view xml_space = "http://www.w3.org/XML/1998/namespace";

/// Record is what is known of a record.
struct Record {
  std::vector<Attribute> values;  // of its elements, by attribute; not numbered yet
  std::string identifier;         // of its header, empty without one
  bool is_deleted = false;
  std::string fault;
};

/// description_of makes the description of a record.
class Maker {
 public:
  Maker(const Conversion &conversion, const NameMap &map) : conversion_(conversion), map_(map) {}

  Description description_of(const Record &record) const {
    Description description{conversion_.template_name, "", {}};
    std::vector<Attribute> values = record.values;
    take_url(description, values, record);
    std::map<std::string, int> count, number;
    for (const Attribute &value : values) ++count[value.name];
    for (Attribute &value : values) {
      if (count[value.name] > 1) value.name += "-" + std::to_string(++number[value.name]);
      description.attributes.push_back(std::move(value));
    }
    return description;
  }

 private:
  /// take_url moves the value that is the URL to the description, and makes attributes of the others.
  void take_url(Description &description, std::vector<Attribute> &values, const Record &record) const {
    const auto is_identifier = [](const Attribute &value) { return value.name == url_name; };
    const auto is_url = [&](const Attribute &value) {
      return is_identifier(value) && value.value.find("://") != std::string::npos;
    };
    auto chosen = std::find_if(values.begin(), values.end(), is_url);
    const bool takes_header = !record.identifier.empty() && (conversion_.oai_identifiers || chosen == values.end());
    if (chosen == values.end()) chosen = std::find_if(values.begin(), values.end(), is_identifier);
    if (takes_header) {
      description.url = record.identifier;
    } else if (chosen != values.end()) {
      description.url = chosen->value;
      values.erase(chosen);
    }
    const std::string name = map_.name_of(url_name);
    for (Attribute &value : values)
      if (is_identifier(value)) value.name = name;
  }

  const Conversion &conversion_;
  const NameMap &map_;
};

/// Window holds the bytes of the input from an offset on, so that rejected records can be kept.
class Window {
 public:
  explicit Window(const ByteSource &source) : source_(source) {}
  void add(std::string_view bytes, int64_t line) {
    bytes_ += bytes;
    source_.require_room(bytes_.size(), line);
  }
  std::string_view between(int64_t start, int64_t end) const {
    return std::string_view(bytes_).substr(static_cast<size_t>(start - start_), static_cast<size_t>(end - start));
  }
  std::string_view from(int64_t start) const {
    return std::string_view(bytes_).substr(static_cast<size_t>(start - start_));
  }
  void drop(int64_t end) {
    bytes_.erase(0, static_cast<size_t>(end - start_));
    start_ = end;
  }

 private:
  const ByteSource &source_;
  std::string bytes_;
  int64_t start_ = 0;
};

/// RecordReader passes the records of a document to a taker. What a record is, and what its elements mean, says a
/// class that derives from it.
class RecordReader : public XmlHandler {
 public:
  RecordReader(ByteSource &source, const Conversion &conversion, Taker &taker)
      : conversion_(conversion),
        map_(dublin_core_map(conversion.map)),
        taker_(taker),
        source_(source),
        window_(source) {}

  void read() {
    const XmlFault fault = read_xml(source_, *this);
    if (!fault.reason.empty())
      taker_.reject(fault.place, fault.reason + "; the rest is not read", is_open() ? window_.from(record_start_) : "");
    else if (has_begun_)
      taker_.end(window_.from(last_end_));
  }

  void start(const XmlElement &element, int64_t offset, const Place &place) override {
    starts_.push_back({offset, place});
    if (value_depth_ != 0) return;
    started(element);
  }

  void end(int64_t offset) override {
    const size_t depth = starts_.size();
    if (depth == value_depth_) {
      value_depth_ = 0;
      ended(is_preserved_ ? value_ : std::string(trim(value_, " \t\n\r")));
    } else if (depth == record_depth_) {
      finish(offset);
    }
    starts_.pop_back();
  }

  void text(std::string_view text) override {
    if (value_depth_ != 0) value_ += text;
  }

  void reads(std::string_view bytes) override {
    if (has_begun_ && !is_open()) window_.drop(last_end_);
    window_.add(bytes, starts_.empty() ? 1 : starts_.back().place.line);
  }

 protected:
  /// started is called for each element that is not part of a value, ended at the end of a value.
  virtual void started(const XmlElement &element) = 0;
  virtual void ended(const std::string &value) = 0;

  bool is_open() const { return record_depth_ != 0; }
  size_t depth() const { return starts_.size(); }
  size_t record_depth() const { return record_depth_; }
  /// open begins a record with the open element at a depth. An element in which a record has ended is none.
  void open(size_t depth) {
    if (starts_[depth - 1].offset < last_end_) return;
    record_depth_ = depth;
    record_ = {};
    record_start_ = starts_[depth - 1].offset;
    if (!has_begun_) taker_.begin(window_.between(0, record_start_));
    has_begun_ = true;
  }
  /// collect has the text of the element that was started collected.
  void collect(const XmlElement &element) {
    value_depth_ = depth();
    value_.clear();
    is_preserved_ = element.attribute(xml_space, "space") == "preserve";
  }
  /// add adds a value of Dublin Core to the record.
  void add(const std::string &element, const std::string &value) {
    if (value.empty()) return;
    std::optional<std::string> bytes = unmarked(value);
    if (!bytes)
      record_.fault = "dc:" + element + " is not base64";
    else
      record_.values.push_back({map_.attribute_of(element), std::move(*bytes)});
  }
  Place place() const { return starts_.back().place; }

  const Conversion &conversion_;
  const NameMap map_;
  Taker &taker_;
  Record record_;

 private:
  struct Start {
    int64_t offset;
    Place place;
  };

  void finish(int64_t end) {
    record_depth_ = 0;
    last_end_ = end;
    const Place place = starts_.back().place;
    const std::string_view bytes = window_.between(record_start_, end);
    if (!record_.fault.empty()) return taker_.reject(place, record_.fault, bytes);
    if (record_.is_deleted) return remove(place, bytes);
    Description description = Maker(conversion_, map_).description_of(record_);
    taker_.take(description, place, bytes);
  }

  /// remove passes on the identifier of a deleted record. One with white space could look like several in a list.
  void remove(const Place &place, std::string_view bytes) {
    const std::string &identifier = record_.identifier;
    if (identifier.empty() || identifier.find_first_of(" \t\n\r") != std::string::npos)
      return taker_.reject(place, "a deleted record without an identifier", bytes);
    taker_.remove(identifier, place);
  }

  ByteSource &source_;
  Window window_;
  std::vector<Start> starts_;  // of the open elements
  size_t record_depth_ = 0, value_depth_ = 0;
  int64_t record_start_ = 0, last_end_ = 0;
  bool has_begun_ = false, is_preserved_ = false;
  std::string value_;
};

/// DublinCoreReader takes the parent of an element of Dublin Core for a record.
class DublinCoreReader : public RecordReader {
 public:
  using RecordReader::RecordReader;

 private:
  void started(const XmlElement &element) override {
    if (element.name.space != dublin_core_space || depth() < 2) return;
    if (!is_open()) open(depth() - 1);
    if (record_depth() != depth() - 1) return;
    element_ = element.name.local;
    collect(element);
  }
  void ended(const std::string &value) override { add(element_, value); }

  std::string element_;
};

/// OaiReader reads the records of an answer.
class OaiReader : public RecordReader {
 public:
  OaiReader(ByteSource &source, const Conversion &conversion, Taker &taker)
      : RecordReader(source, conversion, taker), input_(source.name()) {}

 private:
  void started(const XmlElement &element) override {
    const auto [space, local] = element.name;
    element_ = local;
    is_dublin_core_ = space == dublin_core_space;
    if (is_dublin_core_) {
      if (is_open()) collect(element);
    } else if (space == oai_space) {
      started_oai(element);
    }
  }

  void started_oai(const XmlElement &element) {
    if (element_ == "record" && !is_open()) return open(depth());
    if (element_ == "header" && is_open()) record_.is_deleted = element.attribute("", "status") == "deleted";
    const bool is_field = element_ == "identifier" || element_ == "datestamp" || element_ == "setSpec";
    if (element_ == "error") code_ = element.attribute("", "code");
    if ((is_field && is_open()) || element_ == "error" || element_ == "resumptionToken") collect(element);
  }

  void ended(const std::string &value) override {
    if (is_dublin_core_) return add(element_, value);
    if (element_ == "error") throw catalog::Failure(input_ + ": the answer is an error: " + code_ + ": " + value);
    if (value.empty()) return;
    if (element_ == "resumptionToken")
      return taker_.note(place(), "the list has more records: resumptionToken " + value);
    if (element_ == "identifier") record_.identifier = value;
    const std::string name = element_ == "setSpec" ? "oai-set" : "oai-" + element_;
    record_.values.push_back({name, value});
  }

  std::string input_, element_, code_;
  bool is_dublin_core_ = false;
};

}  // namespace

void read_dc(ByteSource &source, const Conversion &conversion, Taker &taker) {
  DublinCoreReader(source, conversion, taker).read();
}

void read_oai(ByteSource &source, const Conversion &conversion, Taker &taker) {
  OaiReader(source, conversion, taker).read();
}

}  // namespace rdm::soif_tool
