#include <gtest/gtest.h>

#include "services/argument.h"
#include "services/config.h"
#include "tests/unit/test_support.h"

TEST(Argument, LookupAndValues) {
  LogCapture log({"-sx=wrong", "-s#hash", "-s=", "-n=42", "-m=abc", "-r"});
  EXPECT_EQ(argument_lookup("s"), 4);  // "=" before "#", and "-sx" is another key
  EXPECT_EQ(argument_lookup("r"), 0);
  EXPECT_EQ(argument_check("r"), 7);
  EXPECT_EQ(argument_check("s"), 2);  // a flag test is a bare prefix test
  // The empty value counts as absent: the default is taken and logged.
  EXPECT_STREQ(argument_get("s", "prog.s", "Using %s as stimfile"), "prog.s");
  EXPECT_TRUE(log.has("0: Using prog.s as stimfile\n"));
  EXPECT_EQ(argument_get("s"), nullptr);
  EXPECT_TRUE(log.has("0: (null)\n"));  // no message text: a line without one
  EXPECT_EQ(argument_get("n", 5), 42);
  EXPECT_EQ(argument_get("m", 5), 5);
  EXPECT_EQ(argument_get("q", -3), -3);

  Args only_hash({"-sx=wrong", "-s#hash"});
  EXPECT_STREQ(argument_get("s", "def"), "hash");
}

TEST(Argument, PrognameReplacesTheExtensionOfTheFileName) {
  char buf[64];
  Args a({"/opt/v1.2/ixmod.exe"});
  argument_progname(buf, sizeof buf, "lst");
  EXPECT_STREQ(buf, "/opt/v1.2/ixmod.lst");
  Args b({"/opt/v1.2/ixmod"});
  argument_progname(buf, sizeof buf, "cfg");
  EXPECT_STREQ(buf, "/opt/v1.2/ixmod.cfg");
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
  EXPECT_EQ(config_int("screen-width", 1024), 1280);  // numbers ignore options
  EXPECT_EQ(config_int("screen-rate", 60), 60);
  EXPECT_TRUE(log.has("0: Cannot parse screen-rate: Using the default 60\n"));
  EXPECT_EQ(config_int("screen-depth", 16), 16);
  EXPECT_TRUE(log.has("0: Using the default 16 for screen-depth\n"));
  EXPECT_EQ(config_long("big", 1L), 3000000000L);
  EXPECT_EQ(config_long("nope", 77L), 77L);
  EXPECT_TRUE(log.has("0: Using the default 77 for nope\n"));
  EXPECT_EQ(config_hex("port", 0x378), 0x3bc);
  EXPECT_EQ(config_hex("badhex", 0x378), 0x378);
  EXPECT_TRUE(log.has("0: Cannot parse badhex: Using the default 378\n"));
  EXPECT_DOUBLE_EQ(config_double("ratio", 1.0), 0.25);
  EXPECT_DOUBLE_EQ(config_double("name", 1.5), 1.5);
  EXPECT_TRUE(log.has("0: Cannot parse name: Using the default 1.500000\n"));
  EXPECT_DOUBLE_EQ(config_double("none", 2.0), 2.0);
  EXPECT_TRUE(log.has("0: Using the default 2.000000 for none\n"));

  EXPECT_STREQ(config_string("name", "def"), "from-option");
  EXPECT_STREQ(config_string("port", "def"), "3bc");
  const char* def = "fallback";
  EXPECT_EQ(config_string("missing", def), def);
  EXPECT_TRUE(log.has("0: Using the default fallback for missing\n"));

  config_done();
  EXPECT_EQ(config_int("screen-width", 1024), 1024);

  Args none({"-cfg=" + dir.path("none.cfg")});
  EXPECT_EQ(config_init(), 0);
  EXPECT_TRUE(log.has("warning: 0: file not found: " + dir.path("none.cfg") + "\n"));
}
