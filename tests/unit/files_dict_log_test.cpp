#include "engine/stimfile.h"
#include "platform/timer.h"
#include "services/config.h"
#include "services/dict.h"
#include "services/files.h"
#include "tests/unit/test_support.h"

namespace {
// Reads content as the file list named by option "lst".
int load_list(const LogCapture& log, const std::string& content) {
  Args a({"-lst=" + log.dir.write("t.lst", content)});
  return files_init();
}
}  // namespace

TEST(Files, ListMapsExactNamesBrokenListsFail) {
  LogCapture log;
  const std::string longname(250, 'n');
  ASSERT_EQ(load_list(log, "3\nstim.s\n/data/real.s\n" + longname + "\n/p1\nx.log\n/var/x.log\n"), 0);
  EXPECT_STREQ(files_get("stim.s"), "/data/real.s");
  EXPECT_STREQ(files_get(longname.substr(0, 199).c_str()), "/p1");  // cut, still in step
  EXPECT_TRUE(!files_get("STIM.S") && log.has("warning: 0: files: unknown file: STIM.S\n"));
  for (const char* broken : {"three\n", "", "2\nname\n/path\nname2\n", "1000000000\na\nb\n"})
    EXPECT_EQ(load_list(log, broken), -1) << broken;
  EXPECT_TRUE(log.has("error: 0: files: invalid number of files: -1\n"));
  EXPECT_EQ(files_get("name"), nullptr);  // no part of a broken list is taken
  ASSERT_EQ(load_list(log, "0\n"), 0);    // an empty list replaces the old one
  EXPECT_EQ(files_get("stim.s"), nullptr);
  Args a({"-lst=" + log.dir.path("missing.lst")});
  EXPECT_TRUE(files_init() == -1 && log.has("missing.lst: No such file or directory\n"));
}

// Linux opens a folder for reading; the program's readers refuse one, each
// through its own failure path, and say why.
TEST(Files, AFolderWhereAFileIsExpectedIsRefused) {
  test_allegro();
  LogCapture log;
  const std::string folder = log.dir.dir;
  for (auto [option, init, result] : std::vector<std::tuple<std::string, int (*)(), int>>{
           {"-lst=", files_init, -1}, {"-s=", stimfile_init, -1}, {"-cfg=", config_init, 0}})
    EXPECT_EQ((Args({option + folder}), init()), result) << option;
  EXPECT_TRUE(Chapter(folder.c_str()).load() == -1 && errno == EISDIR);
  EXPECT_NE(log.text().find(folder + ": Is a directory\n"), std::string::npos);
}

TEST(Dict, TextsByLineNumber) {
  LogCapture log;
  Chapter c(log.dir.write("de.dict", "Bitte loslassen\r\n\n" + std::string(205, 'a') + "\nlast").c_str());
  ASSERT_EQ(c.load(), 0);
  char buf[200];
  std::vector<std::string> texts;
  for (int i = 0; i < c.count() && c.get(i, 200, buf) == 0; ++i) texts.push_back(buf);
  // The long line counts as two texts; Windows line ends leave no "\r".
  EXPECT_EQ(texts, (std::vector<std::string>{"Bitte loslassen", "", std::string(199, 'a'), "aaaaaa", "last"}));
  EXPECT_TRUE(c.get(0, 6, buf) == 0 && std::string(buf) == "Bitte");  // cut to the buffer
  EXPECT_TRUE(c.get(5, 200, buf) + c.get(-1, 200, buf) == -2 && log.has("error: 0: dict: item invalid\n"));
  const std::string none = log.dir.path("none.dict");
  EXPECT_TRUE(Chapter(none.c_str()).load() == -1 && log.has("error: 0: " + none + ": No such file or directory\n"));
  EXPECT_EQ(Chapter(nullptr).load(), -1);
}

TEST(Log, LineFormats) {
  LogCapture log;
  alleg_timer_start();
  for (int i = 0; i < 42; ++i) alleg_timer_handler();
  alleg_message("plain");
  alleg_warning("late %d", 7);
  alleg_error("%d/%d", 8, 9);
  alleg_message("%Lu tics", 1000000000ull);
  alleg_message("name", "path");
  alleg_message("a", "b", "c");
  errno = ENOENT;
  alleg_perror("z.s");
  alleg_timer_reset();
  const std::string big(1500, 'q');
  alleg_warning(big.c_str(), 1);
  alleg_message(static_cast<const char*>(nullptr));
  alleg_error(nullptr, "b");
  EXPECT_EQ(log.text(), "42: plain\nwarning: 42: late 7\nerror: 42: 8/9\n42: 1000000000 tics\n42: name: path\n"
                        "42: a: b: c\n\nerror: 42: z.s: No such file or directory\nwarning: 0: " +
                            std::string(999, 'q') + "\n0: (null)\nerror: 0: (null): b\n");
}

TEST(Log, StreamFollowsTheFileList) {
  TempDir dir;
  Args unwritable({"-log=" + dir.path("no/such/dir/x.log")});
  log_init();
  EXPECT_EQ(log_stream(), stderr);  // an unwritable log does not stop the test
  Args a({dir.path("prog"), "-lst=" + dir.write("t.lst", "1\n" + dir.path("prog.log") + "\n" + dir.path("real.log"))});
  ASSERT_EQ(files_init(), 0);
  log_init();
  alleg_message("inside");
  log_done();
  EXPECT_EQ(log_stream(), stderr);
  files_done();
  EXPECT_EQ(read_text(dir.path("real.log")), "0: inside\n");
}
