// Writes reply documents: compact (no white space between tags, as the file
// system writes them) or pretty-printed, one element per indented line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvfsim {

class XmlOut {
 public:
  explicit XmlOut(bool pretty) : pretty_(pretty) {}

  XmlOut& open(std::string_view name);
  XmlOut& close();
  XmlOut& empty(std::string_view name);                          // <name/>
  XmlOut& text(std::string_view name, std::string_view value);   // <name>value</name>
  XmlOut& number(std::string_view name, uint64_t value);
  XmlOut& signedNumber(std::string_view name, int64_t value);
  XmlOut& cdata(std::string_view name, std::string_view value);  // <name><![CDATA[value]]></name>
  // <name><tag1/><tag2/></name> on one line; <name></name> when there are none.
  XmlOut& tags(std::string_view name, const std::vector<std::string>& tags);
  XmlOut& result(int64_t value);                                 // <result value="N"/>

  // The document; every open element is closed first.
  std::string finish();

 private:
  void startLine();

  bool pretty_;
  std::string out_;
  std::vector<std::string> open_;
};

}  // namespace kvfsim
