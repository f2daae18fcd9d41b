// base_test.cpp - the platform helpers under base/.
#include "base/byte_buffer.h"
#include "base/config_file.h"
#include "base/file_lock.h"
#include "base/hash_table.h"
#include "base/line_reader.h"
#include "base/sha1.h"
#include "base/str_util.h"
#include "support/test_util.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nxc {
namespace {

using test::TempDir;

// ---- Hash tables ---------------------------------------------------------

struct Entry { char name[24]; uint64_t number; };

int freedEntries = 0;

void FreeEntry(void *entry) {
  ++freedEntries;
  delete static_cast<Entry *>(entry);
}

Entry *MakeEntry(const std::string &name, uint64_t number = 0) {
  Entry *e = new Entry{};
  snprintf(e->name, sizeof e->name, "%s", name.c_str());
  e->number = number;
  return e;
}

std::vector<std::string> Names(const HashTable &table) {
  void **entries = nullptr;
  size_t count = 0;
  EXPECT_TRUE(table.Snapshot(&entries, &count));
  std::vector<std::string> names;
  for (size_t i = 0; i < count; ++i) names.push_back(static_cast<Entry *>(entries[i])->name);
  free(entries);
  return names;
}

class HashTableTest : public ::testing::Test {
 protected:
  void SetUp() override { freedEntries = 0; }
  // Inserts a new entry under its own name.
  bool Add(HashTable *t, const std::string &name) {
    Entry *e = MakeEntry(name);
    if (t->Insert(StrKey(e->name), e)) return true;
    delete e;
    return false;
  }
};

TEST_F(HashTableTest, DuplicatesAreRefusedKeysAreCaseSensitiveAndEveryEntryIsFreedOnce) {
  HashTablePtr t(HashTable::Create(HashTable::Kind::kString, 4, FreeEntry));
  ASSERT_TRUE(t);
  void **entries = reinterpret_cast<void **>(1);
  size_t count = 9;
  ASSERT_TRUE(t->Snapshot(&entries, &count));
  EXPECT_EQ(entries, nullptr);
  EXPECT_EQ(count, 0u);
  Entry *first = MakeEntry("a");
  ASSERT_TRUE(t->Insert(StrKey(first->name), first));
  EXPECT_FALSE(Add(t.get(), "a"));
  for (const char *n : {"A", "b", "c", "d"}) ASSERT_TRUE(Add(t.get(), n));
  EXPECT_EQ(t->Lookup(StrKey("a")), first);
  bool inserted = true;
  Entry *other = MakeEntry("a"), *fresh = MakeEntry("new");
  EXPECT_EQ(t->InsertOrLookup(StrKey(other->name), other, &inserted), first);
  EXPECT_FALSE(inserted);
  delete other;
  EXPECT_EQ(t->InsertOrLookup(StrKey(fresh->name), fresh, &inserted), fresh);
  EXPECT_TRUE(inserted);
  EXPECT_EQ(freedEntries, 0);

  // A replaced key moves to the end of the listing.
  ASSERT_TRUE(t->Delete(StrKey("b")));
  ASSERT_TRUE(Add(t.get(), "b"));
  ASSERT_TRUE(t->Delete(StrKey("a")));
  EXPECT_EQ(Names(*t), (std::vector<std::string>{"A", "c", "d", "new", "b"}));
  EXPECT_FALSE(t->Delete(StrKey("a")));
  EXPECT_EQ(freedEntries, 2);  // the deleted "b" and "a"
  EXPECT_EQ(t->Count(), 5u);

  // ForEach visits in order and counts the failures.
  std::string seen;
  size_t failures = t->ForEach(
      [](HashKey key, void *entry, void *context) {
        *static_cast<std::string *>(context) += key.str + std::string(",");
        return static_cast<Entry *>(entry)->name[0] == 'c' || key.str[0] == 'b' ? -1 : 0;
      },
      &seen);
  EXPECT_EQ(failures, 2u);
  EXPECT_EQ(seen, "A,c,d,new,b,");

  // Destroying frees each remaining entry once; without a free function the
  // entries stay the caller's.
  t.reset();
  EXPECT_EQ(freedEntries, 7);
  HashTable::Destroy(nullptr);
  Entry kept{};
  HashTable *plain = HashTable::Create(HashTable::Kind::kString, 2, nullptr);
  ASSERT_TRUE(plain->Insert(StrKey("kept"), &kept));
  HashTable::Destroy(plain);
  EXPECT_EQ(freedEntries, 7);
}

TEST_F(HashTableTest, GrowthKeepsEveryKeyFindableAndTheOrder) {
  HashTablePtr t(HashTable::Create(HashTable::Kind::kString, 1, FreeEntry));
  constexpr int kCount = 5000;
  std::vector<std::string> expected;
  for (int i = 0; i < kCount; ++i) {
    expected.push_back("key" + std::to_string(i));
    ASSERT_TRUE(Add(t.get(), expected.back()));
  }
  EXPECT_EQ(t->Count(), size_t{kCount});
  EXPECT_EQ(Names(*t), expected);
  for (int i = 0; i < kCount; i += 2) ASSERT_TRUE(t->Delete(StrKey(expected[i].c_str())));
  for (int i = 0; i < kCount; ++i) {
    Entry *e = static_cast<Entry *>(t->Lookup(StrKey(expected[i].c_str())));
    ASSERT_EQ(e ? std::string(e->name) : "<none>", i % 2 ? expected[i] : "<none>");
  }
  EXPECT_EQ(t->Count(), size_t{kCount / 2});
}

// A table made small finds its keys without an index until its first
// array is full of entries and holes; a key moved to the end then takes it
// over to an index, and nothing is lost or freed twice on the way.
TEST_F(HashTableTest, SmallTableKeepsOrderAndKeysThroughMovesRemovalsAndGrowth) {
  HashTablePtr t(HashTable::Create(HashTable::Kind::kString, 4, FreeEntry));
  for (const char *n : {"a", "b", "c"}) ASSERT_TRUE(Add(t.get(), n));
  Entry *b2 = MakeEntry("b"), *a2 = MakeEntry("a");
  void *displaced = nullptr;
  ASSERT_TRUE(t->Put(StrKey(b2->name), b2, /*moveToEnd=*/false, &displaced));  // stays
  FreeEntry(displaced);
  ASSERT_TRUE(t->Put(StrKey(a2->name), a2, /*moveToEnd=*/true, &displaced));  // the last item
  FreeEntry(displaced);
  EXPECT_EQ(Names(*t), (std::vector<std::string>{"b", "c", "a"}));
  ASSERT_TRUE(t->Delete(StrKey("c")));
  Entry *b3 = MakeEntry("b");
  ASSERT_TRUE(t->Put(StrKey(b3->name), b3, /*moveToEnd=*/true, &displaced));  // array full
  FreeEntry(displaced);
  EXPECT_EQ(Names(*t), (std::vector<std::string>{"a", "b"}));
  for (const char *n : {"d", "e", "f"}) ASSERT_TRUE(Add(t.get(), n));
  EXPECT_EQ(Names(*t), (std::vector<std::string>{"a", "b", "d", "e", "f"}));
  EXPECT_EQ(t->Lookup(StrKey("b")), b3);
  EXPECT_EQ(t->Lookup(StrKey("c")), nullptr);
  EXPECT_EQ(t->Count(), 5u);
  t.reset();
  EXPECT_EQ(freedEntries, 4 + 5);  // three replaced, one deleted; five left
}

// Removals leave holes in the listing that later insertions and removals
// squeeze out: the order, the lookups and the walk by index survive them.
TEST_F(HashTableTest, ListingOrderAndLookupsSurviveRemovalsAndReplacements) {
  HashTablePtr t(HashTable::Create(HashTable::Kind::kInteger, 4, FreeEntry));
  std::vector<uint64_t> expected;
  auto put = [&](uint64_t n, bool moveToEnd) {
    void *displaced = nullptr;
    ASSERT_TRUE(t->Put(NumKey(n), MakeEntry("", n), moveToEnd, &displaced));
    if (displaced) FreeEntry(displaced);
  };
  for (uint64_t n = 0; n < 1000; ++n) put(n, true);
  for (uint64_t n = 0; n < 1000; n += 2) ASSERT_TRUE(t->Delete(NumKey(n)));
  for (uint64_t n = 1; n < 1000; n += 2) put(n, /*moveToEnd=*/n % 3 == 0);
  for (uint64_t n = 1; n < 1000; n += 2) if (n % 3 != 0) expected.push_back(n);
  for (uint64_t n = 3; n < 1000; n += 6) expected.push_back(n);
  ASSERT_EQ(t->Count(), expected.size());
  HashTable::Cursor cursor;
  for (size_t i = 0; i < expected.size(); ++i) {
    auto *e = static_cast<Entry *>(t->EntryAt(i, &cursor));
    ASSERT_EQ(e ? e->number : UINT64_MAX, expected[i]) << "index " << i;
  }
  EXPECT_EQ(t->EntryAt(expected.size(), &cursor), nullptr);
  // Removing the first entry again and again: each time the next one is
  // first, and the others are still found.
  for (size_t i = 0; i + 1 < expected.size(); ++i) {
    HashTable::Cursor before, after;  // a cursor is good until the table changes
    ASSERT_TRUE(t->Delete(NumKey(static_cast<Entry *>(t->EntryAt(0, &before))->number)));
    ASSERT_EQ(static_cast<Entry *>(t->EntryAt(0, &after))->number, expected[i + 1]);
    ASSERT_NE(t->Lookup(NumKey(expected.back())), nullptr);
  }
  t.reset();
  EXPECT_EQ(freedEntries, 1000 + 500);  // each entry made, once
}

// ---- Strings -------------------------------------------------------------

TEST(StrUtilTest, IntegerConversionTakesOnlyWholeNumbersInRange) {
  // Decimal or 0x hex after an optional sign (signed forms only); a sign
  // before hex is accepted ("-0x10" is -16); leading zeros are decimal.
  struct Case {
    const char *text;
    std::optional<int32_t> i32;
    std::optional<uint32_t> u32;
  };
  const std::nullopt_t no = std::nullopt;
  const Case cases[] = {
      {"0", 0, 0},          {"007", 7, 7},     {"+5", 5, no},         {"-0x10", -16, no}, {"-0", 0, no},
      {"0x7fffffff", INT32_MAX, INT32_MAX},   {"0X7FFFFFFF", INT32_MAX, INT32_MAX},
      {"2147483648", no, 2147483648u},        {"-2147483648", INT32_MIN, no},
      {"4294967295", no, UINT32_MAX},         {"0xffffffff", no, UINT32_MAX},
      {"999999999", 999999999, 999999999u},   {"0000000004294967295", no, UINT32_MAX},
  };
  // Out of every range, or not a whole number at all.
  const char *const refused[] = {"-2147483649", "4294967296", "9223372036854775808",
                                 "184467440737095516160", "", "-", "0x", "-0x", " 1", "1 ", "12a",
                                 "0x1g", "1.5", "--1", "0x-1"};
  std::vector<Case> all(std::begin(cases), std::end(cases));
  for (const char *text : refused) all.push_back({text, no, no});
  for (const Case &c : all) {
    SCOPED_TRACE(std::string("text \"") + c.text + "\"");
    int32_t i32 = 123;
    uint32_t u32 = 123;
    EXPECT_EQ(StrToInt32(c.text, &i32), c.i32.has_value());
    EXPECT_EQ(i32, c.i32.value_or(123));
    EXPECT_EQ(StrToUint32(c.text, &u32), c.u32.has_value());
    EXPECT_EQ(u32, c.u32.value_or(123u));
  }
  // Only the view's bytes count, not what follows them in memory.
  int32_t v = 0;
  EXPECT_TRUE(StrToInt32(std::string_view("123456", 3), &v));
  EXPECT_EQ(v, 123);
}

TEST(StrUtilTest, BoundedPrintAndCopyReportTruncation) {
  char buf[6];
  EXPECT_EQ(BoundedPrint(buf, sizeof buf, "%s-%d", "ab", 12), 5);
  EXPECT_STREQ(buf, "ab-12");
  EXPECT_EQ(BoundedPrint(buf, sizeof buf, "%s-%d", "ab", 123), -1);
  EXPECT_STREQ(buf, "ab-12");  // truncated and terminated
  EXPECT_EQ(BoundedPrint(buf, 0, "x"), -1);

  char *text = AllocPrint("%s:%05d", std::string(5000, 'z').c_str(), 42);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text), std::string(5000, 'z') + ":00042");
  free(text);

  EXPECT_EQ(BoundedCopy(buf, sizeof buf, "hello"), 5u);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(BoundedCopy(buf, sizeof buf, "hello world"), 11u);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(BoundedCopy(buf, 1, "abc"), 3u);
  EXPECT_STREQ(buf, "");
}

