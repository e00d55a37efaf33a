// Files replaced whole: what a replacement leaves, with and without the
// old content kept, and what a failed one leaves.
#include "platform/durable.h"

#include "test_support.h"

namespace {

TEST(Durable, ReplaceLeavesTheNewContentAndNoTemporaryFile) {
  struct Case {
    const char* old;  // null: no old file
    const char* text;
    bool keep_old;
    const char* expected;
  };
  const Case cases[] = {
      {nullptr, "a\n", false, "a\n"},
      {nullptr, "a\n", true, "a\n"},
      {"old\n", "new\n", false, "new\n"},
      {"old\n", "new\n", true, "old\nnew\n"},
      {"old\n", "", false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.old ? c.old : "(none)") + " + " + c.text + (c.keep_old ? " kept" : ""));
    TempDir d;
    const std::string path = d.path("f.tsv");
    if (c.old) d.write("f.tsv", c.old);
    ASSERT_EQ(durable_replace(path, c.text, c.keep_old), 0);
    EXPECT_EQ(read_text(path), c.expected);
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
  }
}

TEST(Durable, ReplacementThatFailsLeavesTheOldFile) {
  TempDir d;
  // A long old file is copied in pieces, all of them.
  const std::string big(200000, 'x');
  d.write("f", big);
  ASSERT_EQ(durable_replace(d.path("f"), "y", true), 0);
  EXPECT_EQ(read_text(d.path("f")), big + "y");
  // A folder that is not there, a full device written in place.
  errno = 0;
  EXPECT_EQ(durable_replace(d.path("none/f"), "y"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(durable_replace("/dev/full", "y"), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(durable_replace("/dev/null", "y", true), 0);
  // The temporary name taken by a folder: the old file stays as it was.
  d.write("g", "old");
  std::filesystem::create_directory(d.path("g.tmp"));
  EXPECT_EQ(durable_replace(d.path("g"), "new"), -1);
  EXPECT_EQ(read_text(d.path("g")), "old");
}

}  // namespace
