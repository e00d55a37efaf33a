// A fresh directory under $TMPDIR or /tmp for a test's files, removed with
// its contents (kept when IXMOD_KEEP_TEST_DIRS is set), and the readers of
// what the tests write; the unit, program and fuzz tests share them.
#pragma once
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

// The whole content of a file ("" when it cannot be read).
inline std::string read_text(const std::string& path) {
  std::ostringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

// The pieces of text between the separators.
inline std::vector<std::string> split(const std::string& text, char sep) {
  std::vector<std::string> out(1);
  for (char c : text)
    if (c == sep) out.emplace_back();
    else out.back() += c;
  return out;
}

struct TempDir {
  TempDir() {
    const char* tmp = getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/ixmod-test-XXXXXX";
    if (!mkdtemp(&dir[0])) throw std::runtime_error("mkdtemp " + dir);
  }
  ~TempDir() {
    std::error_code e;
    if (!getenv("IXMOD_KEEP_TEST_DIRS")) std::filesystem::remove_all(dir, e);
  }
  const std::string& path() const { return dir; }
  std::string path(const std::string& name) const { return dir + "/" + name; }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }
  std::string read(const std::string& name) const { return read_text(path(name)); }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
  std::string dir;
};