TEST(ByteBufferTest, GrowsKeepsBinaryBytesAndHandsThemOver) {
  ByteBuffer b;
  EXPECT_STREQ(b.Data(), "");
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(b.AppendPrintf("line %d\n", i));
    expected += "line " + std::to_string(i) + "\n";
  }
  ASSERT_TRUE(b.Append("\0x", 2) && b.AppendString("end"));
  expected += std::string("\0x", 2) + "end";
  EXPECT_EQ(b.Data()[b.Size()], '\0');
  for (const std::string &want : {expected, std::string()}) {  // an empty buffer still gives a string
    size_t size = 99;
    char *data = b.Release(&size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data, size), want);
    EXPECT_EQ(data[size], '\0');
    free(data);
    EXPECT_EQ(b.Size(), 0u);
  }
}

TEST(ByteBufferTest, NumbersAmongOtherPartsAreWrittenInDecimal) {
  ByteBuffer b;
  std::string expected;
  for (unsigned n : {0u, 7u, 9u, 10u, 42u, 99u, 100u, 101u, 999u, 1000u, 65535u, 1000000u,
                     123456789u, 4294967295u}) {
    ASSERT_TRUE(b.AppendAll(n, '|', std::string_view("x"), n, "\n"));
    expected += std::to_string(n) + "|x" + std::to_string(n) + "\n";
  }
  EXPECT_EQ(std::string(b.Data(), b.Size()), expected);
}

