// text.h - files read whole and text split into lines and words, for the
// tool's readers of the files it examines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nexcfg {

// Reads the file at path whole into *text; false when it cannot be opened.
// A read that fails part of the way leaves what came before it.
bool ReadFile(const std::string &path, std::string *text);
// The file at path, or "" when it cannot be opened.
std::string ReadText(const std::string &path);

// The pieces of text between the separators; a last separator ends the
// last piece rather than starting an empty one.
std::vector<std::string> SplitText(std::string_view text, char separator);

// The words of a line, separated by white space, taken one at a time.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}
  // Takes the next word into *word, and then each further one into the
  // next pointer; false, as soon as one is missing, when the line has
  // fewer words.
  bool Next(std::string *word);
  template <class... More>
  bool Next(std::string *word, More *...more) {
    return Next(word) && Next(more...);
  }
  // What follows the last word taken, its white space included.
  std::string_view Rest() const { return rest_; }

 private:
  std::string_view rest_;
};

}  // namespace nexcfg
