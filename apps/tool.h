// Commands of the tavix command-line tool; each returns the process exit code.
#pragma once

#include <string>
#include <vector>

enum ExitCode : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

int listCommand();
int benchCommand(const char* pattern);
// args: [--tier cpu|lanes] OP in out [op arguments...]
int runCommand(const std::vector<std::string>& args);
// One line per supported operation of `tavix run`, for the usage text.
std::string runUsage();