// ---- Line reader -----------------------------------------------------------

std::vector<std::string> ReadAll(const std::string &text, size_t maxLength) {
  FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
  EXPECT_NE(f, nullptr);
  std::vector<std::string> lines;
  int error = -1;
  while (char *line = ReadNextLine(f, maxLength, &error)) {
    lines.push_back(line);
    free(line);
  }
  EXPECT_EQ(error, 0);
  fclose(f);
  return lines;
}

TEST(LineReaderTest, SplitsLongLinesReturnsAnUnterminatedLastLineAndGivesReadErrors) {
  using V = std::vector<std::string>;
  EXPECT_EQ(ReadAll("one\n\nthree\nlast", 64), (V{"one", "", "three", "last"}));
  EXPECT_EQ(ReadAll("abcdefghij\nxy\n", 5), (V{"abcd", "efgh", "ij", "xy"}));
  // A line of exactly maxLength - 1 bytes leaves its newline for the next
  // call, which then gives an empty piece (as fgets does).
  EXPECT_EQ(ReadAll("abcd\nx", 5), (V{"abcd", "", "x"}));
  EXPECT_EQ(ReadAll("", 5), V{});

  TempDir dir;
  FILE *f = fopen(dir.path().c_str(), "r");  // a directory opens but cannot be read
  ASSERT_NE(f, nullptr);
  int error = 0;
  EXPECT_EQ(ReadNextLine(f, 64, &error), nullptr);
  EXPECT_EQ(error, EISDIR);
  fclose(f);
}

