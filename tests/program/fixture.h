// A whole-program test: the program's files in a fresh directory, the
// option words that name them, and the log read back after the run. It
// brings the headers the program tests use (some through the harness's).
#pragma once
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <regex>
#include <set>

#include "harness.h"

// The cells of a tab-separated line.
inline std::vector<std::string> cells(const std::string& line) { return split(line, '\t'); }

// The show actions of a timing trace, each as its cells (block, trial,
// type, action, due, actual, late, done, retrace, system, ...).
inline std::vector<std::vector<std::string>> timing_shows(const std::string& tsv) {
  std::vector<std::vector<std::string>> out;
  std::istringstream s(tsv);
  for (std::string l; std::getline(s, l);)
    if (cells(l).size() >= 10 && cells(l)[3] == "show") out.push_back(cells(l));
  return out;
}

// The results lines "nummer uv reaktion reakzeit ..." of a run.
struct Saved { int nummer, reaktion; std::string uv; long reakzeit; };
inline std::vector<Saved> saved_lines(const std::string& results) {
  std::vector<Saved> out;
  std::istringstream s(results);
  for (std::string l; std::getline(s, l);) {
    Saved v{};
    char uv[40];
    if (sscanf(l.c_str(), "%d %39s %d %ld", &v.nummer, uv, &v.reaktion, &v.reakzeit) == 4) out.push_back((v.uv = uv, v));
  }
  return out;
}

struct ProgramTest : ::testing::Test {
  void SetUp() override {
    dir.write("t.lst", "0\n");
    dir.write("en.dict", "Please release the key.\nInterrupted.\n");
    dir.write("t.cfg", "");
  }

  std::vector<std::string> args(const std::string& stimfile = "t.s") const {
    // LPT1, where trigger, pen and LED output go by default, is a simulated
    // port: the tests neither depend on nor touch the machine's ports.
    return {"-s=" + stimfile, "-lst=t.lst", "-log=t.log", "-dict=en.dict", "-cfg=t.cfg", "-res=results.txt",
            "-lpt1-device=" + dir.path("lpt1")};
  }

  // args() and more option words.
  std::vector<std::string> args_and(const std::vector<std::string>& more) const {
    std::vector<std::string> a = args();
    a.insert(a.end(), more.begin(), more.end());
    return a;
  }

  harness::Run run(const std::vector<std::string>& a, const std::vector<std::string>& env = {}) {
    return finish(harness::start(dir, a, env));
  }

  // Waits for the program, which should end by `signal` (0: by itself).
  harness::Run finish(const harness::Started& p, int signal = 0) {
    harness::Run r = harness::finish(p, 60);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.signal, signal) << r.err;
    log = dir.exists("t.log") ? dir.read("t.log") : "";
    results = dir.exists("results.txt") ? dir.read("results.txt") : "";
    return r;
  }

  // Every log line is "[warning: |error: ]<ms>: <text>" (or the empty line
  // that the three-text form leaves).
  void expect_log_well_formed() const {
    static const std::regex line("^((warning|error): )?-?[0-9]+: .*$|^$");
    std::istringstream s(log);
    for (std::string l; std::getline(s, l);) EXPECT_TRUE(std::regex_match(l, line)) << l;
  }

  harness::Dir dir;
  std::string log, results;
};
