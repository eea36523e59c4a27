#include "logReader.h"

#include <algorithm>
#include <cstring>

#include "common_cpp/qXML.h"
#include "velkor/logEscape.h"

namespace velkorreport {

namespace {

using QXML::XML_ElementInfo_s;

constexpr std::string_view kRunStart = "<velkor>";
constexpr std::string_view kRunEnd = "</velkor>";
constexpr std::string_view kArgvClose = "\" />";

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The text between `open` and `close` when `text` is exactly one such element.
bool between(std::string_view text, std::string_view open, std::string_view close, std::string_view* inner) {
  if (text.size() < open.size() + close.size() || !startsWith(text, open) || !endsWith(text, close)) return false;
  *inner = text.substr(open.size(), text.size() - open.size() - close.size());
  return true;
}

std::string_view contentOf(const XML_ElementInfo_s& element) {
  if (!element.contentStart || element.contentLength == 0) return {};
  return {element.contentStart, static_cast<size_t>(element.contentLength)};
}

// Calls `name` for each child element of `parent`, in order.
template <typename F>
void eachChild(const XML_ElementInfo_s& parent, F name) {
  if (!parent.contentStart || parent.contentLength == 0) return;
  const char* p = parent.contentStart;
  const char* end = parent.contentEnd;
  XML_ElementInfo_s child{};
  const char* tag;
  size_t length;
  while (p <= end && QXML::XML_GetNextTag(p, end, &child, &tag, &length) == 0) {
    if (length != 0) name(std::string_view(tag, length));
    p = child.elementEnd + 1;
  }
}

// The next element at p when it is named `name`.
bool nextElement(const char* p, const char* end, std::string_view name, XML_ElementInfo_s* element) {
  const char* tag;
  size_t length;
  if (p > end || QXML::XML_GetNextTag(p, end, element, &tag, &length) != 0) return false;
  return std::string_view(tag, length) == name && static_cast<size_t>(tag - p) == 1;
}

std::string_view attribute(XML_ElementInfo_s element, const char* name) {
  if (QXML::XML_GetTagAttribute(name, &element) != 0 || element.attrValueLength == 0) return {};
  return {element.attrValueStart, static_cast<size_t>(element.attrValueLength)};
}

// Sets `out` to an element's text or an attribute value with its references
// decoded; text without any keeps `out`'s room.
void assignDecoded(std::string& out, std::string_view text) {
  if (text.find('&') == std::string_view::npos) out.assign(text);
  else out = velkor::decodeLogText(text);
}

// "<startTime><CurrentTime time="..." timeValue="N" /></startTime>" and its
// endTime twin: the seconds and the time text.
bool parseTime(std::string_view text, std::string_view open, std::string_view close, LoggedTime* time) {
  std::string_view inner;
  if (!between(text, open, close, &inner) || inner.empty()) return false;
  XML_ElementInfo_s element{};
  if (!nextElement(inner.data(), inner.data() + inner.size() - 1, "CurrentTime", &element)) return false;
  std::string_view seconds = attribute(element, "timeValue");
  int64_t value;
  if (seconds.empty() || QXML::XML_UTF8ToSQUAD(seconds.data(), seconds.data() + seconds.size() - 1, &value, nullptr) != 0)
    return false;
  time->present = true;
  time->seconds = value;
  assignDecoded(time->text, attribute(element, "time"));
  return true;
}

// The program a description's first line names: "  velkor-batch - Validate ...".
std::string programOf(std::string_view line) {
  size_t start = line.find_first_not_of(' ');
  size_t dash = line.find(" - ");
  if (start == std::string_view::npos || dash == std::string_view::npos || dash <= start) return "";
  return velkor::decodeLogText(line.substr(start, dash - start));
}

}  // namespace

bool parseEntry(std::string_view text, Entry* entry) {
  constexpr std::string_view kOpen = "<entry><volume>", kVolumeEnd = "</volume><name>", kNameEnd = "</name><type>";
  constexpr std::string_view kFixed = "<action><fixed/></action>", kDeleted = "<actionTaken><deleted/></actionTaken>";
  if (!startsWith(text, kOpen) || !endsWith(text, "</entry>")) return false;
  // The volume and the name are read up to their end tags: a name may hold
  // any bytes, '<' included.
  size_t volumeEnd = text.find(kVolumeEnd, kOpen.size());
  if (volumeEnd == std::string_view::npos) return false;
  size_t nameStart = volumeEnd + kVolumeEnd.size();
  size_t nameEnd = text.find(kNameEnd, nameStart);
  if (nameEnd == std::string_view::npos) return false;
  assignDecoded(entry->volume, text.substr(kOpen.size(), volumeEnd - kOpen.size()));
  assignDecoded(entry->name, text.substr(nameStart, nameEnd - nameStart));

  const char* end = text.data() + text.size() - 1;
  XML_ElementInfo_s type{}, status{}, zid{};
  if (!nextElement(text.data() + nameEnd + kNameEnd.size() - 6, end, "type", &type) ||
      !nextElement(type.elementEnd + 1, end, "fileStatus", &status))
    return false;
  entry->type.clear();
  eachChild(type, [entry](std::string_view name) {
    if (!entry->type.empty()) entry->type += ' ';
    entry->type += name;
  });
  entry->problems.clear();
  eachChild(status, [entry](std::string_view name) { entry->problems.emplace_back(name); });

  std::string_view rest(status.elementEnd + 1, static_cast<size_t>(end - status.elementEnd));
  entry->fixed = startsWith(rest, kFixed);
  if (entry->fixed) rest.remove_prefix(kFixed.size());
  entry->deleted = startsWith(rest, kDeleted);
  if (entry->deleted) rest.remove_prefix(kDeleted.size());
  entry->error.clear();
  constexpr std::string_view kError = "<error>", kErrorEnd = "</error>";
  if (startsWith(rest, kError)) {
    const size_t errorEnd = rest.find(kErrorEnd);
    if (errorEnd == std::string_view::npos) return false;
    assignDecoded(entry->error, rest.substr(kError.size(), errorEnd - kError.size()));
    rest.remove_prefix(errorEnd + kErrorEnd.size());
  }
  entry->zid.clear();
  if (nextElement(rest.data(), end, "zid", &zid)) assignDecoded(entry->zid, contentOf(zid));
  return true;
}

void LogReader::begin(const std::string& source) {
  source_ = source;
  lineNumber_ = 0;
  partial_.clear();
  partialTooLong_ = false;
}

void LogReader::feed(const char* data, size_t size) {
  const char* p = data;
  const char* end = data + size;
  while (p < end) {
    const char* newline = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
    const char* stop = newline ? newline : end;
    size_t length = static_cast<size_t>(stop - p);
    if (!partialTooLong_ && partial_.size() + length > kMaxElement) {
      // Past the longest line read: its start is kept for the warning only.
      partialTooLong_ = true;
      tooLongStart_ = lineNumber_ + 1;
      partial_.append(p, std::min(length, size_t(80)));
      partial_.resize(std::min(partial_.size(), size_t(80)));
    } else if (!partialTooLong_ && (newline == nullptr || !partial_.empty())) {
      partial_.append(p, length);
    }
    if (!newline) break;
    if (partialTooLong_) {
      ++lineNumber_;
      skipLongLine();
      partialTooLong_ = false;
    } else if (partial_.empty()) {
      line(std::string_view(p, length));
    } else {
      line(partial_);
    }
    partial_.clear();
    p = newline + 1;
  }
}

void LogReader::finish() {
  if (partialTooLong_) {
    ++lineNumber_;
    skipLongLine();
  } else if (!partial_.empty()) {
    std::string last;
    last.swap(partial_);
    line(last);
  }
  partial_.clear();
  partialTooLong_ = false;
  if (state_ != State::outside) endRun();
}

void LogReader::line(std::string_view text) {
  ++lineNumber_;
  if (text == kRunStart) {
    // An element spread over lines is still open: this line may be its text.
    uint64_t openLine = unfinishedElement();
    if (state_ != State::outside) endRun();
    startRun();
    run_.beganInside = openLine;
    return;
  }
  if (pending_ != Pending::none && pending_ != Pending::argv && continuePending(text)) {
    if (closes(pending_, text)) completePending();
    return;
  }
  switch (state_) {
    case State::outside:
      if (!text.empty()) skip(lineNumber_, 1, text);
      break;
    case State::header:
      // The description's lines are the run's own; the command line follows.
      if (text == "<CommandLine>") state_ = State::commandLine;
      else if (text == "</description>") inDescription_ = false;
      else if (text == "<description>") inDescription_ = true;
      else if (inDescription_ && startsWith(text, velkor::kPassLineStart)) velkor::readPassLine(text, &run_.pass);
      else if (inDescription_ && run_.program.empty()) run_.program = programOf(text);
      else if (!inDescription_) {
        state_ = State::body;
        bodyLine(text);
      }
      break;
    case State::commandLine:
      commandLineLine(text);
      break;
    case State::body:
      bodyLine(text);
      break;
  }
}

void LogReader::startRun() {
  run_ = Run();
  run_.listSkipped = listSkipped_;
  run_.index = nextIndex_++;
  run_.source = source_;
  run_.line = lineNumber_;
  state_ = State::header;
  inDescription_ = false;
}

void LogReader::endRun() {
  if (state_ == State::commandLine) {
    completePending();
    run_.deriveOperation();
  } else {
    dropPending();
  }
  state_ = State::outside;
  sink_.runEnd(run_);
}

void LogReader::commandLineLine(std::string_view text) {
  // An argument's line starts with the next index; a value may hold newlines,
  // so any other line before the block's end continues the value.
  std::string next = " <argv index=\"" + std::to_string(run_.argv.size() + (pending_ == Pending::argv ? 1 : 0)) +
                     "\" argv=\"";
  if (startsWith(text, next)) {
    completePending();
    pending_ = Pending::argv;
    pendingText_.assign(text.substr(next.size()));
    pendingLine_ = lineNumber_;
    pendingLines_ = 1;
  } else if (text == "</CommandLine>") {
    completePending();
    run_.deriveOperation();
    state_ = State::body;
  } else if (pending_ == Pending::argv) {
    continuePending(text);
  } else {
    // The block is not closed: what follows is read as the run's body.
    completePending();
    run_.deriveOperation();
    state_ = State::body;
    bodyLine(text);
  }
}

void LogReader::bodyLine(std::string_view text) {
  std::string_view inner;
  if (text.empty()) return;
  if (text == kRunEnd) {
    run_.closed = true;
    endRun();
  } else if (startsWith(text, "<entry>")) {
    pending_ = Pending::entry;
  } else if (startsWith(text, "<error>")) {
    pending_ = Pending::error;
  } else if (startsWith(text, "<msg>")) {
    pending_ = Pending::msg;
  } else if (between(text, "<finishStatus>", "</finishStatus>", &inner)) {
    run_.hasFinishStatus = true;
    assignDecoded(run_.finishStatus, inner);
  } else if (!parseTime(text, "<startTime>", "</startTime>", &run_.start) &&
             !parseTime(text, "<endTime>", "</endTime>", &run_.end)) {
    skip(lineNumber_, 1, text);
  }
  if (pending_ == Pending::none) return;
  pendingText_.assign(text);
  pendingLine_ = lineNumber_;
  pendingLines_ = 1;
  if (closes(pending_, text)) completePending();
}

bool LogReader::closes(Pending kind, std::string_view text) const {
  switch (kind) {
    case Pending::entry: return endsWith(text, "</entry>");
    case Pending::error: return endsWith(text, "</error>");
    case Pending::msg: return endsWith(text, "</msg>");
    default: return false;
  }
}

uint64_t LogReader::unfinishedElement() const {
  // An argument stays pending until the next line, ended or not.
  if (pending_ == Pending::none || (pending_ == Pending::argv && endsWith(pendingText_, kArgvClose))) return 0;
  return pendingLine_;
}

bool LogReader::continuePending(std::string_view text) {
  if (pendingText_.size() + text.size() + 1 > kMaxElement) {
    skipTooLong(pendingLine_, pendingLines_, pendingText_);
    pending_ = Pending::none;
    pendingText_.clear();
    return false;
  }
  pendingText_ += '\n';
  pendingText_.append(text);
  ++pendingLines_;
  return true;
}

void LogReader::completePending() {
  std::string_view text = pendingText_, inner;
  switch (pending_) {
    case Pending::none:
      return;
    case Pending::argv:
      if (endsWith(text, kArgvClose)) text.remove_suffix(kArgvClose.size());
      run_.argv.push_back(velkor::decodeLogText(text));
      break;
    case Pending::entry:
      if (parseEntry(text, &entry_)) {
        entry_.line = pendingLine_;
        run_.add(entry_);
        sink_.entry(run_, entry_);
      } else {
        skip(pendingLine_, pendingLines_, text);
      }
      break;
    case Pending::error:
      if (between(text, "<error>", "</error>", &inner)) run_.errors.push_back(velkor::decodeLogText(inner));
      break;
    case Pending::msg:
      if (between(text, "<msg>", "</msg>", &inner)) run_.messages.push_back(velkor::decodeLogText(inner));
      break;
  }
  pending_ = Pending::none;
  pendingText_.clear();
}

void LogReader::dropPending() {
  if (pending_ == Pending::none) return;
  skip(pendingLine_, pendingLines_, pendingText_);
  pending_ = Pending::none;
  pendingText_.clear();
}

void LogReader::skipLongLine() {
  if (pending_ == Pending::none || pending_ == Pending::argv) {
    dropPending();
    skipTooLong(tooLongStart_, 1, partial_);
    return;
  }
  // The line continues the element spread over lines: that element is too long.
  skipTooLong(pendingLine_, pendingLines_ + 1, pendingText_);
  pending_ = Pending::none;
  pendingText_.clear();
}

void LogReader::skipTooLong(uint64_t line, uint64_t lines, std::string_view text) {
  if (state_ != State::outside && run_.tooLong == 0) run_.tooLong = line;
  skip(line, lines, text);
}

void LogReader::skip(uint64_t line, uint64_t lines, std::string_view text) {
  skippedLines_ += lines;
  sink_.skipped(source_, line, lines, text);
}

}  // namespace velkorreport
