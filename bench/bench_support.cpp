// bench_support.cpp - the benchmarks' sandbox, database files and file
// helpers.
#include "bench/bench_support.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "netcfg/netcfg_priv.h"

namespace nxc::bench {

namespace {

bool gInSandbox = false;

bool Fail(std::string *why, const char *what, const char *path) {
  *why = std::string(what) + " " + path + ": " + strerror(errno);
  return false;
}

bool Tmpfs(const char *path, std::string *why) {
  if (mount("tmpfs", path, "tmpfs", MS_NOSUID, "mode=0755") == 0) return true;
  return Fail(why, "mount tmpfs on", path);
}

}  // namespace

bool EnterSandbox(std::string *why) {
  if (geteuid() != 0) {
    *why = "not root: no private mount namespace";
    return false;
  }
  if (unshare(CLONE_NEWNS) != 0) return Fail(why, "unshare", "mount namespace");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return Fail(why, "make private", "/");
  // /run first: the overlay of /etc keeps its upper layer there.
  if (!Tmpfs("/run", why)) return false;
  if (mkdir("/run/nxc-bench", 0755) != 0 || mkdir("/run/nxc-bench/upper", 0755) != 0 ||
      mkdir("/run/nxc-bench/work", 0755) != 0)
    return Fail(why, "mkdir", "/run/nxc-bench");
  if (mount("overlay", "/etc", "overlay", 0,
            "lowerdir=/etc,upperdir=/run/nxc-bench/upper,workdir=/run/nxc-bench/work") != 0)
    return Fail(why, "overlay", "/etc");
  if (mkdir("/etc/zymtra", 0755) != 0 && errno != EEXIST) return Fail(why, "mkdir", "/etc/zymtra");
  if (!Tmpfs("/etc/zymtra", why) || !Tmpfs("/var/log", why) || !Tmpfs("/tmp", why)) return false;
  // /var/run is a link to /run on most hosts; otherwise it gets its own.
  char target[PATH_MAX];
  if (!(realpath("/var/run", target) && strcmp(target, "/run") == 0) && !Tmpfs("/var/run", why))
    return false;
  gInSandbox = true;
  return true;
}

bool InSandbox() { return gInSandbox; }

bool SkipWithoutSandbox(benchmark::State &state) {
  if (gInSandbox) return false;
  state.SkipWithError("needs root: the library's fixed paths are used in a private sandbox only");
  return true;
}

double Median(std::vector<double> *samples) {
  if (samples->empty()) return 0;
  auto middle = samples->begin() + static_cast<long>(samples->size() / 2);
  std::nth_element(samples->begin(), middle, samples->end());
  return *middle;
}

namespace {

// The key of the a-th answer: the known fields of every vnet first (so that
// an import keeps them), then keys of a vnet's own.
std::string AnswerKey(size_t a) {
  const size_t vnet = a % kNumVnets, field = a / kNumVnets;
  char key[96];
  if (field < kKnownVnetFields.size())
    snprintf(key, sizeof key, "VNET_%zu_%.*s", vnet, static_cast<int>(kKnownVnetFields[field].size()),
             kKnownVnetFields[field].data());
  else
    snprintf(key, sizeof key, "VNET_%zu_SETTING_%zu", vnet, a);
  return key;
}

void AppendAnswer(std::string *text, size_t a) {
  *text += "answer " + AnswerKey(a) + " setting value " + std::to_string(a) + "\n";
}

void AppendForward(std::string *text, size_t f) {
  const unsigned vnet = static_cast<unsigned>(f % kNumVnets);
  const size_t slot = f / kNumVnets;
  char line[160];
  snprintf(line, sizeof line, "add_nat_portfwd %u %s %zu 10.%u.%zu.%zu %zu%s%s\n", vnet,
           slot % 2 ? "udp" : "tcp", 1 + slot / 2 % 65535, vnet, slot / 250 % 256, 2 + slot % 250,
           1 + f % 60000, f % 2 ? " forward " : "", f % 2 ? std::to_string(f).c_str() : "");
  *text += line;
}

void AppendMapping(std::string *text, size_t m) {
  const unsigned vnet = static_cast<unsigned>(m % kNumVnets);
  const size_t slot = m / kNumVnets;
  char line[128];
  snprintf(line, sizeof line, "add_dhcp_mac_to_ip %u 02:%02zX:%02zX:%02zX:%02zX:%02zX 10.%u.%zu.%zu\n",
           vnet, (m >> 32) & 0xFF, (m >> 24) & 0xFF, (m >> 16) & 0xFF, (m >> 8) & 0xFF, m & 0xFF,
           vnet, slot / 250 % 256, 2 + slot % 250);
  *text += line;
}

}  // namespace

std::string JournalRecords(size_t n, Journal kind) {
  std::string text;
  text.reserve(n * 48);
  const size_t cycle = kind == Journal::kLive ? 9 : 10;
  size_t answers = 0, forwards = 0, mappings = 0;
  for (size_t i = 0; i < n; ++i) {
    const size_t r = i % cycle;
    if (r < 3) {
      AppendAnswer(&text, answers++);
    } else if (r < 6) {
      AppendForward(&text, forwards++);
    } else if (r < 9) {
      AppendMapping(&text, mappings++);
    } else {
      // Removes the answer written last; the next answer takes a new key.
      text += "remove_answer " + AnswerKey(answers - 1) + "\n";
    }
  }
  return text;
}

size_t LiveRecords(size_t n, Journal kind) {
  if (kind == Journal::kLive) return n;
  const size_t removals = n / 10;
  return n - 2 * removals;
}

void WriteFileOrDie(const std::string &path, const std::string &text) {
  FILE *f = fopen(path.c_str(), "we");
  if (!f || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) {
    fprintf(stderr, "cannot write %s: %s\n", path.c_str(), strerror(errno));
    abort();
  }
}

std::string ReadFile(const std::string &path) {
  std::string text;
  FILE *f = fopen(path.c_str(), "re");
  if (!f) return text;
  char chunk[65536];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) text.append(chunk, n);
  fclose(f);
  return text;
}

void ReplaceFileDurably(const std::string &path, const std::string &text) {
  const std::string temporary = path + ".new";
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool ok = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
            fsync(fd) == 0;
  if (fd >= 0) ok = close(fd) == 0 && ok;
  if (!ok || rename(temporary.c_str(), path.c_str()) != 0) {
    fprintf(stderr, "cannot replace %s: %s\n", path.c_str(), strerror(errno));
    abort();
  }
}

std::vector<std::string> SplitLines(const std::string &text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

}  // namespace nxc::bench
