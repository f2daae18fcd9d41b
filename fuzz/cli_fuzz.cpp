// Fuzz target: the nexcfg command line, up to the point where a command
// would run. The words (the input split at NUL bytes) are matched to a
// command and split into arguments and options, the way the tool does it;
// every word also goes through the tool's word parsers. Properties:
//   - a command line is either refused as a usage error or parsed;
//   - a parsed line has as many arguments as its command takes and only
//     the command's options, and written back out (options, "--", the
//     arguments) it parses to the same invocation;
//   - a vnet word, once accepted, is a library vnet name that it maps to
//     itself; an accepted number prints and parses back to itself.
// The tool's main program is compiled in under another name, so that the
// target follows its parser wherever the tool takes it.
#define main NexcfgToolMain
#include "../tools/nexcfg/main.cpp"
#undef main

#include <stddef.h>
#include <stdint.h>

#include "fuzz_util.h"
#include "nexcfg_internal.h"

namespace {

using nexcfg::Command;
using nexcfg::Invocation;
using nexcfg::UsageError;

std::vector<std::string> SplitWords(const uint8_t *data, size_t size) {
  std::vector<std::string> words(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\0')
      words.emplace_back();
    else
      words.back() += static_cast<char>(data[i]);
  }
  return words;
}

// The option's name, without a "=VALUE" part.
std::string OptionName(const std::string &option) { return option.substr(0, option.find('=')); }

// The command line that gives the invocation back.
std::vector<std::string> WriteBack(const Invocation &in) {
  std::vector<std::string> words;
  for (const std::string &option : nexcfg::Words(in.command().options)) {
    std::string name = OptionName(option);
    if (!in.Flag(name.c_str())) continue;
    const std::string *value = in.Option(name.c_str());
    words.push_back(option.find('=') == std::string::npos ? name : name + "=" + *value);
  }
  words.push_back("--");
  words.insert(words.end(), in.args().begin(), in.args().end());
  return words;
}

void CheckInvocation(const Command &command, const Invocation &in) {
  size_t required = 0, allowed = 0;
  bool unlimited = false;
  for (const std::string &w : nexcfg::Words(command.args)) {
    unlimited = unlimited || w.find("...") != std::string::npos;
    required += w[0] != '[';
    ++allowed;
  }
  FUZZ_CHECK(in.count() >= required && (unlimited || in.count() <= allowed));
  Invocation again = nexcfg::Parse(command, WriteBack(in));
  FUZZ_CHECK(again.args() == in.args());
  for (const std::string &option : nexcfg::Words(command.options)) {
    std::string name = OptionName(option);
    FUZZ_CHECK(again.Flag(name.c_str()) == in.Flag(name.c_str()));
    const std::string *a = again.Option(name.c_str()), *b = in.Option(name.c_str());
    FUZZ_CHECK((a == nullptr) == (b == nullptr) && (!a || *a == *b));
  }
}

void CheckWord(const std::string &word) {
  try {
    std::string name = nexcfg::VnetName(word);
    FUZZ_CHECK(nexcfg::VnetName(name) == name);
    FUZZ_CHECK(NXCConvVnetNameToNum(name.c_str()) == nexcfg::VnetNumber(name));
  } catch (const UsageError &) {
  }
  try {
    uint64_t n = nexcfg::Number(word, "number", 0, UINT64_MAX);
    FUZZ_CHECK(nexcfg::Number(std::to_string(n), "number", 0, UINT64_MAX) == n);
  } catch (const UsageError &) {
  }
  try {
    (void)nexcfg::Switch(word, "switch");
  } catch (const UsageError &) {
  }
  try {
    (void)nexcfg::Protocol(word);
  } catch (const UsageError &) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::vector<std::string> words = SplitWords(data, size);
  for (const std::string &word : words) CheckWord(word);
  size_t taken = 0;
  const Command *command = nexcfg::Lookup(words, &taken);
  if (!command) return 0;
  std::vector<std::string> rest(words.begin() + static_cast<long>(taken), words.end());
  try {
    CheckInvocation(*command, nexcfg::Parse(*command, rest));
  } catch (const UsageError &) {
  }
  return 0;
}
