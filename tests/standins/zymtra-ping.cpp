// zymtra-ping.cpp - stand-in for the hypervisor's ping program.
//
// Each run appends its command line (argv joined by single blanks) as one
// line to /run/zymtra-ping/calls and exits with a code the test chose:
// /run/zymtra-ping/exit-codes holds blank-separated codes, the n-th run (0
// based, counted by the lines already in "calls") uses the n-th one and the
// last one repeats. Without that file every run exits with 1 (no reply).
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr char kCallsPath[] = "/run/zymtra-ping/calls";
constexpr char kCodesPath[] = "/run/zymtra-ping/exit-codes";

int CallsSoFar() {
  std::ifstream in(kCallsPath);
  int n = 0;
  for (std::string line; std::getline(in, line);) ++n;
  return n;
}

int ChosenExitCode(int run) {
  std::ifstream in(kCodesPath);
  std::vector<int> codes;
  for (int code; in >> code;) codes.push_back(code);
  if (codes.empty()) return 1;
  return codes[static_cast<size_t>(run) < codes.size() ? run : codes.size() - 1];
}

}  // namespace

int main(int argc, char **argv) {
  int run = CallsSoFar();
  std::string line;
  for (int i = 0; i < argc; ++i) {
    if (i > 0) line += ' ';
    line += argv[i];
  }
  std::ofstream out(kCallsPath, std::ios::app);
  out << line << '\n';
  out.close();
  if (!out) return 99;
  return ChosenExitCode(run);
}
