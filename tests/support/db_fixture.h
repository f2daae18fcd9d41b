// db_fixture.h - a fixture for tests that load the library on a database
// written from a string, inside the test sandbox.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "nexcfg_internal.h"
#include "support/sandbox.h"
#include "support/test_util.h"

namespace nxc::test {

constexpr char kDbPath[] = "/etc/zymtra/networking";
// Every level on, so that tests can read every line the library writes.
constexpr char kDbHeader[] = "VERSION=1,0\nanswer NXC_LOGLEVEL 0x7f\n";

// A file under tests/golden.
std::string Golden(const std::string &name);

class DbTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Writes the database file: kDbHeader followed by records.
  void WriteDb(const std::string &records) { WriteRawDb(kDbHeader + records); }
  void WriteRawDb(const std::string &text);
  std::string DbText() const { return ReadFile(kDbPath); }
  bool DbHas(const std::string &text) const { return DbText().find(text) != std::string::npos; }
  // NXC_Load on the database file.
  bool Load(bool readOnly = false);
  // WriteDb and Load (which must work), then an empty log.
  void LoadWith(const std::string &records, bool readOnly = false);
  // Unloads everything without writing back, then LoadWith.
  void Reload(const std::string &records, bool readOnly = false);
  // Unloads every load, writing the database back (or not).
  void UnloadAll(bool writeBack = true);
  // The answer of key in the default cache, or "<absent>".
  std::string Answer(const char *key) const;
  std::string Answer(const std::string &key) const { return Answer(key.c_str()); }

  // Puts a small tmpfs over /etc/zymtra holding the current database file
  // and the product config, and fills it up. The file is padded so that
  // exactly room bytes are left in its last page: appends beyond them fail
  // with ENOSPC (with room 0, every append does). TearDown takes the tmpfs
  // away.
  void FillDatabaseDisk(size_t room = 0);

 private:
  bool diskMounted_ = false;
};

}  // namespace nxc::test
