#include "trace_format.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "result_names.h"

namespace prhost {
namespace {

void AppendPadded(std::string* out, const std::string& body, bool left, char pad, size_t width) {
  if (body.size() >= width) {
    out->append(body);
    return;
  }
  size_t fill = width - body.size();
  if (left) {
    out->append(body);
    out->append(fill, ' ');
  } else if (pad == '0' && !body.empty() && body[0] == '-') {
    // Zero padding goes between the sign and the digits, as printf does.
    out->push_back('-');
    out->append(fill, '0');
    out->append(body, 1);
  } else {
    out->append(fill, pad);
    out->append(body);
  }
}

}  // namespace

FormattedLine FormatTrace(const char* format, va_list args) {
  FormattedLine line;
  if (format == nullptr) {
    line.text = "(null format)";
    line.well_formed = false;
    return line;
  }
  std::string& out = line.text;
  const char* p = format;
  while (*p != '\0') {
    const char* percent = std::strchr(p, '%');
    if (percent == nullptr) {
      out.append(p);
      break;
    }
    out.append(p, percent);
    const char* conversion = percent + 1;
    if (*conversion == '%') {
      out.push_back('%');
      p = conversion + 1;
      continue;
    }
    if (std::strncmp(conversion, "terr", 4) == 0) {
      out.append(FormatResult(static_cast<tERROR>(va_arg(args, int))));
      p = conversion + 4;
      continue;
    }
    bool left = false;
    char pad = ' ';
    for (; *conversion == '-' || *conversion == '0'; ++conversion) {
      if (*conversion == '-') left = true;
      else pad = '0';
    }
    size_t width = 0;
    for (; *conversion >= '0' && *conversion <= '9'; ++conversion) {
      width = width * 10 + static_cast<size_t>(*conversion - '0');
    }
    if (left) pad = ' ';
    char buf[32];
    std::string body;
    switch (*conversion) {
      case 's': {
        const char* s = va_arg(args, const char*);
        body = s == nullptr ? "(null)" : s;
        break;
      }
      case 'd':
        std::snprintf(buf, sizeof buf, "%d", va_arg(args, int));
        body = buf;
        break;
      case 'u':
        std::snprintf(buf, sizeof buf, "%u", va_arg(args, unsigned));
        body = buf;
        break;
      case 'x':
        std::snprintf(buf, sizeof buf, "%x", va_arg(args, unsigned));
        body = buf;
        break;
      default:
        // Unknown conversion: its argument type is unknown too, so nothing
        // more can be consumed.
        out.append(percent);
        line.well_formed = false;
        return line;
    }
    AppendPadded(&out, body, left, pad, width);
    p = conversion + 1;
  }
  return line;
}

FormattedLine FormatTraceV(const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormattedLine line = FormatTrace(format, args);
  va_end(args);
  return line;
}

}  // namespace prhost
