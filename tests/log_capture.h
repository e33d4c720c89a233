// Log capture for the suites: install tvxtest::Capture with tvx_set_log_sink and the library's
// lines collect in tvxtest::g_lines as "tag|message", for exact comparison.
#pragma once

#include <string>
#include <vector>

namespace tvxtest {

inline std::vector<std::string> g_lines;

inline void Capture(int, const char* tag, const char* message) { g_lines.push_back(std::string(tag) + "|" + message); }

// The captured form of an entry's failed-condition line.
inline std::string AssertLine(const std::string& name, const std::string& cond) {
  return "tavix_lib_log|Assertion failed @" + name + ": " + cond + "\n";
}

}  // namespace tvxtest
