#include "services/config.h"
#include "tests/unit/test_support.h"

TEST(Argument, LookupValuesAndProgname) {
  LogCapture log({"-sx=wrong", "-s#hash", "-s=", "-n=42", "-m=abc", "-r"});
  EXPECT_EQ(argument_lookup("s"), 4);  // "=" before "#", and "-sx" is another key
  EXPECT_EQ(argument_lookup("r"), 0);
  EXPECT_EQ(argument_check("r"), 7);
  EXPECT_EQ(argument_check("s"), 2);  // a flag test is a bare prefix test
  EXPECT_EQ(std::make_pair(argument_flag("r"), argument_flag("s")), std::make_pair(7, 0));  // the flag itself
  // The empty value counts as absent: the default is taken and logged.
  EXPECT_STREQ(argument_get("s", "prog.s", "Using %s as stimfile"), "prog.s");
  EXPECT_TRUE(log.has("0: Using prog.s as stimfile\n"));
  EXPECT_TRUE(!argument_get("s") && log.has("0: (null)\n"));  // no message text: a line without one
  EXPECT_EQ(std::make_tuple(argument_get("n", 5), argument_get("m", 5), argument_get("q", -3)),
            std::make_tuple(42, 5, -3));
  Args only_hash({"-sx=wrong", "-s#hash", "-res=x", "-report=y"});
  EXPECT_STREQ(argument_get("s", "def"), "hash");
  EXPECT_EQ(argument_flag("r"), 0);

  // File options default to the program path with the extension replaced.
  char buf[64];
  Args a({"/opt/v1.2/ixmod.exe"});
  argument_progname(buf, sizeof buf, "lst");
  EXPECT_STREQ(buf, "/opt/v1.2/ixmod.lst");
  Args b({"/opt/v1.2/ixmod"});
  argument_progname(buf, 11, "cfg");
  EXPECT_STREQ(buf, "/opt/v1.2/");
}

TEST(Config, TypedReadersLogTheirDefaults) {
  test_allegro();
  TempDir dir;
  const std::string cfg = dir.write("t.cfg",
                                    "screen-rate = fast\nscreen-width = 1280\nbig = 3000000000\n"
                                    "port = 3bc\nbadhex = xyz\nratio = 0.25\nname = from-file\n");
  LogCapture log({"-cfg=" + cfg, "-name=from-option", "-screen-width=800"});
  EXPECT_EQ(config_init(), 0);
  // Numbers come from the file only, not from options.
  EXPECT_EQ(std::make_tuple(config_int("screen-width", 1024), config_long("big", 1L), config_hex("port", 0x378),
                            config_double("ratio", 1.0)),
            std::make_tuple(1280, 3000000000L, static_cast<unsigned short>(0x3bc), 0.25));
  EXPECT_EQ(std::make_tuple(config_int("screen-rate", 60), config_int("screen-depth", 16), config_long("nope", 77L),
                            config_hex("badhex", 0x378), config_double("name", 1.5), config_double("none", 2.0)),
            std::make_tuple(60, 16, 77L, static_cast<unsigned short>(0x378), 1.5, 2.0));
  EXPECT_STREQ(config_string("name", "def"), "from-option");
  EXPECT_STREQ(config_string("port", "def"), "3bc");
  EXPECT_STREQ(config_string("missing", "fallback"), "fallback");
  for (const char* line :
       {"Cannot parse screen-rate: Using the default 60\n", "Using the default 16 for screen-depth\n",
        "Using the default 77 for nope\n", "Cannot parse badhex: Using the default 378\n",
        "Cannot parse name: Using the default 1.500000\n", "Using the default 2.000000 for none\n",
        "Using the default fallback for missing\n"})
    EXPECT_TRUE(log.has(std::string("0: ") + line)) << line;
  config_done();
  Args none({"-cfg=" + dir.path("none.cfg")});
  EXPECT_TRUE(config_init() == 0 && log.has("warning: 0: file not found: " + dir.path("none.cfg") + "\n"));
}

TEST(Config, LongAndNulLinesAreLeftOutAndTheRestApplies) {
  test_allegro();
  TempDir dir;
  // A line of multi-byte characters longer than the library's line buffer,
  // and lines with a NUL byte or stray bytes.
  std::string long_line = "comment = ";
  for (int i = 0; i < 300; ++i) long_line += "\xC3\xA4";
  const std::string text = "screen-width = 1280\n" + long_line + "\n" + std::string("screen-rate = 7\0 5\n", 18) +
                           "# Gr\xF6\xDF" "e\n" "screen-height = \xFD\x92\x92\n" "screen-depth = 32";
  const std::string cfg = dir.write("t.cfg", text);
  LogCapture log({"-cfg=" + cfg});
  EXPECT_EQ(config_init(), 0);
  EXPECT_EQ(std::make_tuple(config_int("screen-width", 1024), config_int("screen-rate", 60),
                            config_int("screen-height", 768), config_int("screen-depth", 16)),
            std::make_tuple(1280, 60, 768, 32));
  EXPECT_TRUE(log.has(cfg + ": line 2 left out: longer than 200 characters or with a NUL byte")) << log.text();
  EXPECT_TRUE(log.has(cfg + ": line 3 left out") && !log.has(cfg + ": line 4 left out")) << log.text();
  config_done();
}
