// text.cpp - files read whole and text split into lines and words.
#include "text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace nexcfg {

bool ReadFile(const std::string &path, std::string *text) {
  text->clear();
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[65536];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) != 0;) {
    if (n > 0)
      text->append(buffer, static_cast<size_t>(n));
    else if (errno != EINTR)
      break;
  }
  close(fd);
  return true;
}

std::string ReadText(const std::string &path) {
  std::string text;
  (void)ReadFile(path, &text);
  return text;
}

std::vector<std::string> SplitText(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    size_t end = text.find(separator);
    pieces.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return pieces;
}

bool Words::Next(std::string *word) {
  constexpr std::string_view kBlanks = " \t\n\v\f\r";
  size_t start = rest_.find_first_not_of(kBlanks);
  if (start == std::string_view::npos) {
    rest_ = {};
    return false;
  }
  rest_.remove_prefix(start);
  size_t end = std::min(rest_.find_first_of(kBlanks), rest_.size());
  word->assign(rest_.substr(0, end));
  rest_.remove_prefix(end);
  return true;
}

}  // namespace nexcfg
