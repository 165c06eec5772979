// The GoogleTest fixture of every test that needs real files: a fresh TempDir per test
// (made before SetUp, removed after TearDown) whose verbs the test calls directly, and
// the umask 022 that the file modes in the expectations assume.
#ifndef TAVIK_TESTING_TEMP_DIR_FIXTURE_H_
#define TAVIK_TESTING_TEMP_DIR_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "testing/temp_dir.h"

namespace tk::test {

class TempDirTest : public ::testing::Test, public TempDir {
 protected:
  void SetUp() override {
    ASSERT_FALSE(path().empty()) << "cannot create a temporary directory";
    umask(022);
  }
};

}  // namespace tk::test

#endif  // TAVIK_TESTING_TEMP_DIR_FIXTURE_H_
