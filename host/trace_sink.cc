#include "trace_sink.h"

#include <ostream>

#include "trace_format.h"

namespace prhost {

tERROR TraceSink::Write(const void* store, uint32_t level, const char* format, va_list args) {
  if (level > level_limit_) return kOk;
  FormattedLine formatted = FormatTrace(format, args);
  TraceLine line{level, store, std::move(formatted.text), formatted.well_formed};
  std::function<void(const TraceLine&)> observer;
  {
    std::lock_guard lock(mu_);
    if (echo_ != TraceEcho::kNone) {
      std::FILE* to = echo_ == TraceEcho::kStderr ? stderr : stdout;
      std::fprintf(to, "%s\n", Describe(line).c_str());
    }
    lines_.push_back(line);
    observer = observer_;
  }
  if (observer) observer(line);
  return kOk;
}

void TraceSink::set_observer(std::function<void(const TraceLine&)> observer) {
  std::lock_guard lock(mu_);
  observer_ = std::move(observer);
}

void TraceSink::set_echo(TraceEcho echo) {
  std::lock_guard lock(mu_);
  echo_ = echo;
}

std::vector<TraceLine> TraceSink::Lines() const {
  std::lock_guard lock(mu_);
  return lines_;
}

std::vector<TraceLine> TraceSink::LinesFor(const void* store) const {
  std::lock_guard lock(mu_);
  std::vector<TraceLine> out;
  for (const TraceLine& line : lines_) {
    if (line.store == store) out.push_back(line);
  }
  return out;
}

std::vector<std::string> TraceSink::TextsFor(const void* store) const {
  std::lock_guard lock(mu_);
  std::vector<std::string> out;
  for (const TraceLine& line : lines_) {
    if (line.store == store) out.push_back(line.text);
  }
  return out;
}

size_t TraceSink::size() const {
  std::lock_guard lock(mu_);
  return lines_.size();
}

size_t TraceSink::malformed() const {
  std::lock_guard lock(mu_);
  size_t n = 0;
  for (const TraceLine& line : lines_) n += line.well_formed ? 0 : 1;
  return n;
}

std::vector<TraceLine> TraceSink::Take() {
  std::lock_guard lock(mu_);
  std::vector<TraceLine> out;
  out.swap(lines_);
  return out;
}

void TraceSink::Clear() {
  std::lock_guard lock(mu_);
  lines_.clear();
}

std::string TraceSink::Describe(const TraceLine& line) {
  char head[64];
  std::snprintf(head, sizeof head, "[%u %p] ", line.level, line.store);
  std::string out = head;
  // Tabs separate the component tag; show them so that lines stay on one row.
  for (char c : line.text) {
    if (c == '\t') out += "\\t";
    else out.push_back(c);
  }
  if (!line.well_formed) out += "  <malformed format>";
  return out;
}

std::ostream& operator<<(std::ostream& os, const TraceLine& line) { return os << TraceSink::Describe(line); }

}  // namespace prhost
