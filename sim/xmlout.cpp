#include "xmlout.h"

namespace kvfsim {

void XmlOut::startLine() {
  if (!pretty_) return;
  if (!out_.empty()) out_ += '\n';
  out_.append(open_.size() * 2, ' ');
}

XmlOut& XmlOut::open(std::string_view name) {
  startLine();
  out_ += '<';
  out_ += name;
  out_ += '>';
  open_.emplace_back(name);
  return *this;
}

XmlOut& XmlOut::close() {
  std::string name = std::move(open_.back());
  open_.pop_back();
  startLine();
  out_ += "</" + name + ">";
  return *this;
}

XmlOut& XmlOut::empty(std::string_view name) {
  startLine();
  out_ += '<';
  out_ += name;
  out_ += "/>";
  return *this;
}

XmlOut& XmlOut::text(std::string_view name, std::string_view value) {
  startLine();
  out_ += '<';
  out_ += name;
  out_ += '>';
  out_ += value;
  out_ += "</";
  out_ += name;
  out_ += '>';
  return *this;
}

XmlOut& XmlOut::number(std::string_view name, uint64_t value) { return text(name, std::to_string(value)); }

XmlOut& XmlOut::signedNumber(std::string_view name, int64_t value) { return text(name, std::to_string(value)); }

XmlOut& XmlOut::cdata(std::string_view name, std::string_view value) {
  return text(name, "<![CDATA[" + std::string(value) + "]]>");
}

XmlOut& XmlOut::tags(std::string_view name, const std::vector<std::string>& tags) {
  std::string inner;
  for (const std::string& t : tags) inner += "<" + t + "/>";
  return text(name, inner);
}

XmlOut& XmlOut::result(int64_t value) {
  startLine();
  out_ += "<result value=\"" + std::to_string(value) + "\"/>";
  return *this;
}

std::string XmlOut::finish() {
  while (!open_.empty()) close();
  if (pretty_) out_ += '\n';
  return std::move(out_);
}

}  // namespace kvfsim