// ---- Configuration files ---------------------------------------------------

TEST(ConfigFileTest, ReadsQuotedAndBareValuesAndRefusesMalformedLines) {
  TempDir dir;
  const std::string path = dir.File("config");
  ASSERT_TRUE(test::WriteFile(path,
                              "# comment\n"
                              "   # indented comment\n"
                              "\n"
                              "bindir = \"/usr/bin\"\n"
                              "  spaced\t=   \"  inner  blanks \"  \n"
                              "escaped=\"say \\\"hi\\\" C:\\\\dir \\n\"\n"
                              "bare = /opt/zy tra  \n"
                              "hash = \"a # b\"\n"
                              "empty = \"\"\n"
                              "nothing =\n"
                              "dup = \"first\"\n"
                              "Dup = \"other\"\n"
                              "dup = \"second\"\n"
                              "crlf = \"x\"\r\n"));
  char error[128] = "";
  KeyValueFile *f = KeyValueFileLoad(path.c_str(), error, sizeof error);
  ASSERT_NE(f, nullptr) << error;
  const std::pair<const char *, const char *> cases[] = {
      {"bindir", "/usr/bin"},   {"spaced", "  inner  blanks "},
      {"escaped", "say \"hi\" C:\\dir \\n"},
      {"bare", "/opt/zy tra"},  {"hash", "a # b"},
      {"empty", ""},            {"nothing", ""},
      {"dup", "second"},        {"Dup", "other"},
      {"crlf", "x"},            {"missing", "<null>"},
      {"# comment", "<null>"},
  };
  for (const auto &[key, expected] : cases) {
    const char *value = KeyValueFileGet(f, key);
    EXPECT_STREQ(value ? value : "<null>", expected) << key;
  }
  KeyValueFileFree(f);
  KeyValueFileFree(nullptr);

  // A malformed line or a missing file fails the load.
  const std::pair<const char *, const char *> malformed[] = {
      {"a = \"1\"\nno value here\n", "syntax error at line 2"},
      {"# c\n\na = \"unterminated\n", "syntax error at line 3"},
      {"a = \"x\" trailing\n", "syntax error at line 1"},
      {" = \"x\"\n", "syntax error at line 1"},
      {"key\n", "syntax error at line 1"},
  };
  for (const auto &[text, expected] : malformed) {
    ASSERT_TRUE(test::WriteFile(path, text));
    EXPECT_EQ(KeyValueFileLoad(path.c_str(), error, sizeof error), nullptr);
    EXPECT_STREQ(error, expected) << text;
  }
  EXPECT_EQ(KeyValueFileLoad(dir.File("absent").c_str(), error, sizeof error), nullptr);
  EXPECT_STREQ(error, strerror(ENOENT));
}

