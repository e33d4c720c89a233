// Commands of the tavix command-line tool; each returns the process exit code.
#pragma once

#include <string>
#include <vector>

enum ExitCode : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

// A log sink that drops every line. The mode calls report on stderr what a host lacks (a DSP
// without TAVIX_DSP_SOCKET, a GPU always), which would only clutter the tool's output.
void quietSink(int priority, const char* tag, const char* message);

int listCommand();
int benchCommand(const char* pattern);
// args: [--tier cpu|lanes] OP in out [op arguments...]
int runCommand(const std::vector<std::string>& args);
// One line per supported operation of `tavix run`, for the usage text.
std::string runUsage();
