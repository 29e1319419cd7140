#include "TestUtil.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testutil {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "kesta-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string& name) const { return path_ + "/" + name; }

LightweightString<wchar_t> TempDir::wfile(const std::string& name) const { return wide(file(name)); }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool pathExists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

LightweightString<wchar_t> wide(const std::string& text) {
  // Test names are ASCII; widen byte by byte.
  std::wstring w(text.begin(), text.end());
  return LightweightString<wchar_t>(w.c_str(), w.size());
}

std::string example(const std::string& name) { return std::string(KESTA_SOURCE_DIR) + "/examples/" + name; }

}  // namespace testutil