// ---- File lock -------------------------------------------------------------

class FileLockTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(test::WriteFile(path_, "data\n")); }
  TempDir dir_;
  std::string path_ = dir_.File("db");
};

TEST_F(FileLockTest, ExcludesOtherProcessesAndASecondLockOfTheSameProcessUntilReleased) {
  int error = -1;
  FileLock *lock = FileLockAcquire(path_.c_str(), 0, &error);
  ASSERT_NE(lock, nullptr) << strerror(error);
  EXPECT_EQ(test::LockFromOtherProcess(path_), 1);  // timed out
  // Closing another descriptor of the file keeps the lock.
  close(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(test::LockFromOtherProcess(path_), 1);
  error = -1;
  EXPECT_EQ(FileLockAcquire(path_.c_str(), /*timeoutMs=*/60, &error), nullptr);
  EXPECT_EQ(error, 0);  // timed out, no system error
  EXPECT_TRUE(FileLockRelease(lock, &error));
  EXPECT_EQ(test::LockFromOtherProcess(path_), 0);
  lock = FileLockAcquire(path_.c_str(), 0, &error);
  EXPECT_NE(lock, nullptr);
  EXPECT_TRUE(FileLockRelease(lock, &error));
  EXPECT_TRUE(FileLockRelease(nullptr, &error));
  EXPECT_EQ(FileLockAcquire(dir_.File("absent").c_str(), 10, &error), nullptr);
  EXPECT_EQ(error, ENOENT);
}

TEST_F(FileLockTest, WaitsForALockReleasedDuringTheTimeout) {
  int error = -1;
  FileLock *lock = FileLockAcquire(path_.c_str(), 0, &error);
  ASSERT_NE(lock, nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    FileLock *waited = FileLockAcquire(path_.c_str(), /*timeoutMs=*/3000, &error);
    _exit(waited ? 0 : 1);
  }
  usleep(100 * 1000);
  EXPECT_TRUE(FileLockRelease(lock, &error));
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// ---- SHA-1 ---------------------------------------------------------

std::string HexOf(const std::string &message) {
  uint8_t digest[kSha1DigestSize];
  Sha1Digest(message.data(), message.size(), digest);
  char hex[2 * kSha1DigestSize + 1];
  Sha1Hex(digest, hex);
  return hex;
}

// The portable rounds, and the CPU's SHA instructions where it has them.
class Sha1Test : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { ASSERT_EQ(Sha1UseCpuInstructions(GetParam()), GetParam()); }
  void TearDown() override { (void)Sha1UseCpuInstructions(true); }
};

std::vector<bool> Sha1Paths() {
  if (Sha1UseCpuInstructions(true)) return {false, true};
  return {false};
}

TEST_P(Sha1Test, MatchesTheStandardVectors) {
  EXPECT_EQ(HexOf("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(HexOf(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(HexOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
  EXPECT_EQ(HexOf("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
                  "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
            "a49b2446a02c645bf419f995b67091253a04a259");

  // One million 'a' fed in chunks that straddle the 64-byte blocks.
  const std::string as(1000, 'a');
  const size_t chunks[] = {1, 63, 64, 65, 127, 1000};
  Sha1 sha;
  size_t fed = 0;
  for (size_t i = 0; fed < 1000000; ++i) {
    size_t n = std::min(chunks[i % std::size(chunks)], 1000000 - fed);
    sha.Update(as.data(), n);
    fed += n;
  }
  uint8_t digest[kSha1DigestSize];
  sha.Final(digest);
  char hex[2 * kSha1DigestSize + 1];
  Sha1Hex(digest, hex);
  EXPECT_STREQ(hex, "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

// Two messages hashed side by side, from block boundaries or not (lead
// bytes fed to the first alone), each give their own one-by-one digest.
TEST_P(Sha1Test, TwoMessagesSideBySideGiveTheirOwnDigests) {
  std::string a(300, '\0'), b(300, '\0');
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = static_cast<char>(i * 7 + 1);
    b[i] = static_cast<char>(i * 13 + 5);
  }
  const size_t kLengths[] = {0, 1, 55, 56, 63, 64, 65, 128, 200, 257};
  for (size_t lead : {0, 3}) {
    for (size_t la : kLengths) {
      for (size_t lb : kLengths) {
        SCOPED_TRACE(testing::Message() << lead << "+" << la << ", " << lb);
        Sha1 x, y;
        x.Update(a.data(), lead);
        const size_t both = std::min(la, lb);
        Sha1UpdateBoth(&x, a.data() + lead, &y, b.data(), both);
        x.Update(a.data() + lead + both, la - both);
        y.Update(b.data() + both, lb - both);
        uint8_t dx[kSha1DigestSize], dy[kSha1DigestSize], ex[kSha1DigestSize],
            ey[kSha1DigestSize];
        x.Final(dx);
        y.Final(dy);
        Sha1Digest(a.data(), lead + la, ex);
        Sha1Digest(b.data(), lb, ey);
        EXPECT_EQ(memcmp(dx, ex, sizeof dx), 0);
        EXPECT_EQ(memcmp(dy, ey, sizeof dy), 0);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Rounds, Sha1Test, testing::ValuesIn(Sha1Paths()),
                         [](const testing::TestParamInfo<bool> &info) {
                           return info.param ? "CpuInstructions" : "Portable";
                         });

}  // namespace
}  // namespace nxc
